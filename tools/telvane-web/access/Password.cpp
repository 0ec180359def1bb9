// The costs are those that OWASP names for Argon2id with little memory: this program runs on a module beside others.

#include "telvane-web/access/Password.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/OutputFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <poll.h>
#include <sodium.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr unsigned long long kPasses = 5;
constexpr std::size_t kMemory = std::size_t{7} * 1024 * 1024;
constexpr std::size_t kMinLength = 8;
constexpr const char* kPrefix = "$argon2id$";

/// Hides what is typed on a terminal.
class HiddenInput
{
public:
    HiddenInput() : m_terminal(tcgetattr(STDIN_FILENO, &m_before) == 0)
    {
        if (m_terminal) {
            termios hidden = m_before;
            hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
        }
    }
    HiddenInput(const HiddenInput&) = delete;
    HiddenInput& operator=(const HiddenInput&) = delete;
    ~HiddenInput()
    {
        if (m_terminal) {
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_before);
        }
    }

    /// \return the signal that ended the wait, or 0
    int read(const char* question, std::string& line) const
    {
        if (m_terminal) {
            std::cerr << question << std::flush;
        }
        const FileDescriptor signals = openSignals();
        pollfd watched[] = {{STDIN_FILENO, POLLIN, 0}, {signals.get(), POLLIN, 0}};
        while (std::cin.rdbuf()->in_avail() <= 0 && poll(watched, 2, -1) < 0 && errno == EINTR) {
        }
        if (const int signal = readSignal(signals.get()); signal != 0) {
            return signal;
        }
        std::getline(std::cin, line);
        if (m_terminal) {
            std::cerr << "\n";
        }
        return 0;
    }
    bool isTerminal() const { return m_terminal; }

private:
    termios m_before = {};
    bool m_terminal;
};

} // namespace

std::string hashPassword(const std::string& password)
{
    char hash[crypto_pwhash_STRBYTES] = "";
    if (sodium_init() < 0 || crypto_pwhash_str_alg(hash, password.data(), password.size(), kPasses, kMemory,
                                                   crypto_pwhash_ALG_ARGON2ID13) != 0) {
        return {};
    }
    return hash;
}

PasswordCheck verifyPassword(const std::string& password, const std::string& hash)
{
    if (sodium_init() < 0) {
        return PasswordCheck::Unknown;
    }
    errno = 0;
    if (crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0) {
        return PasswordCheck::Right;
    }
    return errno == EINVAL ? PasswordCheck::Wrong : PasswordCheck::Unknown; // there was no memory
}

std::string readPasswordFile(const std::string& path, std::string& error)
{
    std::ifstream file(path);
    std::string hash;
    if (!std::getline(file, hash)) {
        error = std::strerror(errno != 0 ? errno : EIO);
        return {};
    }
    // Costs beyond the own ones would let one login take all memory.
    if (hash.compare(0, std::strlen(kPrefix), kPrefix) != 0 || hash.size() >= crypto_pwhash_STRBYTES ||
        crypto_pwhash_str_needs_rehash(hash.c_str(), kPasses, kMemory) != 0) {
        error = "it contains no password that telvane-web --new-password has written";
        return {};
    }
    return hash;
}

int writePasswordFile(const std::string& path)
{
    std::string password;
    {
        const HiddenInput input;
        std::string again;
        int signal = input.read("Password: ", password);
        if (signal == 0 && input.isTerminal()) {
            signal = input.read("The same again: ", again);
        }
        if (signal != 0) {
            return kSignalBase + signal;
        }
        if (input.isTerminal() && again != password) {
            printError("the passwords differ");
            return kWrongUsage;
        }
    }
    if (password.size() < kMinLength) {
        printError("use at least 8 characters");
        return kWrongUsage;
    }
    const std::string hash = hashPassword(password);
    if (hash.empty()) {
        printError("there is not enough memory to hash the password");
        return kOutputFailure;
    }
    OutputFile file;
    int failure = file.open(path);
    if (failure == 0 && fchmod(file.descriptor(), S_IRUSR | S_IWUSR) != 0) {
        failure = errno;
    }
    failure = failure == 0 ? file.write(hash + "\n") : failure;
    failure = failure == 0 ? file.commit() : failure;
    if (failure != 0) {
        printError("cannot write " + path + ": " + std::strerror(failure));
        return kOutputFailure;
    }
    return kSuccess;
}

} // namespace TelvaneTool

// Gnuplot ends with 0 even if it could not write the whole picture. So it writes to a pipe, and the caller checks
// that everything reaches the file. Script and error messages are files in memory: with a pipe on each side, each
// program could wait for the other.

#include "plot/Gnuplot.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace TelvaneTool
{

namespace
{

/// The exit code of a child that could not start its program, where posix_spawn() cannot report it: without
/// memory shared with the child, as under an emulator.
constexpr int kNotStarted = 127;

/// \return an error number
int start(int input, int output, int errors, pid_t& process)
{
    char program[] = "gnuplot";
    char fromInput[] = "-";
    char* arguments[] = {program, fromInput, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    // Signals blocked in this process must still end gnuplot.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int error = posix_spawnp(&process, program, &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

int reportStartFailure(int error)
{
    printError(error == ENOENT
                   ? "cannot find gnuplot, which draws the picture; on Debian, install gnuplot-nox"
                   : std::string("cannot run gnuplot: ") + std::strerror(error));
    return kOutputFailure;
}

std::string readAll(int fd)
{
    std::string text;
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t size = read(fd, buffer.data(), buffer.size());
        if (size > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(size));
        } else if (size == 0 || errno != EINTR) {
            return text;
        }
    }
}

/// Waits until gnuplot writes or ends, or until a signal arrives, which it does not get if it is for this process alone.
/// \return the signal, or 0
int awaitOutput(int fd, int signals)
{
    pollfd watched[] = {{fd, POLLIN, 0}, {signals, POLLIN, 0}};
    while (poll(watched, 2, -1) < 0 && errno == EINTR) {
    }
    return (watched[1].revents & POLLIN) != 0 ? readSignal(signals) : 0;
}

/// \return the signal that interrupted it, or 0
int readPicture(int fd, std::string& output)
{
    const TerminationSignals blocked(TerminationSignals::Effect::Block);
    const FileDescriptor signals = openSignals();
    std::array<char, 65536> buffer;
    for (;;) {
        if (const int signal = awaitOutput(fd, signals.get()); signal != 0) {
            return signal;
        }
        const ssize_t size = read(fd, buffer.data(), buffer.size());
        if (size > 0) {
            output.append(buffer.data(), static_cast<std::size_t>(size));
        } else if (size == 0 || errno != EINTR) {
            return 0;
        }
    }
}

/// \return the line of gnuplot's messages that has the reason: the last one that is not empty
std::string reasonIn(std::string messages)
{
    messages.erase(messages.find_last_not_of(" \n") + 1);
    const std::string line = messages.substr(messages.find_last_of('\n') + 1);
    return line.empty() ? line : ": " + line;
}

} // namespace

int runGnuplot(const std::string& script, std::string& output)
{
    const FileDescriptor input(memfd_create("script", MFD_CLOEXEC));
    const FileDescriptor errors(memfd_create("errors", MFD_CLOEXEC));
    int ends[2] = {-1, -1};
    if (input.get() < 0 || errors.get() < 0 || writeFully(input.get(), script) != 0 ||
        lseek(input.get(), 0, SEEK_SET) != 0 || pipe2(ends, O_CLOEXEC) != 0) {
        return reportStartFailure(errno);
    }
    const FileDescriptor pipe(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    pid_t process = 0;
    if (const int error = start(input.get(), writeEnd.get(), errors.get(), process); error != 0) {
        return reportStartFailure(error);
    }
    writeEnd = FileDescriptor();
    const int signal = readPicture(pipe.get(), output);
    if (signal != 0) {
        kill(process, SIGKILL); // it has written nothing but to this process
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (signal != 0) {
        return kSignalBase + signal;
    }
    if (WIFSIGNALED(status)) {
        return kSignalBase + WTERMSIG(status);
    }
    if (WEXITSTATUS(status) == kNotStarted) {
        return reportStartFailure(ENOENT);
    }
    if (WEXITSTATUS(status) != 0 || output.empty()) {
        lseek(errors.get(), 0, SEEK_SET);
        printError("gnuplot could not draw the picture" + reasonIn(readAll(errors.get())));
        return kOutputFailure;
    }
    return kSuccess;
}

} // namespace TelvaneTool

#include "common/support/OutputFile.h"

#include "common/support/FileDescriptor.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace TelvaneTool
{

namespace
{

constexpr int kMaxTries = 100;
constexpr mode_t kPermissions = 07777;

/// \return what a symbolic link points to, so that the link itself is kept
std::string resolved(const std::string& path)
{
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr), &std::free);
    return real != nullptr ? real.get() : path;
}

} // namespace

OutputFile::~OutputFile()
{
    discard();
}

void OutputFile::discard()
{
    if (m_fd >= 0) {
        close(std::exchange(m_fd, -1));
    }
    if (!m_temporary.empty()) {
        unlink(m_temporary.c_str());
        m_temporary.clear();
    }
}

int OutputFile::open(const std::string& path, bool replace)
{
    m_path = resolved(path);
    m_replace = replace;
    struct stat status = {};
    const bool exists = stat(m_path.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) {
        return EISDIR;
    }
    if (exists && !S_ISREG(status.st_mode)) {
        m_fd = ::open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
        return m_fd < 0 ? errno : 0;
    }
    if (exists && !replace) {
        return EEXIST;
    }
    const std::size_t name = m_path.find_last_of('/') + 1; // npos + 1 is 0
    for (int i = 0; i < kMaxTries && m_fd < 0; ++i) {
        m_temporary = m_path.substr(0, name) + "." + m_path.substr(name) + "." + std::to_string(getpid()) +
                      "-" + std::to_string(i);
        m_fd = ::open(m_temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (m_fd < 0 && errno != EEXIST) {
            break;
        }
    }
    if (m_fd < 0) {
        const int error = errno;
        m_temporary.clear();
        return error;
    }
    if (exists && fchmod(m_fd, status.st_mode & kPermissions) != 0) {
        const int error = errno;
        discard();
        return error;
    }
    return 0;
}

int OutputFile::write(std::string_view data)
{
    const int error = writeFully(m_fd, data);
    if (error != 0) {
        discard();
    }
    return error;
}

int OutputFile::commit()
{
    // Devices and pipes cannot be synchronised.
    if ((!m_temporary.empty() && fsync(m_fd) != 0) || close(release()) != 0) {
        const int error = errno;
        discard();
        return error;
    }
    return publish();
}

int OutputFile::publish()
{
    if (m_temporary.empty()) {
        return 0;
    }
    // Unlike rename(), link() does not replace a file that appeared in the meantime.
    const int result = m_replace ? std::rename(m_temporary.c_str(), m_path.c_str())
                                 : link(m_temporary.c_str(), m_path.c_str());
    const int error = result != 0 ? errno : 0;
    if (error != 0) {
        discard();
    } else if (!m_replace) {
        unlink(m_temporary.c_str());
    }
    m_temporary.clear();
    return error;
}

int OutputFile::release()
{
    return std::exchange(m_fd, -1);
}

bool isSameFile(const std::string& first, const std::string& second)
{
    struct stat a = {};
    struct stat b = {};
    return stat(first.c_str(), &a) == 0 && stat(second.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

} // namespace TelvaneTool

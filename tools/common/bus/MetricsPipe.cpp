// A reader needs no protocol and no access to the bus: cat is enough. Each page is written on the pipe's own thread, so
// a slow reader does not delay the program. The thread polls m_closing, so it need not be cancelled.
//
// All readers of a named pipe share its contents. One that opens it and does not read would leave old pages to the
// others.

#include "common/bus/MetricsPipe.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

/// Redirects standard output, which is for data, to /dev/null: opening a pipe prints a line.
class StdoutRedirect
{
public:
    StdoutRedirect() : m_output(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) { discardOutput(STDOUT_FILENO); }
    StdoutRedirect(const StdoutRedirect&) = delete;
    StdoutRedirect& operator=(const StdoutRedirect&) = delete;
    ~StdoutRedirect() { dup2(m_output.get(), STDOUT_FILENO); }

private:
    const FileDescriptor m_output;
};

constexpr int kPollMilliseconds = 20;
constexpr int kMaxIdlePolls = 100; ///< of a reader that does not read: 2 s

} // namespace

MetricsPipe::MetricsPipe(std::string path, std::function<std::string()> page)
    : m_path(std::move(path)), m_page(std::move(page))
{}

MetricsPipe::~MetricsPipe()
{
    m_closing = true;
    if (m_pipe == nullptr) {
        return;
    }
    m_pipe->Close();
    struct stat own = {};
    struct stat present = {};
    if (fstat(m_file.get(), &own) == 0 && lstat(m_path.c_str(), &present) == 0 &&
        own.st_dev == present.st_dev && own.st_ino == present.st_ino) {
        unlink(m_path.c_str());
    }
}

int MetricsPipe::open()
{
    // Reuse a pipe that was left by a killed program.
    if (mkfifo(m_path.c_str(), 0644) != 0 && errno != EEXIST) {
        printError("cannot create the pipe " + m_path + ": " + std::strerror(errno));
        return kOutputFailure;
    }
    if (const int result = take(m_path); result != kSuccess) {
        return result;
    }
    m_pipe = std::make_unique<Telvane::DynamicFileInterface>("/proc/self/fd/" + std::to_string(m_file.get()),
                                                             [this](int fd) { writePage(fd); });
    const StdoutRedirect redirect;
    m_pipe->Open();
    return kSuccess;
}

/// Checks the pipe at a path, and keeps hold of it.
/// \return an exit code
int MetricsPipe::take(const std::string& path)
{
    FileDescriptor file(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        printError("cannot open the pipe " + path + ": " + std::strerror(errno));
        return kOutputFailure;
    }
    if (!S_ISFIFO(status.st_mode)) {
        printError(path + " exists and is not a pipe");
        return kWrongUsage;
    }
    if (status.st_uid != geteuid()) {
        printError(path + " is a pipe of another user (" + std::to_string(status.st_uid) + ")");
        return kWrongUsage;
    }
    if (m_pipe == nullptr) {
        m_file = std::move(file);
    } else {
        dup3(file.get(), m_file.get(), O_CLOEXEC); // the path in /proc stays the same
    }
    return kSuccess;
}

void MetricsPipe::writePage(int fd)
{
    std::string page;
    try {
        page = m_page();
    } catch (const std::bad_alloc&) {
        printError("out of memory for the metrics");
        return;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    if (!write(fd, page)) {
        replacePipe();
    }
}

/// \return false if the reader does not read
bool MetricsPipe::write(int fd, std::string_view page)
{
    int idlePolls = 0;
    while (!page.empty() && !m_closing) {
        pollfd watched = {fd, POLLOUT, 0};
        if (poll(&watched, 1, kPollMilliseconds) <= 0) {
            if (++idlePolls == kMaxIdlePolls) {
                return false;
            }
            continue;
        }
        idlePolls = 0;
        const ssize_t written = ::write(fd, page.data(), page.size());
        if (written >= 0) {
            page.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EAGAIN && errno != EINTR) {
            return true; // the reader has closed the pipe
        }
    }
    return true;
}

/// Puts a new pipe at the path. The reader that does not read keeps the old one.
void MetricsPipe::replacePipe()
{
    const std::string created = m_path + ".new";
    unlink(created.c_str());
    if (mkfifo(created.c_str(), 0644) != 0) {
        return; // the next page tries again
    }
    if (rename(created.c_str(), m_path.c_str()) != 0) {
        unlink(created.c_str());
        return;
    }
    take(m_path);
}

} // namespace TelvaneTool

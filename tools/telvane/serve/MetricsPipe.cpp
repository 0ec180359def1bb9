// A reader needs no protocol and no access to the bus: cat is enough. Each page is written on the pipe's own thread, so
// a slow reader does not delay the server. The thread polls m_closing, so it need not be cancelled.

#include "serve/MetricsPipe.h"

#include "common/bus/MetricsPage.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/FileDescriptor.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <string_view>
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

} // namespace

MetricsPipe::MetricsPipe(const std::string& path, const Telvane::EventServer& server)
    : m_path(path), m_pipe(path, [this, &server](int fd) { writePage(fd, server); })
{}

MetricsPipe::~MetricsPipe()
{
    m_closing = true;
    if (m_open) {
        m_pipe.Close();
    }
}

int MetricsPipe::open()
{
    // Reuse a pipe that was left by a killed server.
    if (mkfifo(m_path.c_str(), 0644) != 0 && errno != EEXIST) {
        printError("cannot create the pipe " + m_path + ": " + std::strerror(errno));
        return kOutputFailure;
    }
    struct stat status = {};
    if (lstat(m_path.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) {
        printError(m_path + " exists and is not a pipe");
        return kWrongUsage;
    }
    const StdoutRedirect redirect;
    m_pipe.Open();
    m_open = true;
    return kSuccess;
}

void MetricsPipe::writePage(int fd, const Telvane::EventServer& server) const
{
    std::string page;
    try {
        page = metricsPage(server);
    } catch (const std::bad_alloc&) {
        printError("out of memory for the metrics");
        return;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    std::string_view rest = page;
    while (!rest.empty() && !m_closing) {
        pollfd watched = {fd, POLLOUT, 0};
        if (poll(&watched, 1, kPollMilliseconds) <= 0) {
            continue;
        }
        const ssize_t written = write(fd, rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EAGAIN && errno != EINTR) {
            return; // the reader has closed the pipe
        }
    }
}

} // namespace TelvaneTool

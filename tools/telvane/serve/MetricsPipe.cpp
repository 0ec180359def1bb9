// A reader needs no protocol and no permission on the bus: cat is enough. The page is made when the reader
// comes, on the pipe's own thread, so that one that reads slowly holds up nobody. At the end the thread looks
// for itself whether it is to go on waiting for such a reader: it need not be cancelled.

#include "serve/MetricsPipe.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "serve/MetricsPage.h"

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

/// Keeps the line that opening a pipe writes off standard output, which is for data.
class StdoutRedirect
{
public:
    StdoutRedirect() : m_output(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    StdoutRedirect(const StdoutRedirect&) = delete;
    StdoutRedirect& operator=(const StdoutRedirect&) = delete;
    ~StdoutRedirect()
    {
        dup2(m_output, STDOUT_FILENO);
        close(m_output);
    }

private:
    int m_output;
};

constexpr int kLookMilliseconds = 20;

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
    // A pipe that a server left behind when it was killed is taken over.
    if (mkfifo(m_path.c_str(), 0644) != 0 && errno != EEXIST) {
        printError("cannot make the pipe " + m_path + ": " + std::strerror(errno));
        return kOutputFailure;
    }
    struct stat status = {};
    if (lstat(m_path.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) {
        printError(m_path + " is there already and is not a pipe; it is left alone");
        return kWrongUsage;
    }
    const StdoutRedirect aside;
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
        printError("there is no memory for a page of metrics");
        return;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    std::string_view rest = page;
    while (!rest.empty() && !m_closing) {
        pollfd watched = {fd, POLLOUT, 0};
        if (poll(&watched, 1, kLookMilliseconds) <= 0) {
            continue;
        }
        const ssize_t written = write(fd, rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EAGAIN && errno != EINTR) {
            return; // the reader has left, as it knows
        }
    }
}

} // namespace TelvaneTool

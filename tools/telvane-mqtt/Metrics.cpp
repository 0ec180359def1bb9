// The counters go out through a named pipe, as those of the server do. Each page is written on the pipe's own thread,
// so a slow reader does not delay the bridge.

#include "Metrics.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr int kPollMilliseconds = 20;

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

void begin(std::string& page, const char* name, const char* type, const char* help)
{
    page += std::string("# TYPE ") + name + " " + type + "\n# HELP " + name + " " + help + "\n";
}

void sample(std::string& page, const std::string& name, std::uint64_t value)
{
    page += name + " " + std::to_string(value) + "\n";
}

std::string ofChannel(const char* name, const std::string& channel)
{
    return std::string(name) + "_total{channel=\"" + channel + "\"}";
}

} // namespace

std::string metricsPage(const MetricsSources& sources)
{
    std::string page;
    const auto single = [&page](const char* name, const char* type, const char* help, std::uint64_t value) {
        begin(page, name, type, help);
        sample(page, std::string(name) + (type[0] == 'c' ? "_total" : ""), value);
    };
    single("telvane_mqtt_connected", "gauge", "Whether the bridge is connected to the broker.",
           sources.link.connected ? 1 : 0);
    single("telvane_mqtt_connections", "counter", "Connections to the broker.", sources.link.connections);
    single("telvane_mqtt_connection_failures", "counter", "Failed attempts and lost connections.",
           sources.link.failures);
    single("telvane_mqtt_state_corrections", "counter", "Times that the state on the broker was corrected.",
           sources.link.corrections);
    single("telvane_mqtt_queued_messages", "gauge", "Messages that wait for the broker.",
           sources.queue.waiting());
    single("telvane_mqtt_queued_bytes", "gauge", "What they count for in the bounds of the queue.",
           sources.queue.waitingBytes());
    single("telvane_mqtt_published", "counter", "Records from the broker that were published on the bus.",
           sources.inbound.published);
    single("telvane_mqtt_answered", "counter", "Requests from the broker that were answered.",
           sources.inbound.answered);
    single("telvane_mqtt_refused", "counter", "Records and requests from the broker that were refused.",
           sources.inbound.refused);
    single("telvane_mqtt_ignored_retained", "counter", "Retained records and requests, which are ignored.",
           sources.link.ignoredRetained);

    std::map<std::string, ChannelCounts> channels = sources.queue.counts();
    channels.erase(""); // answers and errors
    const auto perChannel = [&](const char* name, const char* help, std::uint64_t ChannelCounts::*value) {
        begin(page, name, "counter", help);
        for (const auto& [channel, counts] : channels) {
            sample(page, ofChannel(name, channel), counts.*value);
        }
    };
    perChannel("telvane_mqtt_accepted", "Messages that the queue accepted.", &ChannelCounts::accepted);
    perChannel("telvane_mqtt_sent", "Messages that the broker has, with QoS 0 as far as known.",
               &ChannelCounts::sent);
    perChannel("telvane_mqtt_sent_bytes", "Bytes of their topics and payloads.", &ChannelCounts::bytes);
    begin(page, "telvane_mqtt_dropped", "counter", "Messages that were dropped.");
    for (const auto& [channel, counts] : channels) {
        for (int reason = 0; reason < kDropReasons; ++reason) {
            if (counts.dropped[reason] != 0) {
                sample(page,
                       "telvane_mqtt_dropped_total{channel=\"" + channel + "\",reason=\"" +
                           nameOf(static_cast<DropReason>(reason)) + "\"}",
                       counts.dropped[reason]);
            }
        }
    }
    return page + "# EOF\n";
}

MetricsPipe::MetricsPipe(const std::string& path, const MetricsSources& sources)
    : m_path(path), m_sources(sources), m_pipe(path, [this](int fd) { writePage(fd); })
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

void MetricsPipe::writePage(int fd) const
{
    const std::string page = metricsPage(m_sources);
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

} // namespace TelvaneTool::Mqtt

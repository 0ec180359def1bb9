// libmicrohttpd parses requests and writes answers; its form parser and its authentication are not used. It measures
// idle time only, which a client that sends a byte now and then never exceeds, and it never times out a suspended
// connection. So this class keeps a deadline for each connection: for a whole request, for a whole answer. Streams have
// no deadline; they end when the client does not read (HttpStream::observe) or when a heartbeat finds no peer. Nor do
// requests that another thread works on; their number is limited by its queue.

#include "telvane-web/http/HttpCallbacks.h"

#include <algorithm>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <vector>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kBlocked = 300 * kMillisecond;
constexpr Nanoseconds kSweep = kSecond / 4;
constexpr const char* kTlsVersions = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

} // namespace

HttpServer::HttpServer(const Settings& settings, HttpHandler handler)
    : m_settings(settings), m_handler(std::move(handler)), m_now(monotonicNow())
{}

HttpServer::~HttpServer()
{
    if (m_daemon == nullptr) {
        return;
    }
    // A suspended connection must be resumed before the daemon stops.
    for (const auto& stream : m_streams) {
        stream->ended = true;
        if (stream->suspended) {
            stream->suspended = false;
            MHD_resume_connection(stream->handle);
        }
    }
    for (Waiting& waiting : m_waiting) {
        if (!waiting.resumed) {
            waiting.resumed = true;
            MHD_resume_connection(waiting.handle);
        }
    }
    MHD_run(m_daemon);
    MHD_stop_daemon(m_daemon);
}

std::string HttpServer::start(FileDescriptor listening)
{
    unsigned flags = static_cast<unsigned>(MHD_USE_EPOLL) | static_cast<unsigned>(MHD_ALLOW_SUSPEND_RESUME) |
                     static_cast<unsigned>(MHD_USE_ERROR_LOG);
    if (!listening.isOpen()) {
        flags |= MHD_USE_NO_LISTEN_SOCKET;
    }
    std::vector<MHD_OptionItem> options;
    if (listening.isOpen()) {
        options.push_back({MHD_OPTION_LISTEN_SOCKET, listening.get(), nullptr});
    }
    if (!m_settings.certificate.empty()) {
        flags |= static_cast<unsigned>(MHD_USE_TLS);
        options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(m_settings.certificate.c_str())});
        options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(m_settings.key.c_str())});
        options.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(kTlsVersions)});
    }
    options.push_back({MHD_OPTION_END, 0, nullptr});
    m_daemon =
        MHD_start_daemon(flags, 0, nullptr, nullptr, &HttpCallbacks::access, this, MHD_OPTION_EXTERNAL_LOGGER,
                         &HttpCallbacks::log, nullptr, MHD_OPTION_CONNECTION_LIMIT, m_settings.maxConnections,
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, m_settings.memory, MHD_OPTION_CONNECTION_TIMEOUT,
                         0U, MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_NOTIFY_CONNECTION,
                         &HttpCallbacks::connection, this, MHD_OPTION_NOTIFY_COMPLETED,
                         &HttpCallbacks::completed, this, MHD_OPTION_ARRAY, options.data(), MHD_OPTION_END);
    if (m_daemon == nullptr) {
        return m_settings.certificate.empty()
                   ? "the HTTP library cannot serve it"
                   : "the certificate and the key do not fit together, or are not PEM";
    }
    listening.release(); // the library closes it
    return {};
}

bool HttpServer::adopt(FileDescriptor connected)
{
    sockaddr_storage address = {};
    address.ss_family = AF_INET;
    return MHD_add_connection(m_daemon, connected.release(), reinterpret_cast<sockaddr*>(&address),
                              sizeof(sockaddr)) == MHD_YES;
}

int HttpServer::fd() const
{
    const MHD_DaemonInfo* const info = MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD);
    return info != nullptr ? info->epoll_fd : -1;
}

Nanoseconds HttpServer::timeout(Nanoseconds now, Nanoseconds longest)
{
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    if (MHD_get_timeout(m_daemon, &milliseconds) == MHD_YES) {
        longest = std::min(longest, static_cast<Nanoseconds>(milliseconds) * kMillisecond);
    }
    for (const auto& stream : m_streams) {
        if (stream->suspended) {
            longest = std::min(longest, std::max<Nanoseconds>(stream->source->due() - now, 0));
        }
    }
    return longest;
}

void HttpServer::run(Nanoseconds now)
{
    m_now = now;
    watchStreams(now);
    watchWaiting();
    MHD_run(m_daemon);
    if (now - m_swept >= kSweep) {
        m_swept = now;
        watchDeadlines(now);
    }
}

void HttpServer::watchStreams(Nanoseconds now)
{
    for (const auto& stream : m_streams) {
        int unsent = 0;
        ioctl(stream->fd, SIOCOUTQ, &unsent);
        const bool blocked = !stream->suspended && now - stream->lastRead > kBlocked;
        const std::size_t behind =
            static_cast<std::size_t>(std::max(unsent, 0)) + stream->text.size() - stream->taken;
        if (!stream->ended && !stream->source->observe(now, behind, blocked)) {
            stream->ended = true;
            ++m_statistics.slowStreams;
            shutdown(stream->fd, SHUT_RDWR);
        }
        if (stream->suspended && (stream->ended || stream->source->due() <= now)) {
            stream->suspended = false;
            stream->lastRead = now;
            MHD_resume_connection(stream->handle);
        }
    }
}

void HttpServer::watchWaiting()
{
    for (Waiting& waiting : m_waiting) {
        if (!waiting.resumed && waiting.reply->isReady()) {
            waiting.resumed = true;
            MHD_resume_connection(waiting.handle);
        }
    }
}

void HttpServer::watchDeadlines(Nanoseconds now)
{
    // With few connections left, those that have not sent a request are given up early.
    const bool crowded = m_statistics.openConnections > m_settings.maxConnections / 4 * 3;
    const Nanoseconds early = m_settings.requestDeadline - m_settings.crowdedDeadline;
    for (Connection& connection : m_connections) {
        const Nanoseconds deadline =
            connection.deadline - (crowded && !connection.answering ? std::max<Nanoseconds>(early, 0) : 0);
        if (!connection.stream && !connection.waiting && !connection.closed && now >= deadline) {
            connection.closed = true;
            ++m_statistics.timedOut;
            shutdown(connection.fd, SHUT_RDWR);
        }
    }
}

} // namespace TelvaneTool

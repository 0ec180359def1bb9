// libmicrohttpd parses requests and writes answers; its form parser and its authentication are not used. It measures
// idle time only, which a client that sends a byte now and then never exceeds, and it never times out a suspended
// connection. So this class keeps a deadline for each connection: for a whole request, for a whole answer. Streams have
// no deadline; they end when the client does not read (HttpStream::observe) or when a heartbeat finds no peer.

#include "telvane-web/http/HttpServer.h"

#include <algorithm>
#include <cstring>
#include <linux/sockios.h>
#include <microhttpd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <vector>

namespace TelvaneTool
{

namespace
{

constexpr int kStreamSendBuffer = 64 * 1024; ///< so that the backlog of a slow client is small, and known
constexpr std::size_t kStreamBlock = 4096;
constexpr Nanoseconds kBlocked = 300 * kMillisecond;
constexpr Nanoseconds kSweep = kSecond / 4;
constexpr unsigned kBadRequest = 400;

/// Nothing but the page itself runs or is loaded, from this server only.
constexpr const char* kContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "worker-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types telvane";

std::string_view viewOf(const char* text)
{
    return text != nullptr ? std::string_view(text) : std::string_view();
}

} // namespace

struct HttpServer::Connection
{
    MHD_Connection* handle = nullptr;
    int fd = -1;
    Nanoseconds deadline = 0;
    bool answering = false;
    bool stream = false;
    bool closed = false;
};

struct HttpServer::Stream
{
    HttpServer* server = nullptr;
    MHD_Connection* handle = nullptr;
    int fd = -1;
    std::unique_ptr<HttpStream> source;
    std::string text;
    std::size_t taken = 0; ///< bytes of the text
    bool suspended = false;
    bool ended = false;
    Nanoseconds lastRead = 0;
};

/// The functions that libmicrohttpd calls.
struct HttpCallbacks
{
    /// Called first with the headers, and again when the request is complete. Only a complete request leaves the
    /// connection open for the next one.
    static MHD_Result access(void* context, MHD_Connection* connection, const char* url, const char* method,
                             const char* /*version*/, const char* /*upload*/, std::size_t* /*size*/,
                             void** request)
    {
        auto* const server = static_cast<HttpServer*>(context);
        if (*request == nullptr && !hasBody(connection)) {
            *request = server;
            return MHD_YES;
        }
        return server->answer(connection, url, method) == 0 ? MHD_YES : MHD_NO;
    }

    static bool hasBody(MHD_Connection* connection)
    {
        const char* const length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Content-Length");
        return (length != nullptr && std::strcmp(length, "0") != 0) ||
               MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Transfer-Encoding") != nullptr;
    }

    static HttpServer::Connection* find(MHD_Connection* connection)
    {
        const MHD_ConnectionInfo* const info =
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
        return info != nullptr ? static_cast<HttpServer::Connection*>(info->socket_context) : nullptr;
    }

    static void connection(void* context, MHD_Connection* connection, void** socketContext,
                           MHD_ConnectionNotificationCode code)
    {
        auto* const server = static_cast<HttpServer*>(context);
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            const MHD_ConnectionInfo* const info =
                MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            HttpServer::Connection& entry = server->m_connections.emplace_back();
            entry.handle = connection;
            entry.fd = info != nullptr ? info->connect_fd : -1;
            entry.deadline = server->m_now + server->m_settings.requestDeadline;
            ++server->m_statistics.connections;
            ++server->m_statistics.openConnections;
            *socketContext = &entry;
        } else if (*socketContext != nullptr) {
            auto* const entry = static_cast<HttpServer::Connection*>(*socketContext);
            server->m_connections.remove_if([entry](const auto& item) { return &item == entry; });
            --server->m_statistics.openConnections;
            *socketContext = nullptr;
        }
    }

    /// A request is complete: the next one of the connection has a deadline of its own.
    static void completed(void* context, MHD_Connection* connection, void** /*request*/,
                          MHD_RequestTerminationCode /*code*/)
    {
        auto* const server = static_cast<HttpServer*>(context);
        if (HttpServer::Connection* const entry = find(connection)) {
            entry->answering = false;
            entry->stream = false;
            entry->deadline = server->m_now + server->m_settings.requestDeadline;
        }
    }

    static ssize_t read(void* context, std::uint64_t /*position*/, char* buffer, std::size_t size)
    {
        auto* const stream = static_cast<HttpServer::Stream*>(context);
        stream->lastRead = stream->server->m_now;
        if (stream->ended) {
            return MHD_CONTENT_READER_END_WITH_ERROR;
        }
        if (stream->taken == stream->text.size()) {
            stream->text = stream->source->next(stream->server->m_now);
            stream->taken = 0;
        }
        if (stream->text.empty()) {
            stream->suspended = true;
            MHD_suspend_connection(stream->handle);
            return 0;
        }
        const std::size_t length = std::min(size, stream->text.size() - stream->taken);
        stream->text.copy(buffer, length, stream->taken);
        stream->taken += length;
        stream->server->m_statistics.bytes += length;
        return static_cast<ssize_t>(length);
    }

    static void endStream(void* context)
    {
        auto* const stream = static_cast<HttpServer::Stream*>(context);
        HttpServer* const server = stream->server;
        --server->m_statistics.openStreams;
        server->m_streams.remove_if([stream](const auto& item) { return item.get() == stream; });
    }

    static void log(void* /*context*/, const char* /*format*/, va_list /*arguments*/)
    {
        // Lines about malformed requests would let any client fill the journal; the counters show them.
    }
};

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
    options.push_back({MHD_OPTION_END, 0, nullptr});
    m_daemon =
        MHD_start_daemon(flags, 0, nullptr, nullptr, &HttpCallbacks::access, this, MHD_OPTION_EXTERNAL_LOGGER,
                         &HttpCallbacks::log, nullptr, MHD_OPTION_CONNECTION_LIMIT, m_settings.maxConnections,
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, m_settings.memory, MHD_OPTION_CONNECTION_TIMEOUT,
                         0U, MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_NOTIFY_CONNECTION,
                         &HttpCallbacks::connection, this, MHD_OPTION_NOTIFY_COMPLETED,
                         &HttpCallbacks::completed, this, MHD_OPTION_ARRAY, options.data(), MHD_OPTION_END);
    if (m_daemon == nullptr) {
        return "the HTTP library cannot serve it";
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

void HttpServer::watchDeadlines(Nanoseconds now)
{
    // With few connections left, those that have not sent a request are given up early.
    const bool crowded = m_statistics.openConnections > m_settings.maxConnections / 4 * 3;
    const Nanoseconds early = m_settings.requestDeadline - m_settings.crowdedDeadline;
    for (Connection& connection : m_connections) {
        const Nanoseconds deadline =
            connection.deadline - (crowded && !connection.answering ? std::max<Nanoseconds>(early, 0) : 0);
        if (!connection.stream && !connection.closed && now >= deadline) {
            connection.closed = true;
            ++m_statistics.timedOut;
            shutdown(connection.fd, SHUT_RDWR);
        }
    }
}

int HttpServer::answer(MHD_Connection* connection, const char* url, const char* method)
{
    ++m_statistics.requests;
    Connection* const entry = HttpCallbacks::find(connection);
    if (entry != nullptr) {
        entry->answering = true;
        entry->deadline = m_now + m_settings.answerDeadline;
    }
    const auto header = [connection](const char* name) {
        return viewOf(MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name));
    };
    HttpRequest request;
    request.method = viewOf(method);
    request.path = viewOf(url);
    request.localAddress = entry != nullptr ? localAddressOf(entry->fd, false) : std::string();
    request.header = header;
    request.query = [connection](const char* name) -> std::optional<std::string_view> {
        const char* const value = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, name);
        return value != nullptr ? std::optional<std::string_view>(value) : std::nullopt;
    };
    request.hasBody = HttpCallbacks::hasBody(connection);
    request.hostHeaders = 0;
    MHD_get_connection_values(
        connection, MHD_HEADER_KIND,
        [](void* count, MHD_ValueKind, const char* key, const char*) {
            *static_cast<std::size_t*>(count) += strcasecmp(key, "Host") == 0 ? 1U : 0U;
            return MHD_YES;
        },
        &request.hostHeaders);

    HttpReply reply = m_handler(request);
    if (reply.stream != nullptr && m_statistics.openStreams >= m_settings.maxStreams) {
        reply = HttpReply();
        reply.status = MHD_HTTP_SERVICE_UNAVAILABLE;
        reply.body = "too many pages are open\n";
        reply.retryAfter = 10;
    }
    if (reply.status >= kBadRequest) {
        ++m_statistics.refused;
    }
    if (reply.stream != nullptr && entry != nullptr) {
        entry->stream = true;
    }
    return send(connection, std::move(reply), request.method == "HEAD");
}

int HttpServer::send(MHD_Connection* connection, HttpReply reply, bool head)
{
    MHD_Response* response = nullptr;
    const char* cache = "no-store";
    const StaticFile* const file = reply.file;
    const char* type = file != nullptr ? file->type : reply.type;
    if (reply.stream != nullptr && head) {
        reply.stream.reset();
    }
    if (reply.stream != nullptr) {
        auto& stream = m_streams.emplace_back(std::make_unique<Stream>());
        stream->server = this;
        stream->handle = connection;
        stream->source = std::move(reply.stream);
        stream->lastRead = m_now;
        const MHD_ConnectionInfo* const info =
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
        stream->fd = info != nullptr ? info->connect_fd : -1;
        setsockopt(stream->fd, SOL_SOCKET, SO_SNDBUF, &kStreamSendBuffer, sizeof kStreamSendBuffer);
        ++m_statistics.openStreams;
        response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kStreamBlock, &HttpCallbacks::read,
                                                     stream.get(), &HttpCallbacks::endStream);
        if (response == nullptr) {
            HttpCallbacks::endStream(stream.get());
            return -1;
        }
    } else if (file != nullptr) {
        const std::string_view bytes = reply.status != MHD_HTTP_OK ? std::string_view()
                                       : reply.compressed          ? file->compressed
                                                                   : file->plain;
        response = MHD_create_response_from_buffer(bytes.size(), const_cast<char*>(bytes.data()),
                                                   MHD_RESPMEM_PERSISTENT);
        cache = "no-cache"; // kept by the browser, and asked for again with its ETag
    } else {
        response =
            MHD_create_response_from_buffer(reply.body.size(), reply.body.data(), MHD_RESPMEM_MUST_COPY);
    }
    if (response == nullptr) {
        return -1;
    }
    const auto add = [response](const char* name, const char* value) {
        MHD_add_response_header(response, name, value);
    };
    add("Content-Type", type);
    add("Cache-Control", cache);
    add("Content-Security-Policy", kContentPolicy);
    add("X-Content-Type-Options", "nosniff");
    add("X-Frame-Options", "DENY");
    add("Referrer-Policy", "no-referrer");
    add("Cross-Origin-Resource-Policy", "same-origin");
    add("Cross-Origin-Opener-Policy", "same-origin");
    if (file != nullptr) {
        add("ETag", file->etag);
        add("Vary", "Accept-Encoding");
        if (reply.compressed) {
            add("Content-Encoding", "gzip");
        }
    }
    if (reply.allow != nullptr) {
        add("Allow", reply.allow);
    }
    if (reply.retryAfter != 0) {
        add("Retry-After", std::to_string(reply.retryAfter).c_str());
    }
    add("X-Accel-Buffering", "no"); // a proxy must not collect the stream
    if (reply.close) {
        add("Connection", "close");
    }
    const MHD_Result result = MHD_queue_response(connection, reply.status, response);
    MHD_destroy_response(response);
    return result == MHD_YES ? 0 : -1;
}

} // namespace TelvaneTool

#include "telvane-web/http/HttpCallbacks.h"

#include <cstring>
#include <sys/socket.h>

namespace TelvaneTool
{

namespace
{

constexpr int kStreamSendBuffer = 64 * 1024; ///< so that the backlog of a slow client is small, and known
constexpr std::size_t kStreamBlock = 4096;
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

int HttpServer::answer(MHD_Connection* connection, const char* url, const char* method)
{
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
    request.peerAddress = entry != nullptr ? peerAddressOf(entry->fd) : std::string();
    request.now = m_now;
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
    if (reply.later != nullptr) {
        if (entry != nullptr) {
            entry->waiting = true;
        }
        m_waiting.push_back({connection, std::move(reply.later), false});
        MHD_suspend_connection(connection);
        return 0;
    }
    return send(connection, std::move(reply), request.method == "HEAD");
}

int HttpServer::send(MHD_Connection* connection, HttpReply reply, bool head)
{
    if (reply.stream != nullptr && m_statistics.openStreams >= m_settings.maxStreams) {
        reply = HttpReply();
        reply.status = MHD_HTTP_SERVICE_UNAVAILABLE;
        reply.body = "too many pages are open\n";
        reply.retryAfter = 10;
    }
    if (reply.status >= kBadRequest) {
        ++m_statistics.refused;
    }
    if (Connection* const entry = HttpCallbacks::find(connection);
        reply.stream != nullptr && entry != nullptr) {
        entry->stream = true;
    }
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
    if (!reply.fileName.empty()) {
        add("Content-Disposition", ("attachment; filename=\"" + reply.fileName + "\"").c_str());
    }
    if (!reply.cookie.empty()) {
        add("Set-Cookie", reply.cookie.c_str());
    }
    if (reply.challenge != nullptr) {
        add("WWW-Authenticate", reply.challenge);
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

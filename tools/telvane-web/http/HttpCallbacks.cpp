#include "telvane-web/http/HttpCallbacks.h"

#include <algorithm>
#include <cstring>

namespace TelvaneTool
{

/// Called first with the headers, and again when the request is complete. Only a complete request leaves the
/// connection open for the next one.
MHD_Result HttpCallbacks::access(void* context, MHD_Connection* connection, const char* url,
                                 const char* method, const char* /*version*/, const char* /*upload*/,
                                 std::size_t* /*size*/, void** request)
{
    auto* const server = static_cast<HttpServer*>(context);
    if (*request == nullptr && !hasBody(connection)) {
        *request = server;
        return MHD_YES;
    }
    // A connection that waited for another thread is back.
    auto& waiting = server->m_waiting;
    const auto found = std::find_if(waiting.begin(), waiting.end(),
                                    [&](const auto& item) { return item.handle == connection; });
    if (found == waiting.end()) {
        ++server->m_statistics.requests;
    } else {
        const bool ready = found->reply->isReady();
        std::optional<HttpReply> reply = ready ? found->reply->take() : std::nullopt;
        waiting.erase(found);
        if (!ready) {
            return MHD_NO; // the server ends
        }
        if (HttpServer::Connection* const entry = find(connection)) {
            entry->waiting = false;
            entry->deadline = server->m_now + server->m_settings.answerDeadline;
        }
        if (reply) {
            return server->send(connection, std::move(*reply), std::string_view(method) == "HEAD") == 0
                       ? MHD_YES
                       : MHD_NO;
        }
    }
    return server->answer(connection, url, method) == 0 ? MHD_YES : MHD_NO;
}

bool HttpCallbacks::hasBody(MHD_Connection* connection)
{
    const char* const length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Content-Length");
    return (length != nullptr && std::strcmp(length, "0") != 0) ||
           MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Transfer-Encoding") != nullptr;
}

HttpServer::Connection* HttpCallbacks::find(MHD_Connection* connection)
{
    const MHD_ConnectionInfo* const info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return info != nullptr ? static_cast<HttpServer::Connection*>(info->socket_context) : nullptr;
}

void HttpCallbacks::connection(void* context, MHD_Connection* connection, void** socketContext,
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
void HttpCallbacks::completed(void* context, MHD_Connection* connection, void** /*request*/,
                              MHD_RequestTerminationCode /*code*/)
{
    auto* const server = static_cast<HttpServer*>(context);
    server->m_waiting.remove_if([connection](const auto& item) { return item.handle == connection; });
    if (HttpServer::Connection* const entry = find(connection)) {
        entry->answering = false;
        entry->stream = false;
        entry->waiting = false;
        entry->deadline = server->m_now + server->m_settings.requestDeadline;
    }
}

ssize_t HttpCallbacks::read(void* context, std::uint64_t /*position*/, char* buffer, std::size_t size)
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
    if (stream->text.empty() && stream->source->isComplete()) {
        return MHD_CONTENT_READER_END_OF_STREAM;
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

void HttpCallbacks::endStream(void* context)
{
    auto* const stream = static_cast<HttpServer::Stream*>(context);
    HttpServer* const server = stream->server;
    --server->m_statistics.openStreams;
    server->m_streams.remove_if([stream](const auto& item) { return item.get() == stream; });
}

void HttpCallbacks::log(void* /*context*/, const char* /*format*/, va_list /*arguments*/)
{
    // Lines about malformed requests would let any client fill the journal; the counters show them.
}

} // namespace TelvaneTool

#pragma once

// What the parts of the HTTP server share with each other, and with nothing else.

#include "telvane-web/http/HttpServer.h"

#include <microhttpd.h>

namespace TelvaneTool
{

struct HttpServer::Connection
{
    MHD_Connection* handle = nullptr;
    int fd = -1;
    Nanoseconds deadline = 0;
    bool answering = false;
    bool waiting = false; ///< for another thread; there is no deadline
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

/// A request whose answer another thread works out. Its connection is suspended.
struct HttpServer::Waiting
{
    MHD_Connection* handle = nullptr;
    std::unique_ptr<HttpLater> reply;
    bool resumed = false;
};

/// The functions that libmicrohttpd calls.
struct HttpCallbacks
{
    static MHD_Result access(void* context, MHD_Connection* connection, const char* url, const char* method,
                             const char* version, const char* upload, std::size_t* size, void** request);
    static void connection(void* context, MHD_Connection* connection, void** socketContext,
                           MHD_ConnectionNotificationCode code);
    static void completed(void* context, MHD_Connection* connection, void** request,
                          MHD_RequestTerminationCode code);
    static ssize_t read(void* context, std::uint64_t position, char* buffer, std::size_t size);
    static void endStream(void* context);
    static void log(void* context, const char* format, va_list arguments);

    static bool hasBody(MHD_Connection* connection);
    static HttpServer::Connection* find(MHD_Connection* connection);
};

} // namespace TelvaneTool

#pragma once

#include "common/support/Clock.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace TelvaneTool
{

struct HttpReply;

/// A file of the page, compiled into the program.
struct StaticFile
{
    const char* path; ///< as requested, beginning with '/'
    const char* type; ///< for Content-Type
    const char* etag;
    std::string_view plain;
    std::string_view compressed; ///< gzip
};

/// A request, valid during the call of its handler.
struct HttpRequest
{
    std::string_view method;
    std::string_view path;    ///< decoded
    std::string localAddress; ///< address that the client connected to, without the port
    std::string peerAddress;  ///< address of the client, without the port
    Nanoseconds now = 0;      ///< on the monotonic clock
    bool hasBody = false;
    std::size_t hostHeaders = 1;
    /// \return the first header with that name; empty if there is none
    std::function<std::string_view(const char* name)> header = [](const char*) {
        return std::string_view();
    };
    /// \return a value of the query, decoded
    std::function<std::optional<std::string_view>(const char* name)> query = [](const char*) {
        return std::optional<std::string_view>();
    };
};

/// An answer that goes on until one side ends it. All calls come from the thread of the event loop.
class HttpStream
{
public:
    virtual ~HttpStream() = default;
    /// \return the next part; empty if there is nothing to send now
    virtual std::string next(Nanoseconds now) = 0;
    /// \return whether an empty part was the end
    virtual bool isComplete() const { return false; }
    /// \return when to call next() again
    virtual Nanoseconds due() = 0;
    /// \param unsent   bytes that the client has not taken
    /// \param blocked  whether the connection waits for the client
    /// \return false to disconnect the client
    virtual bool observe(Nanoseconds now, std::size_t unsent, bool blocked) = 0;
};

/// An answer that another thread works out. All calls come from the thread of the event loop.
class HttpLater
{
public:
    virtual ~HttpLater() = default;
    virtual bool isReady() const = 0;
    /// \return the answer, or nothing to have the request handled again
    virtual std::optional<HttpReply> take() = 0;
};

/// The answer to a request. One function, in HttpAnswer.cpp, writes the headers of all answers.
struct HttpReply
{
    unsigned status = 200;
    const char* type = "text/plain; charset=utf-8";
    std::string body;
    const StaticFile* file = nullptr;   ///< instead of the body
    bool compressed = false;            ///< sends the compressed form of the file
    bool close = false;                 ///< ends the connection after the answer
    const char* allow = nullptr;        ///< the header Allow
    unsigned retryAfter = 0;            ///< the header Retry-After, s
    std::string fileName;               ///< has the browser save the answer under this name
    std::string cookie;                 ///< the header Set-Cookie
    const char* challenge = nullptr;    ///< the header WWW-Authenticate
    std::unique_ptr<HttpStream> stream; ///< instead of the body
    std::unique_ptr<HttpLater> later;   ///< instead of everything else
};

/// Answers requests.
using HttpHandler = std::function<HttpReply(const HttpRequest& request)>;

} // namespace TelvaneTool

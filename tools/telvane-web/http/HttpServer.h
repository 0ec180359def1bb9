#pragma once

#include "common/support/FileDescriptor.h"
#include "telvane-web/http/HttpTypes.h"

#include <list>
#include <memory>

struct MHD_Connection;
struct MHD_Daemon;

namespace TelvaneTool
{

/// An HTTP server without threads: the event loop polls its descriptor and calls run().
class HttpServer
{
public:
    struct Settings
    {
        unsigned maxConnections = 128;
        unsigned maxStreams = 96;                   ///< of those; more are refused with 503
        std::size_t memory = 16UL * 1024;           ///< of a connection; limits the size of a request
        Nanoseconds requestDeadline = 10 * kSecond; ///< for a whole request, and between two of them
        Nanoseconds answerDeadline = 30 * kSecond;  ///< for a whole answer, except streams
        Nanoseconds crowdedDeadline = kSecond;      ///< for a whole request while few connections are left
        std::string certificate;                    ///< with those above it, as PEM; empty for no TLS
        std::string key;                            ///< of the certificate, as PEM
    };

    struct Statistics
    {
        std::uint64_t connections = 0; ///< accepted
        std::uint64_t requests = 0;
        std::uint64_t refused = 0;     ///< answered with 4xx or 5xx
        std::uint64_t timedOut = 0;    ///< disconnected at a deadline
        std::uint64_t slowStreams = 0; ///< disconnected because the client did not read
        std::uint64_t bytes = 0;       ///< of streams
        unsigned openConnections = 0;
        unsigned openStreams = 0;
    };

    HttpServer(const Settings& settings, HttpHandler handler);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// Serves a listening socket.
    /// \return an error message, or an empty text
    std::string start(FileDescriptor listening);
    /// Serves no socket of its own; connections are added with adopt().
    std::string start() { return start(FileDescriptor()); }
    /// Serves a connected socket, as if it had been accepted.
    bool adopt(FileDescriptor connected);

    /// \return a descriptor that is readable while there is something to do
    int fd() const;
    /// Serves all connections that are ready, and disconnects those at their deadline.
    void run(Nanoseconds now);
    /// \return how long to wait for the descriptor, at most \p longest
    Nanoseconds timeout(Nanoseconds now, Nanoseconds longest);

    const Statistics& statistics() const { return m_statistics; }

private:
    struct Connection;
    struct Stream;
    struct Waiting;
    friend struct HttpCallbacks;

    int answer(MHD_Connection* connection, const char* url, const char* method);
    int send(MHD_Connection* connection, HttpReply reply, bool head);
    void watchStreams(Nanoseconds now);
    void watchWaiting();
    void watchDeadlines(Nanoseconds now);

    const Settings m_settings;
    const HttpHandler m_handler;
    Statistics m_statistics;
    std::list<Connection> m_connections;
    std::list<std::unique_ptr<Stream>> m_streams;
    std::list<Waiting> m_waiting;
    Nanoseconds m_now = 0;
    Nanoseconds m_swept = 0;
    MHD_Daemon* m_daemon = nullptr;
};

/// Opens a listening socket.
/// \param address  such as "127.0.0.1:8320" or "[::1]:8320"; port 0 lets the system choose
/// \param[out] error  set on failure
FileDescriptor listenOn(const std::string& address, std::string& error);

/// \return the address of a socket, such as "127.0.0.1:8320"; with \p withPort false "127.0.0.1"
std::string localAddressOf(int fd, bool withPort);

/// \return the address of the other end, such as "192.0.2.7"
std::string peerAddressOf(int fd);

/// \return whether an address can be reached from this machine only
bool isLoopback(const std::string& address);

} // namespace TelvaneTool

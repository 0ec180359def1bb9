#pragma once

// A web server with the real page, and clients that are bare sockets. Everything runs on one thread, and the clock is the
// test's own: a minute passes at once.

#include "telvane-web/WebPages.h"
#include "telvane-web/http/Worker.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>

namespace TelvaneTool::Testing
{

class WebServerFixture : public testing::Test
{
protected:
    /// A client. Reads until it has what it wants or the server closes the connection.
    class Client
    {
    public:
        Client(WebServerFixture& test, int receiveBuffer = 0)
            : m_test(test), m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
        {
            if (receiveBuffer != 0) {
                setsockopt(m_fd.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
            }
            errno = 0;
            sockaddr_in address = {};
            address.sin_family = AF_INET;
            address.sin_port = htons(test.m_port);
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            connect(m_fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
            EXPECT_TRUE(errno == EINPROGRESS || errno == 0) << errno;
        }

        /// Sends all of a text, unless the server closes the connection first.
        void send(std::string_view text)
        {
            m_test.pump([&] {
                while (!text.empty()) {
                    const ssize_t length =
                        ::send(m_fd.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
                    if (length < 0) {
                        return errno != EAGAIN; // which also says that it is not connected yet
                    }
                    text.remove_prefix(static_cast<std::size_t>(length));
                }
                return true;
            });
            m_test.run();
        }

        /// Takes what has arrived.
        /// \return false if the server has closed the connection
        bool read()
        {
            char buffer[64 * 1024];
            for (;;) {
                const ssize_t length = recv(m_fd.get(), buffer, sizeof buffer, MSG_DONTWAIT);
                if (length <= 0) {
                    m_closed = m_closed || length == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
                    return !m_closed;
                }
                m_text.append(buffer, static_cast<std::size_t>(length));
            }
        }

        /// Reads until a text has arrived, or to the end of the connection.
        bool await(std::string_view text)
        {
            return m_test.pump([&] {
                const bool open = read();
                return m_text.find(text) != std::string::npos || !open;
            }) && m_text.find(text) != std::string::npos;
        }
        bool awaitClose()
        {
            return m_test.pump([&] { return !read(); });
        }

        /// \return a whole answer, without what came before it
        std::string ask(std::string_view request)
        {
            m_text.clear();
            send(request);
            m_test.pump([&] {
                const bool open = read();
                const std::size_t end = m_text.find("\r\n\r\n");
                const std::size_t length = m_text.find("Content-Length: ");
                return !open || (end != std::string::npos && length < end &&
                                 m_text.size() >= end + 4 + std::stoul(m_text.substr(length + 16)));
            });
            return std::exchange(m_text, {});
        }

        const std::string& text() const { return m_text; }
        int fd() const { return m_fd.get(); }

    private:
        WebServerFixture& m_test;
        FileDescriptor m_fd;
        std::string m_text;
        bool m_closed = false;
    };

    explicit WebServerFixture(const std::string& bus = "/nowhere/bus",
                              const HttpServer::Settings& settings = {})
        : m_bus(bus),
          m_pages({"1.0.0", "/nowhere/bus", {}}, m_bus, HostCheck("cell4"), pageFiles()),
          m_server(settings, [this](const HttpRequest& request) { return m_pages.handle(request); })
    {
        m_pages.setStatistics([this] { return m_server.statistics(); });
        std::string error;
        FileDescriptor listening = listenOn("127.0.0.1:0", error);
        EXPECT_EQ(error, "");
        const std::string address = localAddressOf(listening.get(), true);
        m_port = static_cast<std::uint16_t>(std::stoul(address.substr(address.rfind(':') + 1)));
        EXPECT_EQ(m_server.start(std::move(listening)), "");
    }

    void run()
    {
        m_bus.tick(m_now);
        m_server.run(m_now);
    }
    /// Runs the server until a condition holds. The limit is for a server that hangs: other threads, and the kernel's
    /// delivery, may take as long as they need.
    template <class Condition>
    bool pump(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        do {
            run();
            if (condition()) {
                return true;
            }
            pollfd event = {m_server.fd(), POLLIN, 0};
            poll(&event, 1, 2);
        } while (std::chrono::steady_clock::now() < deadline);
        return false;
    }
    /// Lets time pass, in steps as the event loop takes them.
    void pass(Nanoseconds duration, Nanoseconds step = kSecond / 4)
    {
        for (const Nanoseconds end = m_now + duration; m_now < end; m_now += step) {
            run();
        }
        run();
    }

    std::string get(const std::string& path, const std::string& headers = "")
    {
        return Client(*this).ask("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n");
    }
    static std::string statusOf(const std::string& answer) { return answer.substr(0, answer.find('\r')); }
    static std::string bodyOf(const std::string& answer)
    {
        const std::size_t end = answer.find("\r\n\r\n");
        return end == std::string::npos ? "" : answer.substr(end + 4);
    }

    Nanoseconds m_now = monotonicNow();
    BusWatcher m_bus;
    WebPages m_pages;
    HttpServer m_server;
    std::uint16_t m_port = 0;
};

} // namespace TelvaneTool::Testing

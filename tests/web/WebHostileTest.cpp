// Clients that break the rules, and clients that keep them in a way that hurts.

#include "web/WebServerFixture.h"

#include <gmock/gmock.h>

#include <deque>
#include <random>

namespace TelvaneTool
{
namespace
{

using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using WebHostile = Testing::WebServerFixture;

constexpr const char* kStreamRequest = "GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n";

TEST_F(WebHostile, NothingButThePageCanBeRead)
{
    for (const char* const path : {"/../etc/passwd",
                                   "/../../../../etc/passwd",
                                   "/%2e%2e/%2e%2e/etc/passwd",
                                   "/..%2f..%2fetc%2fpasswd",
                                   "//etc/passwd",
                                   "/./../etc/passwd",
                                   "/language/../../../etc/passwd",
                                   "/..\\..\\etc\\passwd",
                                   "/%252e%252e/etc/passwd",
                                   "/etc/passwd%00.js",
                                   "/app.js/../../etc/passwd",
                                   "file:///etc/passwd",
                                   "/index.html/",
                                   "/APP.JS",
                                   "/app.js~",
                                   "/.git/config",
                                   "/language/",
                                   "/%",
                                   "/%zz",
                                   "/%c0%ae%c0%ae/etc/passwd"}) {
        const std::string answer = get(path);
        EXPECT_THAT(answer, AnyOf(StartsWith("HTTP/1.1 404"), StartsWith("HTTP/1.1 400"))) << path;
        EXPECT_THAT(answer, Not(HasSubstr("root:"))) << path;
    }
}

TEST_F(WebHostile, SurvivesMalformedRequests)
{
    const std::string requests[] = {
        "\r\n\r\n\r\n",
        "GET\r\n\r\n",
        "GET /\r\n\r\n",
        "GET / HTTP/9.9\r\nHost: localhost\r\n\r\n",
        "GET  /  HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "GET / HTTP/1.1\r\nHost localhost\r\n\r\n",
        "GET / HTTP/1.1\r\n: localhost\r\n\r\n",
        "GET / HTTP/1.1\r\nHost: localhost\r\n folded: yes\r\n\r\n",
        "GET / HTTP/1.1\nHost: localhost\n\n",
        "GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: -1\r\n\r\n",
        "GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 99999999999999999999999\r\n\r\n",
        "GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 5\r\nContent-Length: 6\r\n\r\nhello",
        "POST / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFF\r\nx",
        "POST / HTTP/1.1\r\nHost: localhost\r\nContent-Type: multipart/form-data; "
        "boundary=x\r\nContent-Length: 9\r\n\r\n--x\r\n\r\n--",
        "GET /?%=%&&==&channel HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "GET /api/events?columns=-5&columns=99999999999999999999&last=x HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n",
        std::string("GET /\0 HTTP/1.1\r\nHost: localhost\r\n\r\n", 37),
        std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11),
        std::string(1000, '\xff') + "\r\n\r\n",
    };
    for (const std::string& request : requests) {
        Client client(*this);
        client.send(request);
        pass(kSecond);
        client.read();
    }
    EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 200"));
}

TEST_F(WebHostile, RefusesHugeRequests)
{
    const auto send = [this](const std::string& begin, std::size_t size) {
        Client client(*this);
        client.send(begin);
        for (std::size_t sent = 0; sent < size && client.read(); sent += 4096) {
            client.send(std::string(4096, 'x'));
        }
        client.send("\r\n\r\n");
        client.awaitClose();
        return client.text();
    };
    EXPECT_THAT(send("GET /", 1'000'000), AnyOf(IsEmpty(), StartsWith("HTTP/1.1 414"),
                                                StartsWith("HTTP/1.1 431"), StartsWith("HTTP/1.1 413")));
    EXPECT_THAT(send("GET / HTTP/1.1\r\nHost: localhost\r\nX: ", 1'000'000),
                AnyOf(IsEmpty(), StartsWith("HTTP/1.1 431"), StartsWith("HTTP/1.1 413")));
    std::string headers = "GET / HTTP/1.1\r\nHost: localhost\r\n";
    for (int i = 0; i < 5000; ++i) {
        headers += "X-" + std::to_string(i) + ": y\r\n";
    }
    EXPECT_THAT(send(headers, 0), AnyOf(IsEmpty(), StartsWith("HTTP/1.1 431"), StartsWith("HTTP/1.1 413")));
    EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 200"));
}

TEST_F(WebHostile, EndsRequestsThatArriveByteByByte)
{
    std::deque<Client> clients;
    for (int i = 0; i < 20; ++i) {
        clients.emplace_back(*this).send("GET / HTTP/1.1\r\nHost: localhost\r\n");
    }
    ASSERT_TRUE(pump([&] { return m_server.statistics().openConnections == 20U; }));
    for (int second = 0; second < 9; ++second) {
        for (Client& client : clients) {
            client.send("X");
        }
        pass(kSecond);
    }
    EXPECT_EQ(m_server.statistics().openConnections, 20U);
    for (Client& client : clients) {
        client.send("X"); // still active, and still not done
    }
    pass(2 * kSecond);
    EXPECT_TRUE(pump([&] { return m_server.statistics().openConnections == 0U; }));
    EXPECT_EQ(m_server.statistics().timedOut, 20U);
}

TEST_F(WebHostile, EndsAnswersThatAreReadByteByByte)
{
    Client client(*this, 2048);
    // Many answers at once, far more than the buffers of the two sockets hold.
    std::string requests;
    for (int i = 0; i < 200; ++i) {
        requests += "GET /uplot.js HTTP/1.1\r\nHost: localhost\r\n\r\n";
    }
    client.send(requests);
    ASSERT_TRUE(pump([&] { return m_server.statistics().requests > 0; }));
    // Answers have a deadline each: before the buffers are full, several are sent.
    char byte = 0;
    for (int second = 0; second < 1000 && m_server.statistics().openConnections != 0; ++second) {
        pass(kSecond);
        recv(client.fd(), &byte, 1, MSG_DONTWAIT);
    }
    EXPECT_EQ(m_server.statistics().openConnections, 0U);
    EXPECT_EQ(m_server.statistics().timedOut, 1U);
    EXPECT_LT(m_server.statistics().requests, 200U);
}

TEST_F(WebHostile, AnswersOthersDespiteAThousandIdleConnections)
{
    std::deque<Client> clients;
    for (int i = 0; i < 1000; ++i) {
        clients.emplace_back(*this);
        if (i % 100 == 0) {
            run();
        }
    }
    EXPECT_LE(m_server.statistics().openConnections, HttpServer::Settings().maxConnections);
    Client client(*this);
    client.send("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
    const Nanoseconds begin = m_now;
    EXPECT_TRUE(pump([&] {
        m_now += kSecond / 20;
        client.read();
        return client.text().find("</html>") != std::string::npos;
    }));
    EXPECT_LT(m_now - begin, 30 * kSecond);
    EXPECT_LE(m_server.statistics().openConnections, HttpServer::Settings().maxConnections);
}

TEST_F(WebHostile, KeepsConnectionsForRequestsWhenTooManyPagesAreOpen)
{
    std::deque<Client> pages;
    for (unsigned i = 0; i < HttpServer::Settings().maxStreams; ++i) {
        pages.emplace_back(*this).send(kStreamRequest);
        ASSERT_TRUE(pages.back().await("event: hello")) << i;
    }
    Client more(*this);
    more.send(kStreamRequest);
    ASSERT_TRUE(more.await("too many pages"));
    EXPECT_THAT(more.text(), StartsWith("HTTP/1.1 503"));
    EXPECT_THAT(more.text(), HasSubstr("Retry-After: 10"));
    EXPECT_THAT(get("/metrics"), StartsWith("HTTP/1.1 200"));
    pages.pop_front();
    EXPECT_TRUE(pump([&] {
        m_now += kSecond / 10;
        return m_server.statistics().openStreams < HttpServer::Settings().maxStreams;
    }));
    Client next(*this);
    next.send(kStreamRequest);
    EXPECT_TRUE(next.await("event: hello"));
}

TEST_F(WebHostile, SurvivesRandomBytes)
{
    std::mt19937 random(3);
    for (int i = 0; i < 300; ++i) {
        std::string bytes(random() % 300, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        Client client(*this);
        client.send(i % 2 == 0 ? "GET /" + bytes + "\r\n\r\n" : bytes);
    }
    EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 200"));
}

} // namespace
} // namespace TelvaneTool

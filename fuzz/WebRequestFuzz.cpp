// Requests as a browser, or anybody who reaches the port, sends them: the input goes to a connection of the web server.
//
// Whatever is sent, the server must stay alive, and an answer to a wrong host must not contain anything of the page.
// The input is also read as a Host header and as a list of encodings by themselves.

#include "FuzzSupport.h"

#include "telvane-web/WebPages.h"

#include <sys/socket.h>

using Telvane::require;

namespace TelvaneTool
{
namespace
{

/// One server for all inputs, without a socket of its own.
struct FuzzedServer
{
    FuzzedServer()
        : bus("/nowhere/bus"),
          pages({"1.0.0", "/nowhere/bus", {}}, bus, HostCheck("cell4"), pageFiles()),
          server({}, [this](const HttpRequest& request) { return pages.handle(request); })
    {
        pages.setStatistics([this] { return server.statistics(); });
        require(server.start().empty(), "a server without a socket starts");
    }

    BusWatcher bus;
    WebPages pages;
    HttpServer server;
    Nanoseconds now = monotonicNow();
};

void checkHost(const std::string& text)
{
    const std::string name = hostName(text);
    require(name.size() <= 253, "a name has at most 253 characters");
    require(name.find_first_of(" \r\n\t/\\@<>\"'") == std::string::npos,
            "a name contains nothing but a name");
    require(name.empty() || hostName(name) == name || name.find(':') != std::string::npos,
            "a name is read as itself");
    const HostCheck check("cell4");
    if (check.allows(text, "192.0.2.7")) {
        require(name == "localhost" || name == "127.0.0.1" || name == "::1" || name == "cell4" ||
                    name == "cell4.local" || name == "192.0.2.7",
                "no other name is allowed");
    }
}

void sendRequest(FuzzedServer& fuzzed, const std::string& text)
{
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0,
            "there are sockets");
    const FileDescriptor client(ends[0]);
    require(fuzzed.server.adopt(FileDescriptor(ends[1])), "the server takes a connection");
    send(client.get(), text.data(), text.size(), MSG_NOSIGNAL);
    shutdown(client.get(), SHUT_WR);
    std::string answer;
    char buffer[16 * 1024];
    for (int i = 0; i < 20; ++i) {
        fuzzed.now += kMillisecond;
        fuzzed.server.run(fuzzed.now);
        for (ssize_t length = 1; length > 0;) {
            length = recv(client.get(), buffer, sizeof buffer, 0);
            answer.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        }
    }
    require(answer.empty() || answer.compare(0, 9, "HTTP/1.1 ") == 0 ||
                answer.compare(0, 9, "HTTP/1.0 ") == 0,
            "an answer is one of HTTP");
    if (answer.find("HTTP/1.1 421") == 0) {
        require(answer.find("<html") == std::string::npos, "a refused request gets nothing of the page");
    }
    // Connections that wait for more end at their deadline.
    shutdown(client.get(), SHUT_RDWR);
    for (int i = 0; i < 200 && fuzzed.server.statistics().openConnections != 0; ++i) {
        fuzzed.now += kSecond / 2;
        fuzzed.server.run(fuzzed.now);
    }
    require(fuzzed.server.statistics().openConnections == 0, "no connection stays");
    require(fuzzed.server.statistics().openStreams == 0, "no stream stays");
}

} // namespace
} // namespace TelvaneTool

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace TelvaneTool;
    static FuzzedServer fuzzed;
    const std::string text(reinterpret_cast<const char*>(data), size);
    checkHost(text.substr(0, 300));
    accepts(text, "gzip");
    plainMetrics(text);
    sendRequest(fuzzed, text);
    return 0;
}

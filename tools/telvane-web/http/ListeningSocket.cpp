#include "telvane-web/http/HttpServer.h"

#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>

namespace TelvaneTool
{

namespace
{

constexpr int kBacklog =
    1024; ///< so that a crowd of connections does not delay others by the system's pauses

struct AddressList
{
    addrinfo* first = nullptr;
    AddressList() = default;
    AddressList(const AddressList&) = delete;
    AddressList& operator=(const AddressList&) = delete;
    ~AddressList()
    {
        if (first != nullptr) {
            freeaddrinfo(first);
        }
    }
};

std::string printAddress(const sockaddr& address, socklen_t size, bool withPort)
{
    char host[INET6_ADDRSTRLEN + 20] = "";
    char port[8] = "";
    if ((address.sa_family != AF_INET && address.sa_family != AF_INET6) ||
        getnameinfo(&address, size, host, sizeof host, port, sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) !=
            0) {
        return {};
    }
    std::string text(host);
    // A socket for both families sees the old addresses inside new ones.
    constexpr std::string_view kMapped = "::ffff:";
    if (text.compare(0, kMapped.size(), kMapped) == 0) {
        text.erase(0, kMapped.size());
    }
    if (!withPort) {
        return text;
    }
    return (text.find(':') != std::string::npos ? "[" + text + "]" : text) + ":" + port;
}

} // namespace

FileDescriptor listenOn(const std::string& address, std::string& error)
{
    const std::size_t colon = address.rfind(':');
    std::string host = colon == std::string::npos ? std::string() : address.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    if (host.empty() || host == "*") {
        error = "use ADDRESS:PORT, for example 127.0.0.1:8320 or 0.0.0.0:8320";
        return {};
    }
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    AddressList list;
    if (const int result = getaddrinfo(host.c_str(), address.c_str() + colon + 1, &hints, &list.first);
        result != 0) {
        error = std::string(gai_strerror(result)) + "; use ADDRESS:PORT, for example 127.0.0.1:8320";
        return {};
    }
    FileDescriptor fd(socket(list.first->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (!fd.isOpen() || setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(fd.get(), list.first->ai_addr, list.first->ai_addrlen) != 0 || listen(fd.get(), kBacklog) != 0) {
        error = std::strerror(errno);
        return {};
    }
    return fd;
}

std::string localAddressOf(int fd, bool withPort)
{
    sockaddr_storage storage = {};
    socklen_t size = sizeof storage;
    auto* const address = reinterpret_cast<sockaddr*>(&storage);
    return getsockname(fd, address, &size) == 0 ? printAddress(*address, size, withPort) : std::string();
}

std::string peerAddressOf(int fd)
{
    sockaddr_storage storage = {};
    socklen_t size = sizeof storage;
    auto* const address = reinterpret_cast<sockaddr*>(&storage);
    return getpeername(fd, address, &size) == 0 ? printAddress(*address, size, false) : std::string();
}

bool isLoopback(const std::string& address)
{
    return address.compare(0, 4, "127.") == 0 || address.compare(0, 5, "[::1]") == 0 || address == "::1";
}

} // namespace TelvaneTool

// Every socket call of the bus stands here. All sockets are closed on exec: a child that inherited one would
// keep a connection alive that its owner believes closed.

#include "SeqpacketSocket.h"

#include "Diagnostics.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Telvane
{

namespace
{

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        writeErrorLine("Telvane: socket path of more than 107 characters: ", path);
        std::abort();
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

} // namespace

void FileDescriptor::reset(int fd)
{
    if (m_fd >= 0) {
        close(m_fd);
    }
    m_fd = fd;
}

FileDescriptor openSocket()
{
    return FileDescriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
}

int bindSocket(int fd, const std::string& path)
{
    const sockaddr_un address = addressOf(path);
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int connectSocket(int fd, const std::string& path)
{
    const sockaddr_un address = addressOf(path);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int acceptClient(int listener)
{
    sockaddr_un peer = {};
    socklen_t length = sizeof peer;
    return accept4(listener, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
}

int receivePacket(int fd, char* buffer)
{
    const auto received = static_cast<int>(recv(fd, buffer, kMessageLimit, 0));
    if (received > 0) {
        buffer[std::min(received, kMessageLimit - 1)] = '\0';
    }
    return received;
}

int sendPacket(int fd, const char* data, int length, int flags)
{
    const int clamped = std::clamp(length, 0, kMessageLimit);
    return static_cast<int>(
        send(fd, data, static_cast<std::size_t>(clamped), flags | MSG_EOR | MSG_NOSIGNAL));
}

} // namespace Telvane

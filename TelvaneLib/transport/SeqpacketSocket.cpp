// All sockets of the bus. They are close-on-exec: a child process that inherited one would keep a connection
// open after its owner has closed it.

#include "transport/SeqpacketSocket.h"

#include "support/Diagnostics.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

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

void terminate(char* text, int length)
{
    text[std::min(length, kMessageLimit - 1)] = '\0';
}

} // namespace

FileDescriptor openSocket(int flags)
{
    return FileDescriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
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

bool isListeningSocket(int fd)
{
    const auto option = [fd](int name) {
        int value = -1;
        socklen_t length = sizeof value;
        return getsockopt(fd, SOL_SOCKET, name, &value, &length) == 0 ? value : -1;
    };
    return option(SO_DOMAIN) == AF_UNIX && option(SO_TYPE) == SOCK_SEQPACKET && option(SO_ACCEPTCONN) == 1;
}

void adoptListeningSocket(int fd)
{
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

FileDescriptor openWake()
{
    return FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

void wakeUp(int wake)
{
    eventfd_write(wake, 1);
}

void clearWake(int wake)
{
    eventfd_t ignored = 0;
    eventfd_read(wake, &ignored);
}

bool awaitClient(int listener, int wake)
{
    pollfd watched[] = {{wake, POLLIN, 0}, {listener, POLLIN, 0}};
    return poll(watched, 2, -1) <= 0 || watched[0].revents == 0;
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
        terminate(buffer, received);
    }
    return received;
}

int receivePackets(int fd, Packet* packets, int number, int flags)
{
    std::array<iovec, kMaxPackets> buffers;
    std::array<mmsghdr, kMaxPackets> messages; // initialised as far as they are used
    const auto wanted = static_cast<std::size_t>(std::min(number, kMaxPackets));
    for (std::size_t i = 0; i < wanted; ++i) {
        buffers[i] = {packets[i].text, kMessageLimit};
        messages[i] = {};
        messages[i].msg_hdr.msg_iov = &buffers[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int received = recvmmsg(fd, messages.data(), static_cast<unsigned int>(wanted), flags, nullptr);
    for (int i = 0; i < received; ++i) {
        packets[i].length = static_cast<int>(messages[static_cast<std::size_t>(i)].msg_len);
        terminate(packets[i].text, packets[i].length);
    }
    return received;
}

bool identifyPeer(int fd, Peer& peer)
{
    ucred credentials = {};
    socklen_t length = sizeof credentials;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
        return false;
    }
    peer = {credentials.pid, credentials.uid, credentials.gid};
    return true;
}

bool peerGroups(int fd, std::vector<gid_t>& groups)
{
    groups.assign(32, 0);
    for (;;) {
        auto length = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        const int result = getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length);
        const std::size_t count = length / sizeof(gid_t);
        if (result == 0 || errno != ERANGE || count <= groups.size()) {
            groups.resize(result == 0 ? count : 0);
            return result == 0;
        }
        groups.resize(count);
    }
}

std::size_t unreadBytes(int fd)
{
    int bytes = 0;
    return ioctl(fd, SIOCOUTQ, &bytes) == 0 && bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
}

SentPacket sendPacket(int fd, const char* data, int length, int flags)
{
    const int clamped = std::clamp(length, 0, kMessageLimit);
    const ssize_t sent = send(fd, data, static_cast<std::size_t>(clamped), flags | MSG_EOR | MSG_NOSIGNAL);
    return {static_cast<int>(sent), clamped};
}

} // namespace Telvane

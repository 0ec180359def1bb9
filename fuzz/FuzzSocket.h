#pragma once

// The other end of a connection under test: a socket that sends any packet, whatever its size or content,
// and a place for the socket file that leaves nothing behind when the process ends in the middle.

#include "FuzzSupport.h"
#include "transport/SeqpacketSocket.h"

#include <array>
#include <cerrno>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace Telvane
{

class PacketSocket
{
public:
    PacketSocket() = default;
    explicit PacketSocket(FileDescriptor socket) : m_socket(std::move(socket))
    {
        require(m_socket.isOpen(), "a socket can be opened");
        // No answer takes so long, not even on the slowest machine.
        const timeval deadline = {60, 0};
        setsockopt(m_socket.get(), SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
    }

    static PacketSocket connectedTo(const std::string& path)
    {
        PacketSocket socket(openSocket());
        require(connectSocket(socket.m_socket.get(), path) == 0, "the server accepts connections");
        return socket;
    }

    int fd() const { return m_socket.get(); }

    void send(std::string_view packet) const
    {
        ssize_t sent = -1;
        do {
            sent = ::send(m_socket.get(), packet.data(), packet.size(), MSG_EOR | MSG_NOSIGNAL);
        } while (sent < 0 && errno == EINTR);
        require(sent == static_cast<ssize_t>(packet.size()), "a connection takes whole packets");
    }

    /// \return the next packet; empty at the end of the stream
    std::string receive() const
    {
        std::array<char, 32768> buffer; // twice what may arrive; written before it is read
        ssize_t received = -1;
        do {
            received = recv(m_socket.get(), buffer.data(), buffer.size(), 0);
        } while (received < 0 && errno == EINTR);
        require(received >= 0, "what is expected arrives");
        return {buffer.data(), static_cast<std::size_t>(received)};
    }

private:
    FileDescriptor m_socket;
};

/// A directory of its own for one socket file.
class SocketPlace
{
public:
    SocketPlace()
    {
        const char* const parent = std::getenv("TMPDIR");
        m_directory = std::string(parent != nullptr ? parent : "/tmp") + "/telvane-fuzz-XXXXXX";
        require(mkdtemp(m_directory.data()) != nullptr, "a temporary directory can be had");
    }
    ~SocketPlace() { remove(); }
    SocketPlace(const SocketPlace&) = delete;
    SocketPlace& operator=(const SocketPlace&) = delete;

    std::string path() const { return m_directory + "/bus"; }

    /// Once everybody is connected the file has done its service.
    void remove() const
    {
        unlink(path().c_str());
        rmdir(m_directory.c_str());
    }

private:
    std::string m_directory;
};

} // namespace Telvane

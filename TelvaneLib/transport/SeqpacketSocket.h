#pragma once

// Unix-domain SOCK_SEQPACKET sockets. Each message is one packet.

#include "support/FileDescriptor.h"

#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Telvane
{

/// Maximum of bytes that are sent of a message. The receiver needs one byte for a terminator, so it gets at
/// most one byte less.
constexpr int kMessageLimit = 16384;

/// Maximum of packets that are received in one call.
constexpr int kMaxPackets = 16;

/// \param flags added to the type, such as SOCK_NONBLOCK
/// \return a new socket; not open, with errno set, on failure
FileDescriptor openSocket(int flags = 0);

/// \name Addressing
///
/// Like bind() and connect(), for a path of at most 107 characters. A longer path is an error of the program and aborts
/// the process.
/// @{
int bindSocket(int fd, const std::string& path);
int connectSocket(int fd, const std::string& path);
/// @}

/// \return whether it is an AF_UNIX SOCK_SEQPACKET socket that listens
bool isListeningSocket(int fd);

/// Makes an inherited socket close-on-exec, like those of openSocket(), and non-blocking: another process may
/// accept the client that poll() has reported.
void adoptListeningSocket(int fd);

/// \return the next client, or -1 with errno set
int acceptClient(int listener);

/// \return a descriptor with which wakeUp() wakes awaitClient(); not open, with errno set, on failure
FileDescriptor openWake();
void wakeUp(int wake);
/// Takes back all calls of wakeUp().
void clearWake(int wake);

/// Waits for a client or wakeUp().
/// \return false after wakeUp()
bool awaitClient(int listener, int wake);

/// Receives one packet and terminates it. Cuts a packet that is longer than the buffer.
/// \param buffer buffer of kMessageLimit bytes
/// \return the packet's length; 0 at the end of the stream; -1 with errno set
int receivePacket(int fd, char* buffer);

/// A packet with a terminator.
struct Packet
{
    char* text = nullptr; ///< buffer of kMessageLimit bytes
    int length = 0;       ///< length that was received
};

/// Receives several packets in one call, each like receivePacket().
/// \param packets set to the packets
/// \param number  length of \p packets, at most kMaxPackets
/// \param flags   `MSG_WAITFORONE` to wait for the first packet, `MSG_DONTWAIT` to wait for none
/// \return the count of packets received; -1 with errno set
int receivePackets(int fd, Packet* packets, int number, int flags);

/// Identity of the peer of a connection.
struct Peer
{
    pid_t process = 0;
    uid_t user = 0;
    gid_t group = 0;
};

/// \return false, with errno set, if it is unknown
bool identifyPeer(int fd, Peer& peer);

/// \param[out] groups the supplementary groups of the peer; empty if unknown
/// \return false if they are unknown, as on kernels before 4.13
bool peerGroups(int fd, std::vector<gid_t>& groups);

/// \return bytes sent and not received yet, with the kernel's overhead
std::size_t unreadBytes(int fd);

/// Result of a call of send().
struct SentPacket
{
    int sent = -1;  ///< result of send()
    int length = 0; ///< bytes that were to be sent

    bool complete() const { return sent == length; }
};

/// Sends one packet in one call. Clamps its length to the range 0 to kMessageLimit; no other function does.
/// \param flags added to MSG_EOR and MSG_NOSIGNAL
SentPacket sendPacket(int fd, const char* data, int length, int flags);

} // namespace Telvane

#pragma once

// The transport: Unix-domain SOCK_SEQPACKET sockets, on which one message is one packet.

#include "support/FileDescriptor.h"

#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Telvane
{

/// The most bytes of a message that travel. A receiver needs the last one for a terminator, so the longest
/// message that arrives whole has one byte less.
constexpr int kMessageLimit = 16384;

/// The most packets that are received in one call.
constexpr int kMaxPackets = 16;

/// \return a new socket; invalid, with errno set, when there is none to be had
FileDescriptor openSocket();

/// \name Addressing
/// As bind() and connect(), for a path of at most 107 characters. A longer one is a mistake of the program
/// that no result could mend: it ends the process.
/// @{
int bindSocket(int fd, const std::string& path);
int connectSocket(int fd, const std::string& path);
/// @}

/// \return whether it is a socket of the bus's kind that listens
bool isListeningSocket(int fd);

/// Makes an inherited socket like those of openSocket(), and accepting on it never wait: another process may
/// take the client that poll() has told of.
void adoptListeningSocket(int fd);

/// \return the next client, or -1 with errno set
int acceptClient(int listener);

/// \return a descriptor that awaitClient() can be woken by; invalid, with errno set, when there is none to be had
FileDescriptor openWake();
void wakeUp(int wake);

/// Waits for something to accept, or for a waking. \return false when woken
bool awaitClient(int listener, int wake);

/// Receives one packet and terminates it as a text, cutting off what a text of this size cannot hold.
/// \param buffer of kMessageLimit bytes
/// \return the packet's length; 0 at the end of the stream; -1 with errno set
int receivePacket(int fd, char* buffer);

/// A packet, terminated as a text.
struct Packet
{
    char* text = nullptr; ///< kMessageLimit bytes
    int length = 0;       ///< as it was received
};

/// Receives several packets in one call, each as receivePacket() does.
/// \param packets whose texts to fill
/// \param number  of them, at most kMaxPackets
/// \param flags   `MSG_WAITFORONE` to wait for the first of them, `MSG_DONTWAIT` to wait for none
/// \return how many have been received; -1 with errno set
int receivePackets(int fd, Packet* packets, int number, int flags);

/// Who is at the other end of a connection.
struct Peer
{
    pid_t process = 0;
    uid_t user = 0;
    gid_t group = 0;
};

/// \return false, with errno set, when the system does not tell
bool identifyPeer(int fd, Peer& peer);

/// \return the supplementary groups of the other end; none when the system does not tell
std::vector<gid_t> groupsOfPeer(int fd);

/// \return what has been sent and not been received yet, with the kernel's overhead
std::size_t bytesUnread(int fd);

/// The result of one call of send().
struct SentPacket
{
    int sent = -1;  ///< what send() returned
    int length = 0; ///< the bytes that it was given

    bool complete() const { return sent == length; }
};

/// Sends one packet in one call. This is where a message's length is clamped, to 0 to kMessageLimit bytes.
/// \param flags added to those that every packet has
SentPacket sendPacket(int fd, const char* data, int length, int flags);

} // namespace Telvane

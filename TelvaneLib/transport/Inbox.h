#pragma once

// Receives packets of a connection: usually one, or several at once if several wait.

#include "transport/SeqpacketSocket.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace Telvane
{

/// Limit of bytes that are received and handled together; the last packet may exceed it.
constexpr int kMaxBytes = 65536;

/// Buffer for a packet, with space in front of it for the longer relay.
struct PacketBuffer
{
    char front[32];
    char text[kMessageLimit];
};

/// Buffers for packets that are received together. Connections share them, because few need them at the same
/// time; a connection that gets none receives fewer packets at once.
class PacketBufferPool
{
public:
    /// Buffers that a connection needs in addition to its own two.
    using Set = std::array<PacketBuffer, kMaxPackets - 2>;

    /// \return null if all are in use
    Set* borrow();
    void giveBack(const Set* set);

private:
    static constexpr std::size_t kSets = 4;

    std::array<std::atomic<bool>, kSets> m_used{};
    std::array<Set, kSets> m_sets;
};

class Inbox
{
public:
    Inbox(int fd, PacketBufferPool& pool);
    ~Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    /// Waits for a packet and receives those that wait. packets() returns them until the next call.
    /// \return their count; less than 1 if the connection was closed or failed
    int receive();

    /// \return the packets, each with the space of a PacketBuffer in front of it
    Packet* packets() { return m_packets.data(); }

private:
    int receiveOne();
    int receiveSeveral();
    int receiveMore(int expected);
    void giveBack();

    int m_fd;
    PacketBufferPool& m_pool;
    PacketBufferPool::Set* m_borrowed = nullptr;
    bool m_ended = false;
    int m_attempts;         ///< attempts left to receive several
    unsigned m_singles = 0; ///< packets received since the last attempt
    std::array<Packet, kMaxPackets> m_packets;
    std::array<PacketBuffer, 2> m_buffers; // not initialised
};

} // namespace Telvane

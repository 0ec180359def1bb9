#pragma once

// What a connection receives: mostly one packet, and several at once where several wait.

#include "transport/SeqpacketSocket.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace Telvane
{

/// The most bytes that are taken and handled together; a last packet may go beyond.
constexpr int kMostBytes = 65536;

/// Room for a packet, and in front of it for what a relay has more than its publication.
struct PacketBuffer
{
    char front[32];
    char text[kMessageLimit];
};

/// Buffers for packets that wait together. They are shared, because few connections have any at the same time:
/// those that find none take less at once. Their memory becomes resident as far as it is used.
class PacketBufferPool
{
public:
    /// What a connection needs beside two buffers of its own.
    using Set = std::array<PacketBuffer, kMaxPackets - 2>;

    /// \return null when all are in use
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

    /// Waits for a packet and takes those that wait with it, which packets() then returns until the next call.
    /// \return how many there are; less than 1 when the connection has ended or fails
    int receive();

    /// Each with the room in front of it that PacketBuffer has.
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
    int m_attempts; ///< left to find several
    int m_lone = 0; ///< received without an attempt
    std::array<Packet, kMaxPackets> m_packets;
    std::array<PacketBuffer, 2> m_buffers; // not touched before they are used
};

} // namespace Telvane

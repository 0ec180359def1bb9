// Relaying to many subscribers takes longer than sending to the server, so packets queue up in a burst. If
// the server receives them together, it wakes each subscriber once.
//
// recvmmsg() for a single packet costs a fifth more than recv(). So after a number of attempts that found
// only one packet, most receives use recv(), until an attempt finds several packets.

#include "transport/Inbox.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>

namespace Telvane
{

namespace
{

constexpr int kAttempts = 32;
constexpr unsigned kReceivesPerAttempt = 16;

} // namespace

PacketBufferPool::Set* PacketBufferPool::borrow()
{
    for (std::size_t i = 0; i < kSets; ++i) {
        if (!m_used[i].exchange(true, std::memory_order_acquire)) {
            return &m_sets[i];
        }
    }
    return nullptr;
}

void PacketBufferPool::giveBack(const Set* set)
{
    m_used[static_cast<std::size_t>(set - m_sets.data())].store(false, std::memory_order_release);
}

Inbox::Inbox(int fd, PacketBufferPool& pool) : m_fd(fd), m_pool(pool), m_attempts(kAttempts)
{
    for (std::size_t i = 0; i < m_buffers.size(); ++i) {
        m_packets[i].text = m_buffers[i].text;
    }
}

Inbox::~Inbox()
{
    giveBack();
}

int Inbox::receive()
{
    giveBack();
    if (m_ended) {
        return 0;
    }
    const bool attempt = m_attempts > 0 || ++m_singles % kReceivesPerAttempt == 0;
    const int number = attempt ? receiveSeveral() : receiveOne();
    // An empty packet looks like the end of the stream.
    for (int i = 0; i < number; ++i) {
        if (m_packets[static_cast<std::size_t>(i)].length == 0) {
            m_ended = true;
            return i;
        }
    }
    return number;
}

int Inbox::receiveOne()
{
    m_packets[0].length = receivePacket(m_fd, m_packets[0].text);
    return m_packets[0].length < 0 ? -1 : 1;
}

int Inbox::receiveSeveral()
{
    const int number = receivePackets(m_fd, m_packets.data(), 2, MSG_WAITFORONE);
    if (number < 2) {
        m_attempts = std::max(m_attempts - 1, 0);
        return number;
    }
    m_attempts = kAttempts;
    const auto [shorter, longer] = std::minmax(m_packets[0].length, m_packets[1].length);
    return shorter > 0 ? number + receiveMore(longer) : number;
}

/// \param expected size of each packet, in bytes
int Inbox::receiveMore(int expected)
{
    const int number = std::min(kMaxBytes / expected, kMaxPackets) - 2;
    m_borrowed = number > 0 ? m_pool.borrow() : nullptr;
    if (m_borrowed == nullptr) {
        return 0;
    }
    Packet* const packets = &m_packets[2];
    for (std::size_t i = 0; i < m_borrowed->size(); ++i) {
        packets[i].text = (*m_borrowed)[i].text;
    }
    const int received = receivePackets(m_fd, packets, number, MSG_DONTWAIT);
    if (received < 0 && errno != EAGAIN) {
        m_ended = true; // an error is reported once
    }
    return std::max(received, 0);
}

void Inbox::giveBack()
{
    if (m_borrowed != nullptr) {
        m_pool.giveBack(m_borrowed);
        m_borrowed = nullptr;
    }
}

} // namespace Telvane

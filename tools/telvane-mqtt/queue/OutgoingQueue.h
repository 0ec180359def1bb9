#pragma once

#include "common/support/Clock.h"
#include "common/support/FileDescriptor.h"
#include "telvane-mqtt/queue/Spool.h"

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>

namespace TelvaneTool::Mqtt
{

/// Bounds of the queue. What exceeds them is dropped, oldest first.
struct QueueLimits
{
    std::size_t messages = 20'000;
    std::size_t bytes = std::size_t{16} * 1024 * 1024;
    Nanoseconds age = kSecond * 3600 * 24;
};

/// Why a message was dropped.
enum class DropReason
{
    QueueFull, ///< more messages or bytes than the bounds
    TooOld,
    TooLarge, ///< for the broker
    Refused,  ///< by the broker
    Invalid,  ///< a payload of the bus that its class cannot read
    BusLag,   ///< the bridge was too slow for the bus
};
constexpr int kDropReasons = 6;

/// \return the name of a reason in metrics
const char* nameOf(DropReason reason);

/// What was counted for one channel.
struct ChannelCounts
{
    std::uint64_t accepted = 0;
    std::uint64_t sent = 0; ///< acknowledged, or handed over with QoS 0
    std::uint64_t bytes = 0;
    std::uint64_t delay = 0; ///< microseconds from push() to sending, of all messages that were sent
    std::uint64_t dropped[kDropReasons] = {};
};

/// The messages that wait for the broker. The client library's own queue has no bound.
///
/// Messages that were accepted while there was no connection are the backlog. It goes out in order, at a limited rate;
/// what arrives while there is a connection goes first.
///
/// With a spool, messages of QoS 1 are also on disk. They leave it as done when they were sent or dropped. The backlog is
/// read from it in pieces, and what memory cannot hold remains on disk.
/// \par Threads  Any, but one thread pushes what goes to the spool, and commits.
class OutgoingQueue
{
public:
    /// Can send on the thread that pushes. A message that comes alone need not wait until another thread wakes up.
    class Sender
    {
    public:
        /// Sends what waits.
        /// \return false if there remains something to do for the thread that waits for wakeFd()
        virtual bool sendAtOnce() noexcept = 0;

    protected:
        ~Sender() = default;
    };

    /// \param spool must outlive the queue; null for none
    explicit OutgoingQueue(const QueueLimits& limits, Spool* spool = nullptr);

    /// Gives a message of a channel its number and accepts it, or keeps it for commit() if it goes to the spool. Drops what
    /// exceeds the bounds. A message without a channel keeps the number that it has.
    void push(OutgoingMessage message, Nanoseconds now);

    /// Writes to the spool what was pushed and what is done, and accepts it. It is called after each group of messages and
    /// at least once a second.
    void commit(Nanoseconds now);

    /// \param withBacklog whether a message of the backlog may be taken
    /// \param[out] fromBacklog whether it was one
    /// \return the next message, with the number of drops of its channel that were not reported before
    std::optional<OutgoingMessage> take(Nanoseconds now, bool withBacklog, bool& fromBacklog);

    /// Returns messages that were taken and not acknowledged to the front, in their order.
    void putBack(std::vector<OutgoingMessage> messages, Nanoseconds now);

    /// Makes everything that waits the backlog: the connection was lost or made.
    void makeBacklog();

    /// \param[in,out] to lowered to the last number that was read, if the others would need too much memory
    /// \return the messages of a channel in the spool, with numbers from \p from to \p to
    std::vector<OutgoingMessage> find(const std::string& channel, std::uint64_t session, std::uint64_t from,
                                      std::uint64_t& to) const;

    /// Counts a message that was sent, and how long that took.
    void countSent(const OutgoingMessage& message, std::size_t bytes, Nanoseconds now);
    /// Notes that the broker retains a message that was counted as sent before.
    void noteRetained(const OutgoingMessage& message);
    /// Counts a message that was dropped, and what it would have reported.
    void countDropped(const OutgoingMessage& message, DropReason reason);
    /// Counts what never reached the queue.
    void countLost(const std::string& channel, DropReason reason, std::uint64_t count = 1);

    std::map<std::string, ChannelCounts> counts() const;
    std::size_t waiting() const;
    std::size_t waitingBytes() const; ///< in memory
    bool hasBacklog() const;

    /// Lets \p sender send while the thread that usually does waits. Null ends that, and waits until it has returned.
    void setSender(Sender* sender);

    /// \return a descriptor that is readable after push(), unless a sender has sent everything
    int wakeFd() const { return m_wake.get(); }
    /// Call it before take().
    void clearWake();

private:
    struct Channel
    {
        ChannelCounts counts;
        std::uint64_t lastNumber = 0;
        std::uint64_t unreported = 0;
        std::uint64_t unreportedInSpool = 0;
    };

    void sortBacklog();
    void trim(Nanoseconds now);
    void dropOld(Nanoseconds now);
    void dropFront(std::deque<OutgoingMessage>& messages, DropReason reason);
    OutgoingMessage removeFront(std::deque<OutgoingMessage>& messages);
    void takeOver(const SpoolBatch& written, const std::vector<Evicted>& evicted);
    void dropFromSpool(const Evicted& evicted);
    bool fetch();
    bool release(OutgoingMessage& message);
    void releaseAll(std::deque<OutgoingMessage>& messages);
    void setDone(const OutgoingMessage& message, bool sent);
    void noticeNewFile();
    std::size_t onDiskOnly() const;
    void announce(Nanoseconds now);
    void wake();

    const QueueLimits m_limits;
    FileDescriptor m_wake;
    std::atomic<bool> m_woken{false};
    std::mutex m_senderMutex; ///< held while the sender sends; taken before m_mutex
    Sender* m_sender = nullptr;
    Nanoseconds m_announced = 0; ///< when a message last came, or was sent at once
    mutable std::mutex m_mutex;
    std::deque<OutgoingMessage> m_backlog;
    std::deque<OutgoingMessage> m_live;
    std::size_t m_bytes = 0;
    std::map<std::string, Channel> m_channels;

    Spool* const m_spool;
    std::vector<OutgoingMessage> m_pending; ///< for the next commit
    std::set<std::int64_t>
        m_held; ///< stored messages that wait on disk and are known here: read, sent or done
    std::map<std::int64_t, std::string>
        m_done; ///< what the next commit marks as done, with the topic that retains it; of m_held, or retained later
    std::set<std::int64_t> m_orphans; ///< messages in memory whose copy on disk had to go
    std::int64_t m_readUpTo = 0;      ///< the spool is read up to this identifier
    std::int64_t m_lastStored = 0;
    std::uint64_t m_generation = 0;
    std::size_t m_spooledInBacklog = 0;
};

} // namespace TelvaneTool::Mqtt

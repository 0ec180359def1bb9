// A number is given only to a message that the queue has accepted, and a drop is reported in the next message of its
// channel: a consumer that sees a gap in the numbers learns whether messages were dropped or are still on their way.

#include "telvane-mqtt/queue/OutgoingQueue.h"

#include <algorithm>
#include <sys/eventfd.h>
#include <unistd.h>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr std::size_t kMaxPending = 500; ///< a commit is due, so that memory does not grow
/// A message comes alone if none came before it for this time. In a burst, the thread that pushes has others to receive.
constexpr Nanoseconds kAlone = 200 * kMicrosecond;

} // namespace

const char* nameOf(DropReason reason)
{
    switch (reason) {
    case DropReason::QueueFull:
        return "queue_full";
    case DropReason::TooOld:
        return "too_old";
    case DropReason::TooLarge:
        return "too_large";
    case DropReason::Refused:
        return "refused";
    case DropReason::Invalid:
        return "invalid";
    case DropReason::BusLag:
        return "bus_lag";
    }
    return "";
}

OutgoingQueue::OutgoingQueue(const QueueLimits& limits, Spool* spool)
    : m_limits(limits), m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_spool(spool)
{
    if (m_spool != nullptr) {
        noticeNewFile();
    }
}

void OutgoingQueue::push(OutgoingMessage message, Nanoseconds now)
{
    bool isPending = false;
    bool isFull = false;
    {
        const std::lock_guard lock(m_mutex);
        Channel& channel = m_channels[message.channel];
        message.number = message.channel.empty() ? message.number : ++channel.lastNumber;
        message.queued = now;
        if (m_spool != nullptr && message.qos == 1 && !message.channel.empty()) {
            isPending = true;
            m_pending.push_back(std::move(message));
            isFull = m_pending.size() >= kMaxPending;
        } else {
            ++channel.counts.accepted;
            m_bytes += message.size();
            m_live.push_back(std::move(message));
            trim(now);
        }
    }
    if (isFull) {
        commit(now);
    } else if (!isPending) {
        announce(now);
    }
}

void OutgoingQueue::setSender(Sender* sender)
{
    const std::lock_guard lock(m_senderMutex);
    m_sender = sender;
}

void OutgoingQueue::announce(Nanoseconds now)
{
    // Without waiting for another thread that sends: the thread that is woken sends everything in the queue. Until it has
    // looked, no other thread begins to send.
    const std::unique_lock lock(m_senderMutex, std::try_to_lock);
    if (lock.owns_lock()) {
        const bool isAlone = now - std::exchange(m_announced, std::max(m_announced, now)) > kAlone;
        if (isAlone && m_sender != nullptr && !m_woken) {
            const Nanoseconds began = monotonicNow();
            const bool isDone = m_sender->sendAtOnce();
            m_announced += monotonicNow() - began; // the time that it takes is no pause between messages
            if (isDone) {
                return;
            }
        }
    }
    wake();
}

void OutgoingQueue::wake()
{
    if (m_woken.exchange(true)) {
        return; // the thread that waits has not looked since
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_wake.get(), &one, sizeof one);
}

void OutgoingQueue::clearWake()
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t length = read(m_wake.get(), &count, sizeof count);
    m_woken = false; // what is pushed from now on wakes again, and what was pushed before is taken now
}

OutgoingMessage OutgoingQueue::removeFront(std::deque<OutgoingMessage>& messages)
{
    OutgoingMessage message = std::move(messages.front());
    messages.pop_front();
    m_bytes -= message.size();
    m_spooledInBacklog -= &messages == &m_backlog && message.stored != 0 ? 1 : 0;
    return message;
}

void OutgoingQueue::dropFront(std::deque<OutgoingMessage>& messages, DropReason reason)
{
    const OutgoingMessage message = removeFront(messages);
    Channel& channel = m_channels[message.channel];
    ++channel.counts.dropped[static_cast<int>(reason)];
    channel.unreported += 1 + message.dropped;
    setDone(message, false);
}

void OutgoingQueue::trim(Nanoseconds now)
{
    while (m_backlog.size() + m_live.size() > m_limits.messages || m_bytes > m_limits.bytes) {
        if (m_spooledInBacklog != 0) {
            releaseAll(m_backlog);
            m_spooledInBacklog = 0;
            continue;
        }
        std::deque<OutgoingMessage>& messages = m_backlog.empty() ? m_live : m_backlog;
        const std::size_t size = messages.front().size();
        if (release(messages.front())) {
            messages.pop_front();
            m_bytes -= size;
        } else {
            dropFront(messages, DropReason::QueueFull);
        }
    }
    dropOld(now);
}

void OutgoingQueue::dropOld(Nanoseconds now)
{
    for (std::deque<OutgoingMessage>* messages : {&m_backlog, &m_live}) {
        while (!messages->empty() && now - messages->front().queued > m_limits.age) {
            dropFront(*messages, DropReason::TooOld);
        }
    }
}

std::optional<OutgoingMessage> OutgoingQueue::take(Nanoseconds now, bool withBacklog, bool& fromBacklog)
{
    const std::lock_guard lock(m_mutex);
    trim(now);
    fromBacklog = m_live.empty();
    if (fromBacklog && withBacklog && m_spool != nullptr) {
        while (m_spooledInBacklog == 0 && fetch()) {
            dropOld(now); // all that was read may be too old
        }
    }
    std::deque<OutgoingMessage>& messages = fromBacklog ? m_backlog : m_live;
    if (messages.empty() || (fromBacklog && !withBacklog)) {
        return std::nullopt;
    }
    OutgoingMessage message = removeFront(messages);
    message.dropped += std::exchange(m_channels[message.channel].unreported, 0);
    return message;
}

void OutgoingQueue::putBack(std::vector<OutgoingMessage> messages, Nanoseconds now)
{
    const std::lock_guard lock(m_mutex);
    for (auto message = messages.rbegin(); message != messages.rend(); ++message) {
        if (!release(*message)) {
            m_bytes += message->size();
            m_backlog.push_front(std::move(*message));
        }
    }
    sortBacklog();
    trim(now);
}

void OutgoingQueue::makeBacklog()
{
    const std::lock_guard lock(m_mutex);
    releaseAll(m_backlog);
    m_spooledInBacklog = 0;
    releaseAll(m_live);
    for (OutgoingMessage& message : m_live) {
        m_backlog.push_back(std::move(message));
    }
    m_live.clear();
    sortBacklog();
}

void OutgoingQueue::sortBacklog()
{
    const auto isOlder = [](const OutgoingMessage& one, const OutgoingMessage& other) {
        return one.queued < other.queued;
    };
    // The thread of the bus waits meanwhile, and the messages nearly always are in order.
    if (!std::is_sorted(m_backlog.begin(), m_backlog.end(), isOlder)) {
        // Live messages are sent before older ones of the backlog. If they come back, they are the newer ones.
        std::stable_sort(m_backlog.begin(), m_backlog.end(), isOlder);
    }
}

void OutgoingQueue::countSent(const OutgoingMessage& message, std::size_t bytes, Nanoseconds now)
{
    const std::lock_guard lock(m_mutex);
    ChannelCounts& counts = m_channels[message.channel].counts;
    ++counts.sent;
    counts.bytes += bytes;
    counts.delay += static_cast<std::uint64_t>(std::max<Nanoseconds>(now - message.queued, 0) / kMicrosecond);
    setDone(message, true);
}

void OutgoingQueue::countDropped(const OutgoingMessage& message, DropReason reason)
{
    const std::lock_guard lock(m_mutex);
    Channel& channel = m_channels[message.channel];
    ++channel.counts.dropped[static_cast<int>(reason)];
    channel.unreported += 1 + message.dropped;
    setDone(message, false);
}

void OutgoingQueue::countLost(const std::string& channel, DropReason reason, std::uint64_t count)
{
    const std::lock_guard lock(m_mutex);
    m_channels[channel].counts.dropped[static_cast<int>(reason)] += count;
    m_channels[channel].unreported += count;
}

std::map<std::string, ChannelCounts> OutgoingQueue::counts() const
{
    const std::lock_guard lock(m_mutex);
    std::map<std::string, ChannelCounts> counts;
    for (const auto& [name, channel] : m_channels) {
        counts[name] = channel.counts;
    }
    return counts;
}

std::size_t OutgoingQueue::waiting() const
{
    const std::lock_guard lock(m_mutex);
    return m_backlog.size() + m_live.size() + m_pending.size() + onDiskOnly();
}

std::size_t OutgoingQueue::waitingBytes() const
{
    const std::lock_guard lock(m_mutex);
    return m_bytes;
}

bool OutgoingQueue::hasBacklog() const
{
    const std::lock_guard lock(m_mutex);
    return !m_backlog.empty() || onDiskOnly() != 0;
}

} // namespace TelvaneTool::Mqtt

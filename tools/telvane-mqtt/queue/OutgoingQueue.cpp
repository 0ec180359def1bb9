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
constexpr std::size_t kMaxFetched = 100;

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
        wake();
    }
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

void OutgoingQueue::commit(Nanoseconds now)
{
    if (m_spool == nullptr) {
        return;
    }
    SpoolBatch batch;
    {
        const std::lock_guard lock(m_mutex);
        batch.accepted = std::move(m_pending);
        m_pending.clear();
        batch.done.reserve(m_done.size());
        for (const auto& [stored, retainedTopic] : m_done) {
            batch.done.push_back({stored, retainedTopic});
        }
        for (const auto& [name, channel] : m_channels) {
            if (!name.empty() && channel.unreported != channel.unreportedInSpool) {
                batch.unreported[name] = channel.unreported;
            }
        }
    }
    // Without the lock: the link goes on sending while the disk writes.
    const Spool::Result result = m_spool->write(batch, now);
    {
        const std::lock_guard lock(m_mutex);
        if (result.generation != m_generation) {
            noticeNewFile(); // this write may have opened it
        }
        const bool written = result.written && result.generation == m_generation;
        if (written) {
            takeOver(batch, result.evicted);
        }
        for (OutgoingMessage& message : batch.accepted) {
            ++m_channels[message.channel].counts.accepted;
            message.stored = written ? message.stored : 0;
            m_bytes += message.size();
            m_live.push_back(std::move(message));
        }
        noticeNewFile(); // another thread may have replaced it after the write
        trim(now);
    }
    if (!batch.accepted.empty()) {
        wake();
    }
}

/// Takes over what a batch has changed in the file.
void OutgoingQueue::takeOver(const SpoolBatch& written, const std::vector<Evicted>& evicted)
{
    for (const Done& done : written.done) {
        m_done.erase(done.stored);
        m_held.erase(done.stored);
    }
    for (const auto& [name, count] : written.unreported) {
        m_channels[name].unreportedInSpool = count;
    }
    for (const Evicted& one : evicted) {
        dropFromSpool(one);
    }
    for (const OutgoingMessage& message : written.accepted) {
        m_held.insert(message.stored);
        m_lastStored = message.stored;
    }
}

/// Counts a message that was removed from the spool, unless it is in memory as well.
void OutgoingQueue::dropFromSpool(const Evicted& evicted)
{
    if (m_held.erase(evicted.stored) == 0) {
        Channel& channel = m_channels[evicted.channel];
        ++channel.counts
              .dropped[static_cast<int>(evicted.tooOld ? DropReason::TooOld : DropReason::QueueFull)];
        ++channel.unreported;
    } else if (m_done.erase(evicted.stored) == 0) {
        m_orphans.insert(evicted.stored);
    }
}

/// Takes over what a file has that was opened. If it replaces another, what is in memory is in memory only.
void OutgoingQueue::noticeNewFile()
{
    if (m_generation == m_spool->generation()) {
        return;
    }
    const Spool::Opened opened = m_spool->opened();
    m_generation = opened.generation;
    for (const std::int64_t id : m_held) {
        if (m_done.count(id) == 0) {
            m_orphans.insert(id);
        }
    }
    m_held.clear();
    m_done.clear();
    m_lastStored = opened.lastStored;
    for (auto& [name, channel] : m_channels) {
        channel.unreportedInSpool = 0;
    }
    for (const auto& [name, count] : opened.unreported) {
        m_channels[name].unreported += count;
        m_channels[name].unreportedInSpool = count;
    }
}

std::size_t OutgoingQueue::onDiskOnly() const
{
    const std::size_t waiting = m_spool != nullptr ? m_spool->waiting() : 0;
    return waiting - std::min(waiting, m_held.size());
}

/// Reads the next piece of the backlog from the spool.
/// \return whether there was one
bool OutgoingQueue::fetch()
{
    while (onDiskOnly() != 0 && m_spooledInBacklog == 0) {
        const std::size_t used = std::min(m_limits.messages, m_backlog.size());
        std::vector<OutgoingMessage> messages =
            m_spool->read(m_generation, m_readUpTo, m_lastStored,
                          std::clamp<std::size_t>(m_limits.messages - used, 1, kMaxFetched));
        if (messages.empty()) {
            noticeNewFile();
            return false;
        }
        m_readUpTo = messages.back().stored;
        for (OutgoingMessage& message : messages) {
            if (m_held.insert(message.stored).second) {
                m_bytes += message.size();
                m_backlog.push_back(std::move(message));
                ++m_spooledInBacklog;
            }
        }
    }
    sortBacklog();
    return m_spooledInBacklog != 0;
}

/// \return whether a message needs no memory because it waits on disk
bool OutgoingQueue::release(OutgoingMessage& message)
{
    if (message.stored == 0) {
        return false;
    }
    if (m_orphans.erase(message.stored) != 0) {
        message.stored = 0;
        return false;
    }
    m_channels[message.channel].unreported += message.dropped;
    m_held.erase(message.stored);
    m_readUpTo = std::min(m_readUpTo, message.stored - 1);
    return true;
}

void OutgoingQueue::releaseAll(std::deque<OutgoingMessage>& messages)
{
    const auto kept = std::remove_if(messages.begin(), messages.end(), [this](OutgoingMessage& message) {
        const std::size_t size = message.size();
        const bool released = release(message);
        m_bytes -= released ? size : 0;
        return released;
    });
    messages.erase(kept, messages.end());
}

/// Marks the copy of a message on disk as done with the next commit.
/// \param sent whether the broker has it, otherwise it was dropped
void OutgoingQueue::setDone(const OutgoingMessage& message, bool sent)
{
    if (message.stored != 0 && m_orphans.erase(message.stored) == 0) {
        m_done.emplace(message.stored, sent && message.retain ? message.topic : std::string());
    }
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
    // Live messages are sent before older ones of the backlog. If they come back, they are the newer ones.
    std::stable_sort(
        m_backlog.begin(), m_backlog.end(),
        [](const OutgoingMessage& one, const OutgoingMessage& other) { return one.queued < other.queued; });
}

std::vector<OutgoingMessage> OutgoingQueue::find(const std::string& channel, std::uint64_t session,
                                                 std::uint64_t from, std::uint64_t& to) const
{
    return m_spool != nullptr ? m_spool->find(channel, session, from, to) : std::vector<OutgoingMessage>();
}

void OutgoingQueue::countSent(const OutgoingMessage& message, std::size_t bytes)
{
    const std::lock_guard lock(m_mutex);
    ChannelCounts& counts = m_channels[message.channel].counts;
    ++counts.sent;
    counts.bytes += bytes;
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

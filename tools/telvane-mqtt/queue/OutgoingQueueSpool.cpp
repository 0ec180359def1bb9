// What the queue has on disk. The spool is written without the queue's lock, so another thread can replace the file
// meanwhile: the generation of the file shows it.

#include "telvane-mqtt/queue/OutgoingQueue.h"

#include <algorithm>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr std::size_t kMaxFetched = 100;

} // namespace

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
    if (batch.accepted.size() == 1) {
        announce(now);
    } else if (!batch.accepted.empty()) {
        wake();
    }
}

/// Takes over what a batch has changed in the file.
void OutgoingQueue::takeOver(const SpoolBatch& written, const std::vector<Evicted>& evicted)
{
    for (const Done& done : written.done) {
        const auto found = m_done.find(done.stored);
        if (found != m_done.end() && found->second == done.retainedTopic) {
            m_done.erase(found); // otherwise it was retained meanwhile
        }
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

void OutgoingQueue::noteRetained(const OutgoingMessage& message)
{
    const std::lock_guard lock(m_mutex);
    if (message.stored != 0) {
        m_done[message.stored] = message.topic;
    }
}

std::vector<OutgoingMessage> OutgoingQueue::find(const std::string& channel, std::uint64_t session,
                                                 std::uint64_t from, std::uint64_t& to) const
{
    return m_spool != nullptr ? m_spool->find(channel, session, from, to) : std::vector<OutgoingMessage>();
}

} // namespace TelvaneTool::Mqtt

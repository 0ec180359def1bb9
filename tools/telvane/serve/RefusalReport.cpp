#include "serve/RefusalReport.h"

namespace TelvaneTool
{

std::string RefusalReport::add(const Telvane::EventServerRefusal& refusal, Nanoseconds now)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    constexpr std::size_t kMaxChannelLength = 200; // a line does not show more of it either
    const Key key(refusal.client, refusal.process, refusal.reason,
                  refusal.channel.substr(0, kMaxChannelLength));
    const auto found = m_entries.find(key);
    if (found != m_entries.end()) {
        ++found->second.more;
        return {};
    }
    if (m_entries.size() >= kMaxEntries || countChannels(refusal) >= kMaxChannels) {
        ++m_others;
        return {};
    }
    Entry& entry = m_entries[key];
    entry.text = Telvane::describe(refusal);
    entry.lastLine = now;
    return entry.text;
}

/// Called with the lock held.
/// \return the number of entries for the refusal's client and reason, at most kMaxChannels
std::size_t RefusalReport::countChannels(const Telvane::EventServerRefusal& refusal) const
{
    std::size_t count = 0;
    auto entry = m_entries.lower_bound(Key(refusal.client, refusal.process, refusal.reason, ""));
    for (; count < kMaxChannels && entry != m_entries.end(); ++entry, ++count) {
        const auto& [client, process, reason, channel] = entry->first;
        if (client != refusal.client || process != refusal.process || reason != refusal.reason) {
            break;
        }
    }
    return count;
}

std::vector<std::string> RefusalReport::update(Nanoseconds now)
{
    return sumUp(false, now);
}

std::vector<std::string> RefusalReport::finish()
{
    return sumUp(true, 0);
}

std::vector<std::string> RefusalReport::sumUp(bool all, Nanoseconds now)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    std::vector<std::string> lines;
    for (auto entry = m_entries.begin(); entry != m_entries.end();) {
        if (!all && now - entry->second.lastLine < kPeriod) {
            ++entry;
        } else if (entry->second.more == 0) {
            entry = m_entries.erase(entry);
        } else {
            lines.push_back(entry->second.text + "; " + std::to_string(entry->second.more) + " more");
            entry->second.more = 0;
            entry->second.lastLine = now;
            ++entry;
        }
    }
    if (m_others != 0 && (all || now - m_othersLine >= kPeriod)) {
        lines.push_back(std::to_string(m_others) + " more of other clients or for other channels");
        m_others = 0;
        m_othersLine = now;
    }
    return lines;
}

} // namespace TelvaneTool

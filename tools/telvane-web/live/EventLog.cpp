#include "telvane-web/live/EventLog.h"

#include <utility>

namespace TelvaneTool
{

void EventLog::add(const char* type, std::string data)
{
    m_bytes += data.size();
    m_entries.push_back({++m_newest, type, std::move(data)});
    while (m_entries.size() > kMaxEntries || (m_bytes > kMaxBytes && m_entries.size() > 1)) {
        m_bytes -= m_entries.front().data.size();
        m_entries.pop_front();
    }
}

const EventLog::Entry* EventLog::after(std::uint64_t id) const
{
    if (id >= m_newest) {
        return nullptr;
    }
    const std::uint64_t oldest = m_entries.front().id;
    return &m_entries[id < oldest ? 0 : static_cast<std::size_t>(id + 1 - oldest)];
}

bool EventLog::lacks(std::uint64_t id) const
{
    return !m_entries.empty() && id + 1 < m_entries.front().id;
}

} // namespace TelvaneTool

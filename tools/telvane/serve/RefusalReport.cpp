#include "serve/RefusalReport.h"

#include "common/support/HumanReadable.h"

namespace TelvaneTool
{

std::string RefusalReport::add(const Telvane::EventServerRefusal& refusal, Nanoseconds now)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    const Key key(refusal.client, refusal.process, refusal.reason, refusal.channel);
    const auto found = m_entries.find(key);
    if (found != m_entries.end()) {
        ++found->second.more;
        return {};
    }
    if (m_entries.size() >= kMaxEntries) {
        ++m_others;
        return {};
    }
    Entry& entry = m_entries[key];
    entry.text = Telvane::describe(refusal);
    entry.lastLine = now;
    return entry.text;
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
        lines.push_back(printNumber(m_others, "message") + " of other clients or on other channels");
        m_others = 0;
        m_othersLine = now;
    }
    return lines;
}

} // namespace TelvaneTool

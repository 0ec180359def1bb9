#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace TelvaneTool
{

/// Changes of the state and errors, which no client of the stream may miss. Old entries are removed.
class EventLog
{
public:
    static constexpr std::size_t kMaxEntries = 256;
    static constexpr std::size_t kMaxBytes = 256UL * 1024;

    struct Entry
    {
        std::uint64_t id = 0; ///< from 1, without gaps
        const char* type = "";
        std::string data; ///< JSON on one line
    };

    /// \param type  name of the event
    void add(const char* type, std::string data);

    /// \return the number of the newest entry; 0 before the first
    std::uint64_t newest() const { return m_newest; }
    /// \return the entry after \p id, or null if there is none
    const Entry* after(std::uint64_t id) const;
    /// \return whether entries after \p id have been removed
    bool lacks(std::uint64_t id) const;

    const std::deque<Entry>& entries() const { return m_entries; }

private:
    std::deque<Entry> m_entries;
    std::size_t m_bytes = 0;
    std::uint64_t m_newest = 0;
};

} // namespace TelvaneTool

#pragma once

#include "common/support/Clock.h"

#include <Telvane/EventServerStatus.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

namespace TelvaneTool
{

/// Sums up refused messages for the log: one line at once, and one every ten seconds while they continue, for each client,
/// reason and channel. Any thread may use it.
class RefusalReport
{
public:
    static constexpr Nanoseconds kPeriod = 10 * kSecond;
    static constexpr std::size_t kMaxEntries = 1000;
    static constexpr std::size_t kMaxChannels =
        10; ///< for a client and reason; further ones are only counted

    /// Takes a refused message.
    /// \param now  on the monotonic clock
    /// \return a line for the log; empty if it will be summed up
    std::string add(const Telvane::EventServerRefusal& refusal, Nanoseconds now);

    /// Sums up. Call it about once a second.
    /// \return lines for the log
    std::vector<std::string> update(Nanoseconds now);

    /// \return lines for what was not reported yet, when the server stops
    std::vector<std::string> finish();

private:
    using Key = std::tuple<int, pid_t, Telvane::EventServerRefusal::Reason, std::string>;
    struct Entry
    {
        std::string text;       ///< client, channel and reason
        std::uint64_t more = 0; ///< since the latest line
        Nanoseconds lastLine = 0;
    };

    std::size_t countChannels(const Telvane::EventServerRefusal& refusal) const;
    std::vector<std::string> sumUp(bool all, Nanoseconds now);

    std::mutex m_lock;
    std::map<Key, Entry> m_entries;
    std::uint64_t m_others = 0; ///< refusals without an entry, since their latest line
    Nanoseconds m_othersLine = 0;
};

} // namespace TelvaneTool

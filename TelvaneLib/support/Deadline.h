// Deadlines of waits on the wall clock. A time-out may be as long as 136 years. A deadline beyond the range
// of the system's time would wrap into the past, and the wait would return at once again and again. So
// deadlines are limited to that range.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>

namespace Telvane
{

/// The last whole second in the range of both the wall clock and the system's waits.
/// \tparam Seconds the system's type for seconds
template <class Seconds = std::time_t>
constexpr std::chrono::system_clock::time_point kLastDeadline{std::chrono::seconds(std::min<std::int64_t>(
    std::numeric_limits<Seconds>::max(),
    std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::duration::max()).count()))};

/// \return \p timeout seconds after \p now, at most kLastDeadline
template <class Seconds = std::time_t>
constexpr std::chrono::system_clock::time_point deadlineAfter(std::chrono::system_clock::time_point now,
                                                              unsigned int timeout)
{
    const std::chrono::seconds wait(timeout);
    return now > kLastDeadline<Seconds> - wait ? kLastDeadline<Seconds> : now + wait;
}

} // namespace Telvane

// When a wait on the wall clock has to end. A time-out may be as long as 136 years, and a deadline beyond
// what the system can name wraps into the past: the wait would return at once, again and again, and burn a
// processor until the real deadline. So the last moment that can be named stands for all later ones.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>

namespace Telvane
{

/// The last whole second that both the wall clock and the system's waits can name.
/// \tparam Seconds what the system counts seconds in
template <class Seconds = std::time_t>
constexpr std::chrono::system_clock::time_point kLastDeadline{std::chrono::seconds(std::min<std::int64_t>(
    std::numeric_limits<Seconds>::max(),
    std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::duration::max()).count()))};

/// \return \p timeout seconds after \p now, but never after kLastDeadline
template <class Seconds = std::time_t>
constexpr std::chrono::system_clock::time_point deadlineAfter(std::chrono::system_clock::time_point now,
                                                              unsigned int timeout)
{
    const std::chrono::seconds wait(timeout);
    return now > kLastDeadline<Seconds> - wait ? kLastDeadline<Seconds> : now + wait;
}

} // namespace Telvane

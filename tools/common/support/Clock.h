#pragma once

// Times and durations in all programs: 64-bit nanoseconds.

#include <cstdint>

namespace TelvaneTool
{

using Nanoseconds = std::int64_t;

constexpr Nanoseconds kMicrosecond = 1'000;
constexpr Nanoseconds kMillisecond = 1'000'000;
constexpr Nanoseconds kSecond = 1'000'000'000;

constexpr double inSeconds(Nanoseconds time)
{
    return static_cast<double>(time) / static_cast<double>(kSecond);
}

constexpr Nanoseconds nanoseconds(double seconds)
{
    return static_cast<Nanoseconds>(seconds * static_cast<double>(kSecond));
}

/// \return the monotonic clock, which is not affected by setting the time
Nanoseconds monotonicNow();

/// \return the time since the Unix epoch
Nanoseconds realTimeNow();

} // namespace TelvaneTool

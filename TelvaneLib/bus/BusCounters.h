#pragma once

// Counters, and copies of them for programs that were compiled with fewer counters.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// An atomic counter for a line of a list in Telvane/BusCounters.h; and its copy to the member with its name.
#define TELVANE_ATOMIC_COUNTER(member, metric, reason, meaning) std::atomic<std::uint64_t> member{0};
#define TELVANE_COPY_COUNTER(member, metric, reason, meaning) copy.member = counters.member;

namespace Telvane
{

inline void count(std::atomic<std::uint64_t>& counter, std::uint64_t events = 1)
{
    counter.fetch_add(events, std::memory_order_relaxed);
}

/// \param size size of the caller's structure, which may belong to an earlier or later version
template <class Statistics>
void copyKnown(const Statistics& copy, Statistics& statistics, std::size_t size)
{
    std::memcpy(&statistics, &copy, std::min(size, sizeof copy));
}

} // namespace Telvane

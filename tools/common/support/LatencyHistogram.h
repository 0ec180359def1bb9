#pragma once

#include "common/support/Clock.h"

#include <array>
#include <cstdint>

namespace TelvaneTool
{

/// Counts latencies in buckets, in a few kilobytes. Times are accurate to 1 part in 32.
class LatencyHistogram
{
public:
    void add(Nanoseconds time);
    void add(const LatencyHistogram& other);
    std::uint64_t count() const { return m_count; }

    /// \param fraction 0 to 1; 0.5 for the median
    /// \return the quantile, too large by at most 1 part in 32
    Nanoseconds quantile(double fraction) const;
    Nanoseconds max() const { return m_max; }

private:
    static constexpr unsigned kPartBits = 5; ///< each power of two is split into 32 parts
    static constexpr std::size_t kBuckets = (64 - kPartBits) << kPartBits;

    static std::size_t bucketOf(std::uint64_t time);
    static std::uint64_t endOf(std::size_t bucket);

    std::array<std::uint64_t, kBuckets> m_counts = {};
    std::uint64_t m_count = 0;
    Nanoseconds m_max = 0;
};

} // namespace TelvaneTool

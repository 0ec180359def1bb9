#pragma once

#include "common/support/Clock.h"

#include <array>
#include <cstdint>
#include <string>

namespace TelvaneTool
{

/// How long things took, in a few kilobytes for any number of them. Times are kept to 1 part in 32.
class LatencyHistogram
{
public:
    void add(Nanoseconds time);
    void add(const LatencyHistogram& other);
    std::uint64_t count() const { return m_count; }

    /// \param share 0.5 for the median
    /// \return a time that this share of all does not exceed, by at most a 32nd too long
    Nanoseconds quantile(double share) const;
    Nanoseconds greatest() const { return m_greatest; }

private:
    static constexpr unsigned kPartBits = 5; ///< each power of two is split into 32 parts
    static constexpr std::size_t kBuckets = (64 - kPartBits) << kPartBits;

    static std::size_t bucketOf(std::uint64_t time);
    static std::uint64_t endOf(std::size_t bucket);

    std::array<std::uint64_t, kBuckets> m_counts = {};
    std::uint64_t m_count = 0;
    Nanoseconds m_greatest = 0;
};

/// \return "85 us", "1.25 ms", "3.1 s"
std::string printDuration(Nanoseconds time);

} // namespace TelvaneTool

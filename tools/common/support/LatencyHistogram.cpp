#include "common/support/LatencyHistogram.h"

#include <algorithm>
#include <cmath>

namespace TelvaneTool
{

std::size_t LatencyHistogram::bucketOf(std::uint64_t time)
{
    constexpr std::uint64_t kParts = 1U << kPartBits;
    if (time < kParts) {
        return static_cast<std::size_t>(time);
    }
    unsigned shift = 0;
    while ((time >> shift) >= 2 * kParts) {
        ++shift;
    }
    return static_cast<std::size_t>((shift + 1) * kParts + ((time >> shift) - kParts));
}

std::uint64_t LatencyHistogram::endOf(std::size_t bucket)
{
    constexpr std::uint64_t kParts = 1U << kPartBits;
    if (bucket < kParts) {
        return bucket;
    }
    const std::uint64_t shift = bucket / kParts - 1;
    return ((bucket % kParts + kParts + 1) << shift) - 1;
}

void LatencyHistogram::add(Nanoseconds time)
{
    const Nanoseconds positive = std::max<Nanoseconds>(time, 0);
    ++m_counts[bucketOf(static_cast<std::uint64_t>(positive))];
    ++m_count;
    m_max = std::max(m_max, positive);
}

void LatencyHistogram::add(const LatencyHistogram& other)
{
    std::transform(m_counts.begin(), m_counts.end(), other.m_counts.begin(), m_counts.begin(),
                   [](std::uint64_t own, std::uint64_t theirs) { return own + theirs; });
    m_count += other.m_count;
    m_max = std::max(m_max, other.m_max);
}

Nanoseconds LatencyHistogram::quantile(double fraction) const
{
    const auto wanted = static_cast<std::uint64_t>(std::ceil(fraction * static_cast<double>(m_count)));
    std::uint64_t passed = 0;
    for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
        passed += m_counts[bucket];
        if (passed > 0 && passed >= wanted) {
            return std::min(static_cast<Nanoseconds>(endOf(bucket)), m_max);
        }
    }
    return m_max;
}

} // namespace TelvaneTool

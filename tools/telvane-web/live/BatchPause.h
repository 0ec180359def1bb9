#pragma once

#include "common/support/Clock.h"

namespace TelvaneTool
{

/// When the receiver thread pauses, so that it wakes once for several samples instead of once for each.
///
/// It pauses only in a steady stream that is slow enough: the buffer of the bus holds some hundred samples, and what a
/// pause collects at the highest such rate is a quarter of it.
class BatchPause
{
public:
    static constexpr Nanoseconds kShortest =
        150 * kMicrosecond; ///< between samples; a shorter time is a batch
    static constexpr Nanoseconds kLongest =
        3 * kMillisecond; ///< between samples; a longer time is not a stream
    static constexpr Nanoseconds kPause = 4 * kMillisecond;
    static constexpr unsigned kSteady = 32; ///< samples before the first pause

    /// A weld starts: its stream may be a faster one.
    void reset() { m_steady = 0; }

    /// \param now  when a sample arrives
    /// \return how long to pause after it; 0 for not at all
    Nanoseconds after(Nanoseconds now)
    {
        const Nanoseconds gap = now - m_last;
        m_last = now;
        if (gap < kShortest) {
            return 0;
        }
        m_steady = gap > kLongest ? 0 : m_steady + 1;
        if (m_steady < kSteady) {
            return 0;
        }
        m_last = now + kPause; // what arrives meanwhile is a batch
        return kPause;
    }

private:
    Nanoseconds m_last = 0;
    unsigned m_steady = 0;
};

} // namespace TelvaneTool

#pragma once

#include "common/support/Clock.h"

#include <functional>
#include <utility>

namespace TelvaneTool
{

/// Brings recorded time to pass at the speed that the user wants.
///
/// Each moment has an absolute due time, so that small delays do not add up. What falls due while the process
/// was kept from running is caught up at once, but not more than a short stretch of it: subscribers would
/// lose the records of a long burst. Beyond that the replay is late for good, and says so at its end.
class Pacer
{
public:
    /// Sleeps until a moment of the monotonic clock; returns false when the program is to stop.
    using SleepUntil = std::function<bool(Nanoseconds deadline)>;

    /// \param sleepUntil called for each moment, with a deadline that may have passed
    /// \param speed times the recorded pace; 0 does not wait at all
    Pacer(SleepUntil sleepUntil, double speed) : m_sleepUntil(std::move(sleepUntil)), m_speed(speed) {}

    /// Recorded time \p start passes now, or when the part before has ended.
    /// \param period between samples, of which a few may be caught up
    void begin(Nanoseconds start, Nanoseconds period);

    /// Waits for a moment.
    /// \return false when the session is stopping
    bool waitUntil(Nanoseconds moment);

    /// \return by how much the replay has fallen behind for good
    Nanoseconds late() const { return m_late; }

private:
    SleepUntil m_sleepUntil;
    double m_speed;
    Nanoseconds m_start = 0; ///< of the part, recorded
    Nanoseconds m_base = 0;  ///< when that was, on the monotonic clock
    Nanoseconds m_due = 0;
    Nanoseconds m_tolerance = 0;
    Nanoseconds m_late = 0;
};

} // namespace TelvaneTool

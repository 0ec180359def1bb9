#pragma once

#include "common/support/Clock.h"

#include <functional>
#include <utility>

namespace TelvaneTool
{

/// Replays recorded times at a chosen speed.
///
/// Each moment has an absolute due time, so that small delays do not add up. After a pause of the process, the
/// replay catches up on a short burst only, because subscribers would miss records of a long one. The rest of
/// the delay stays, and late() reports it.
class Pacer
{
public:
    /// Sleeps until a time on the monotonic clock; returns false if the program should stop.
    using SleepUntil = std::function<bool(Nanoseconds deadline)>;

    /// \param sleepUntil called for each moment, with a deadline that may have passed
    /// \param speed 1 for the recorded speed, 2 for twice as fast; 0 does not wait
    Pacer(SleepUntil sleepUntil, double speed) : m_sleepUntil(std::move(sleepUntil)), m_speed(speed) {}

    /// Starts at the recorded time \p start, after the previous part, if any.
    /// \param period between samples; limits how far the replay catches up
    void begin(Nanoseconds start, Nanoseconds period);

    /// Waits for a recorded time.
    /// \return false if the program should stop
    bool waitUntil(Nanoseconds moment);

    /// \return how far the replay is behind, in total
    Nanoseconds late() const { return m_late; }

private:
    SleepUntil m_sleepUntil;
    double m_speed;
    Nanoseconds m_start = 0; ///< of the part, in recorded time
    Nanoseconds m_base = 0;  ///< of the part, on the monotonic clock
    Nanoseconds m_due = 0;
    Nanoseconds m_tolerance = 0;
    Nanoseconds m_late = 0;
};

} // namespace TelvaneTool

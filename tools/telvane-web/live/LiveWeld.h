#pragma once

#include "common/support/Clock.h"
#include "telvane-web/live/Envelope.h"
#include "telvane-web/live/EventLog.h"

#include <Telvane/WeldRecords.h>

#include <string>

namespace TelvaneTool
{

/// The weld in progress or the last one, the connection to the bus, and the errors: everything that the page shows
/// without being asked. Changes are entered into the log.
///
/// Not thread-safe; BusWatcher guards it.
class LiveWeld
{
public:
    /// Without samples for so long, a weld that has not ended is reported as silent.
    static constexpr Nanoseconds kSilence = 2 * kSecond;

    enum class State
    {
        None,   ///< no weld since the program started
        Arc,    ///< samples arrive
        Silent, ///< no samples arrive, and no end
        Ended,
    };

    /// Enters the first state.
    explicit LiveWeld(Nanoseconds wallClock) { setState(State::None, wallClock); }

    /// \name Input
    /// \param now        on the monotonic clock
    /// \param wallClock  since the Unix epoch
    /// @{
    void take(const Telvane::WeldTriggerStart& start, Nanoseconds now, Nanoseconds wallClock);
    void take(const Telvane::WeldTraceData& trace, Nanoseconds now, Nanoseconds wallClock);
    void take(const Telvane::WeldTriggerEnd& end, Nanoseconds wallClock);
    void takeError(const std::string& channel, const std::string& code, const std::string& text,
                   Nanoseconds wallClock);
    /// \param reason  why there is no connection; empty if there is one
    void busChanged(const std::string& reason, Nanoseconds wallClock);
    /// Notices silence.
    void tick(Nanoseconds now, Nanoseconds wallClock);
    /// @}

    State state() const { return m_state; }
    const Envelope& envelope() const { return m_envelope; }
    const EventLog& log() const { return m_log; }
    /// \return the number of the weld since the program started; tags can repeat
    unsigned weld() const { return m_weld; }
    /// \return the samples of all welds, which changes whenever there is something to draw
    std::uint64_t samples() const { return m_samples; }
    /// \return the samples that are missing by their numbers, of all welds
    std::uint64_t missed() const { return m_missed; }

    /// \return the state as JSON
    std::string stateJson() const;
    /// \return the newest values as JSON: means over a tenth of a second, energy, counts
    std::string valuesJson() const;

private:
    void setState(State state, Nanoseconds wallClock);
    void enterState();
    void begin();
    void measurePeriod(const Telvane::WeldTraceData& trace);

    EventLog m_log;
    State m_state = State::None;
    Nanoseconds m_since = 0; ///< of the state, wall clock
    std::string m_busReason = "not connected yet";
    Nanoseconds m_busSince = 0;

    Envelope m_envelope;
    unsigned m_weld = 0;
    Telvane::WeldTriggerStart m_start;
    bool m_startKnown = false;
    Telvane::WeldMetrics m_metrics;
    double m_period = 0.0; ///< time between two samples, s; 0 if unknown
    bool m_periodGiven = false;
    Nanoseconds m_lastSample = 0; ///< monotonic

    std::int64_t m_next = 0; ///< number of the next sample
    std::int64_t m_firstNumber = -1;
    Nanoseconds m_firstTime = 0; ///< time stamp of the first sample
    std::uint64_t m_samples = 0;
    std::uint64_t m_weldSamples = 0;
    std::uint64_t m_missed = 0;
    std::uint64_t m_weldMissed = 0;
    double m_powerSum = 0.0;
    EnvelopeColumn m_window; ///< the samples of the present tenth of a second
    std::int64_t m_windowBegin = 0;
    LiveValues m_values = {};
};

/// \return the text without the rest of a UTF-8 character, at most so many bytes
std::string shortened(const std::string& text, std::size_t bytes);

} // namespace TelvaneTool

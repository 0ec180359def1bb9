#pragma once

#include "weld/WeldSample.h"

#include <vector>

namespace TelvaneTool
{

/// Finds welds in a stream of samples by their current.
class WeldDetector
{
public:
    struct Settings
    {
        double threshold = 10.0;        ///< the arc burns above this current, A
        Nanoseconds hold = kSecond / 2; ///< a weld ends when the current has stayed below for so long
    };

    /// Receives the welds, in order of time.
    class Listener
    {
    public:
        virtual ~Listener() = default;
        virtual void arcStarted(const WeldSample& first) = 0;
        /// \param burning  false during an interruption shorter than the hold time
        virtual void arcSample(const WeldSample& sample, bool burning) = 0;
        /// \param end  first sample without current. Neither it nor the hold time belongs to the weld.
        virtual void arcEnded(const WeldSample& end) = 0;
    };

    WeldDetector(Settings settings, Listener& listener) : m_settings(settings), m_listener(listener) {}

    /// Adds the next sample.
    void push(const WeldSample& sample);

    /// Ends the recording and any weld in progress.
    /// \param period  duration of the last sample
    void finish(Nanoseconds period);

private:
    void end(const WeldSample& at);

    Settings m_settings;
    Listener& m_listener;
    bool m_welding = false;
    WeldSample m_lastBurning;
    std::vector<WeldSample> m_below; ///< samples since the current dropped, until the hold time is over
};

} // namespace TelvaneTool

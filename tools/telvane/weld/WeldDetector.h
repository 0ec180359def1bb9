#pragma once

#include "weld/WeldSample.h"

#include <vector>

namespace TelvaneTool
{

/// Finds the welds in a stream of samples by their current.
class WeldDetector
{
public:
    struct Settings
    {
        double threshold = 10.0;        ///< the arc burns while the current is above, in A
        Nanoseconds hold = kSecond / 2; ///< how long the current stays below before the weld is over
    };

    /// What is told of each weld, in order of time.
    class Listener
    {
    public:
        virtual ~Listener() = default;
        virtual void arcStarted(const WeldSample& first) = 0;
        /// \param burning false in an interruption that turned out shorter than the hold time
        virtual void arcSample(const WeldSample& sample, bool burning) = 0;
        /// \param end the first sample without current, which is no more part of the weld; neither is the
        ///            hold time behind it
        virtual void arcEnded(const WeldSample& end) = 0;
    };

    WeldDetector(Settings settings, Listener& listener) : m_settings(settings), m_listener(listener) {}

    /// Takes the next sample of the same recording.
    void push(const WeldSample& sample);

    /// The recording ends here; a weld in progress ends with it.
    /// \param period how long the last sample lasted
    void finish(Nanoseconds period);

private:
    void end(const WeldSample& at);

    Settings m_settings;
    Listener& m_listener;
    bool m_welding = false;
    WeldSample m_lastBurning;
    std::vector<WeldSample> m_below; ///< since the current went, while it may still come back
};

} // namespace TelvaneTool

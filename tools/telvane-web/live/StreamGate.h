#pragma once

#include "common/support/Clock.h"

#include <cstddef>

namespace TelvaneTool
{

/// Decides how much a client of the stream gets: everything, less, or the end of its connection.
///
/// It sees only the bytes that the client has not taken, and the monotonic clock.
class StreamGate
{
public:
    enum class Pace
    {
        Full,       ///< columns as they change
        Thinned,    ///< columns twice a second
        Disconnect, ///< the client did not recover
    };

    struct Settings
    {
        std::size_t high = 32UL * 1024;     ///< above, the client is behind
        std::size_t low = 4UL * 1024;       ///< below, it has caught up
        Nanoseconds patience = kSecond / 2; ///< behind for so long: thin out
        Nanoseconds recovery = 2 * kSecond; ///< caught up for so long: full pace again
        Nanoseconds limit = 20 * kSecond;   ///< thinned and still behind for so long: disconnect
        Nanoseconds fullInterval = kSecond / 30;
        Nanoseconds thinnedInterval = kSecond / 2;
    };

    StreamGate() = default;
    explicit StreamGate(const Settings& settings) : m_settings(settings) {}

    /// Takes the client's backlog.
    /// \param unsent  bytes that were handed to the system and not taken by the client
    /// \param blocked  whether the connection waits for the client to read
    /// \return the new pace
    Pace update(Nanoseconds now, std::size_t unsent, bool blocked);

    Pace pace() const { return m_pace; }
    /// \return the time between two updates of the columns
    Nanoseconds interval() const
    {
        return m_pace == Pace::Full ? m_settings.fullInterval : m_settings.thinnedInterval;
    }

private:
    Settings m_settings;
    Pace m_pace = Pace::Full;
    Nanoseconds m_behindSince = 0; ///< 0 if the client is not behind
    Nanoseconds m_caughtUpSince = 0;
};

} // namespace TelvaneTool

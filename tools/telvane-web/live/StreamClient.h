#pragma once

#include "telvane-web/live/LiveWeld.h"
#include "telvane-web/live/StreamGate.h"

#include <string>

namespace TelvaneTool
{

/// What one client of the stream has been sent. It has no queue: each event is written when the client can take it,
/// from the log and from the columns as they are then. So a slow client needs no more memory than a fast one.
class StreamClient
{
public:
    /// A client is told that the server is alive this often.
    static constexpr Nanoseconds kHeartbeat = 2 * kSecond;

    struct Settings
    {
        std::size_t columns = 1024;  ///< most columns that the client draws
        std::uint64_t lastEvent = 0; ///< the last entry of the log that it has; 0 for none
        bool resumed = false;        ///< lastEvent is of this server
        StreamGate::Settings gate;
    };

    StreamClient(const Settings& settings, std::string hello)
        : m_columns(settings.columns),
          m_gate(settings.gate),
          m_hello(std::move(hello)),
          m_logged(settings.lastEvent),
          m_resumed(settings.resumed)
    {}

    /// Takes the state of the connection.
    void observe(Nanoseconds now, std::size_t unsent, bool blocked) { m_gate.update(now, unsent, blocked); }
    StreamGate::Pace pace() const { return m_gate.pace(); }

    /// \return the next events, of a few kB; empty if there is nothing to send now
    std::string next(const LiveWeld& live, Nanoseconds now);

    /// \return whether the client has missed entries of the log, so that it must start again
    bool missedEvents(const LiveWeld& live) const { return m_begun && live.log().lacks(m_logged); }

    /// \return when to call next() again
    Nanoseconds due(const LiveWeld& live) const;

private:
    std::string begin(const LiveWeld& live);
    std::string columns(const LiveWeld& live);
    bool hasColumns(const LiveWeld& live) const;

    const std::size_t m_columns;
    StreamGate m_gate;
    std::string m_hello;
    std::uint64_t m_logged;
    const bool m_resumed;
    bool m_begun = false;
    StreamGate::Pace m_toldPace = StreamGate::Pace::Full;
    Nanoseconds m_lastSent = 0;
    Nanoseconds m_lastColumns = 0;
    bool m_moreColumns = false;

    unsigned m_weld = 0;
    unsigned m_level = 0;
    std::size_t m_sent = 0; ///< columns that are complete and sent
    std::uint64_t m_revision = 0;
    std::uint64_t m_samples = 0; ///< of LiveWeld, when columns were sent
};

/// \return an event as the stream carries it
std::string streamEvent(const char* type, const std::string& data, std::uint64_t id = 0);

} // namespace TelvaneTool

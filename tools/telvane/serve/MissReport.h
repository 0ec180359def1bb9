#pragma once

#include "common/support/Clock.h"

#include <Telvane/EventServerStatus.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Sums up the messages that clients miss, for the log: one line when a client begins to miss messages, one every ten
/// seconds while that continues, and one when it ends.
class MissReport
{
public:
    static constexpr Nanoseconds kPeriod = 10 * kSecond;

    /// \param programOf returns the name of a process; empty if unknown
    explicit MissReport(std::function<std::string(pid_t)> programOf) : m_programOf(std::move(programOf)) {}

    /// Takes the status of all clients. Call it about once a second.
    /// \param now on the monotonic clock
    /// \return lines for the log
    std::vector<std::string> update(const std::vector<Telvane::EventServerClientStatus>& clients,
                                    Nanoseconds now);

    /// \return lines for all clients that are missing messages, when the server stops
    std::vector<std::string> finish(Nanoseconds now);

private:
    using Counts = std::map<std::string, std::uint64_t>; ///< by channel

    struct Client
    {
        pid_t process = 0;
        std::string name;       ///< "client 7 (telvane listen, process 123)"
        Counts missed;          ///< since the client connected
        Counts atBegin;         ///< missed before the present period of misses
        Counts atReport;        ///< missed at the latest line
        Nanoseconds begin = -1; ///< of the present period of misses; -1 if there is none
        Nanoseconds lastMiss = 0;
        Nanoseconds lastReport = 0;
    };

    std::string end(Client& client, Nanoseconds now, const char* what) const;

    std::function<std::string(pid_t)> m_programOf;
    std::map<int, Client> m_clients; ///< by descriptor
};

} // namespace TelvaneTool

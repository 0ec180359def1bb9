#pragma once

#include "serve/RefusalReport.h"

#include <string>

namespace Telvane
{
class EventServer;
struct EventServerAccess;
} // namespace Telvane

namespace TelvaneTool
{

class AccessPolicy;

/// Applies the policy in a file to a server, and logs what it refuses to standard error. It must exist until the server
/// has stopped.
class PolicyGuard
{
public:
    /// \param path   of the file; empty for no policy
    /// \param audit  only log what the policy would refuse
    PolicyGuard(Telvane::EventServer& server, std::string path, bool audit);

    bool isActive() const { return !m_path.empty(); }

    /// Reads the file and applies it at once to all clients.
    /// \return false, after printing the reason, if it is invalid; the former policy then stays
    bool load();

    /// Logs what was refused repeatedly. Call it about once a second.
    void update(Nanoseconds now);

    /// Logs the rest, when the server stops.
    void finish();

private:
    bool decide(const AccessPolicy& policy, const Telvane::EventServerAccess& access);
    void report(const Telvane::EventServerRefusal& refusal);
    void print(const std::vector<std::string>& lines) const;

    Telvane::EventServer& m_server;
    const std::string m_path;
    const bool m_audit;
    RefusalReport m_report;
};

} // namespace TelvaneTool

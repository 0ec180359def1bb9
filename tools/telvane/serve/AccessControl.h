#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Telvane
{
class EventServer;
struct EventServerLimits;
} // namespace Telvane

namespace TelvaneTool
{

class Command;

/// Whom and how much a server takes. Zero, or empty, is without a limit.
struct PeerGuardOptions
{
    std::vector<std::string> users;  ///< names or numbers
    std::vector<std::string> groups; ///< names or numbers
    std::size_t clients = 0;
    std::size_t subscriptionsPerClient = 0;
    std::size_t channels = 0;
};

void addPeerGuardOptions(Command& command, PeerGuardOptions& options);

Telvane::EventServerLimits limitsOf(const PeerGuardOptions& options);

/// Has the server refuse what goes beyond the options, and each refusal told on standard error.
void guardServer(Telvane::EventServer& server, const PeerGuardOptions& options);

/// \return who is meant by a name, or by a number that is nobody's name
/// @{
std::optional<uid_t> findUser(const std::string& text);
std::optional<gid_t> findGroup(const std::string& text);
/// @}

} // namespace TelvaneTool

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

/// The limits of a server. Zero and empty mean no limit.
struct AccessOptions
{
    std::vector<std::string> users;  ///< names or numbers
    std::vector<std::string> groups; ///< names or numbers
    std::size_t clients = 0;
    std::size_t subscriptionsPerClient = 0;
    std::size_t channels = 0;
};

void addAccessOptions(Command& command, AccessOptions& options);

Telvane::EventServerLimits limitsOf(const AccessOptions& options);

/// Sets the limits of a server, and logs each refusal to standard error.
void applyAccessOptions(Telvane::EventServer& server, const AccessOptions& options);

/// \return the user or group with a name, or else with a number
/// @{
std::optional<uid_t> findUser(const std::string& text);
std::optional<gid_t> findGroup(const std::string& text);
/// @}

} // namespace TelvaneTool

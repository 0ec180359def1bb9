#pragma once

// The roles of the processes of a soak run. Each checks the bus's guarantees until the end of the run and
// reports violations in its slot.

#include "ProcessPool.h"

#include <Telvane/EventClient.h>

#include <functional>
#include <string>

namespace Soak
{

using Role = int (*)(const RoleContext& context);

/// \throws Failure if there is no such role
Role roleNamed(const std::string& name);

/// \name Roles
/// @{
int serve(const RoleContext& context);
int publish(const RoleContext& context);
int listenToStream(const RoleContext& context);
int request(const RoleContext& context);
int respond(const RoleContext& context);
int crowd(const RoleContext& context);
int comeAndGo(const RoleContext& context);
int attack(const RoleContext& context);
/// @}

/// A client that reconnects whenever its connection is lost.
class PersistentClient
{
public:
    /// \param prepare subscribes on a new connection; returns false on failure
    PersistentClient(const RoleContext& context, std::function<bool(Telvane::EventClient&)> prepare);

    /// Connects if necessary, with any count of attempts.
    /// \return false at the end of the run
    bool connected();

    Telvane::EventClient& operator*() { return m_client; }
    Telvane::EventClient* operator->() { return &m_client; }

private:
    const RoleContext& m_context;
    std::function<bool(Telvane::EventClient&)> m_prepare;
    std::atomic<bool> m_lost{true};
    Telvane::EventClient m_client;
};

/// \return the name of channel \p number, of letters and underscores only
std::string channelName(const std::string& prefix, std::size_t number);

} // namespace Soak

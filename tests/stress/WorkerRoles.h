#pragma once

// What the processes of a soak run do, each until the run is over. They hold the bus to its promises as they
// go, and note on their slot what was broken.

#include "ProcessPool.h"

#include <Telvane/EventClient.h>

#include <functional>
#include <string>

namespace Soak
{

using Role = int (*)(const RoleContext& context);

/// \throws Failure when there is no such role
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

/// A client that connects again whenever its connection has been lost.
class PersistentClient
{
public:
    /// \param prepare makes the subscriptions of a new connection; returns whether it could
    PersistentClient(const RoleContext& context, std::function<bool(Telvane::EventClient&)> prepare);

    /// Sees to it that there is a connection, however often that has to be tried.
    /// \return false when the run is over
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

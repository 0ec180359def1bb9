// The policy of a server, which the application gives as a function.

#include "bus/EventServerState.h"

#include <cerrno>
#include <new>
#include <utility>

namespace Telvane
{

int EventServer::SetPolicy(std::function<bool(const EventServerAccess& access)> allows)
{
    try {
        m_state->rights.set(allows ? std::make_shared<const ClientRights::Policy>(std::move(allows))
                                   : nullptr);
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    return 0;
}

/// Counts and reports a message that the policy does not permit.
void EventServer::State::dropMessage(int client, std::string_view header)
{
    incrementUnshared(counters.notPermitted);
    // Without a function for refusals, a client that repeats its message must not fill the log.
    if (onRefusal || rights.reportFirst(client, header)) {
        const MessageAccess access(header);
        refuse(access.action == EventServerAccess::Action::Request
                   ? EventServerRefusal::Reason::MayNotRequest
                   : EventServerRefusal::Reason::MayNotPublish,
               client, access.channel);
    }
}

} // namespace Telvane

#pragma once

#include <Telvane/EventServerStatus.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace Telvane
{

/// What clients may do according to a policy, with a memory of its decisions about their messages. Its lock is a leaf: it
/// is not held while the policy decides.
class ClientRights
{
public:
    using Policy = std::function<bool(const EventServerAccess& access)>;

    /// Replaces the policy and forgets all decisions.
    /// \param policy  null to allow everything
    void set(std::shared_ptr<const Policy> policy);

    /// \return whether a client may send a message; false if that cannot be found out
    bool permitsMessage(int client, std::string_view header)
    {
        return !m_active || decideMessage(client, header);
    }
    /// \return whether a client may subscribe; false if that cannot be found out
    bool permitsSubscription(int client, std::string_view channel)
    {
        return !m_active || decideSubscription(client, channel);
    }

    /// \return whether it is the first message with this header that is reported for the client
    bool reportFirst(int client, std::string_view header);

    /// Forgets a client that disconnects, before its descriptor can belong to another one. Called on its receiver thread.
    void forget(int client);

private:
    struct Decision
    {
        bool permitted = false;
        bool reported = false;
    };
    struct Client
    {
        EventServerAccess identity; ///< action and channel are not set
        std::map<std::string, Decision, std::less<>> messages;
        std::size_t headerBytes = 0; ///< size of all keys of `messages`
    };

    bool decideMessage(int client, std::string_view header);
    bool decideSubscription(int client, std::string_view channel);
    Client* find(int client);
    bool decide(int client, EventServerAccess::Action action, std::string_view channel,
                std::shared_ptr<const Policy>& policy);

    std::atomic<bool> m_active{false}; ///< there is a policy; saves the lock without one
    std::mutex m_lock;
    std::shared_ptr<const Policy> m_policy;
    std::map<int, Client> m_clients; ///< by descriptor
};

/// What a message is to the policy.
struct MessageAccess
{
    explicit MessageAccess(std::string_view header);

    EventServerAccess::Action action;
    std::string_view channel; ///< of a request: the channel that is requested
};

} // namespace Telvane

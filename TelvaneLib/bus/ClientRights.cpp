// A decision is made once per client and header, because the policy is a function of the application that compares
// patterns, and messages arrive 50,000 times per second. The identity of a client is asked for once: it cannot change.

#include "bus/ClientRights.h"

#include "transport/SeqpacketSocket.h"

#include <Telvane/RequestType.h>

#include <new>
#include <utility>

namespace Telvane
{

namespace
{

// A client that publishes under ever new names must not fill the memory.
constexpr std::size_t kMaxDecisions = 1000;
constexpr std::size_t kMaxHeaderBytes = std::size_t{64} * 1024;

} // namespace

MessageAccess::MessageAccess(std::string_view header)
    : action(EventServerAccess::Action::Publish), channel(header)
{
    constexpr std::string_view kPrefix = kRequestPrefix;
    if (header.substr(0, kPrefix.size()) == kPrefix) {
        action = EventServerAccess::Action::Request;
        channel.remove_prefix(kPrefix.size());
    }
}

void ClientRights::set(std::shared_ptr<const Policy> policy)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_policy.swap(policy);
    m_active = m_policy != nullptr;
    m_clients.clear();
}

/// Called with the lock held.
/// \return null if the client cannot be identified
ClientRights::Client* ClientRights::find(int client)
{
    const auto found = m_clients.find(client);
    if (found != m_clients.end()) {
        return &found->second;
    }
    Peer peer;
    if (!identifyPeer(client, peer)) {
        return nullptr;
    }
    Client known;
    known.identity.client = client;
    known.identity.process = peer.process;
    known.identity.user = peer.user;
    known.identity.group = peer.group;
    if (!peerGroups(client, known.identity.groups)) {
        return nullptr; // a rule that denies a group could not be applied
    }
    return &m_clients.emplace(client, std::move(known)).first->second;
}

/// \param[out] policy  the one that has decided
bool ClientRights::decide(int client, EventServerAccess::Action action, std::string_view channel,
                          std::shared_ptr<const Policy>& policy)
{
    EventServerAccess access;
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        policy = m_policy;
        if (policy == nullptr) {
            return true;
        }
        const Client* const known = find(client);
        if (known == nullptr) {
            return false;
        }
        access = known->identity;
    }
    access.action = action;
    access.channel = channel;
    return (*policy)(access);
}

bool ClientRights::decideMessage(int client, std::string_view header)
{
    try {
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            const auto known = m_clients.find(client);
            if (known != m_clients.end()) {
                const auto found = known->second.messages.find(header);
                if (found != known->second.messages.end()) {
                    return found->second.permitted;
                }
            }
        }
        const MessageAccess access(header);
        std::shared_ptr<const Policy> policy;
        const bool permitted = decide(client, access.action, access.channel, policy);
        const std::lock_guard<std::mutex> guard(m_lock);
        const auto known = m_clients.find(client);
        if (policy == m_policy && known != m_clients.end()) {
            Client& sender = known->second;
            if (sender.messages.size() >= kMaxDecisions ||
                sender.headerBytes + header.size() > kMaxHeaderBytes) {
                sender.messages.clear();
                sender.headerBytes = 0;
            }
            const auto decision = sender.messages.try_emplace(std::string(header));
            decision.first->second.permitted = permitted;
            sender.headerBytes += decision.second ? header.size() : 0;
        }
        return permitted;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool ClientRights::decideSubscription(int client, std::string_view channel)
{
    try {
        std::shared_ptr<const Policy> policy;
        return decide(client, EventServerAccess::Action::Subscribe, channel, policy);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool ClientRights::reportFirst(int client, std::string_view header)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto known = m_clients.find(client);
    if (known == m_clients.end()) {
        return true;
    }
    const auto found = known->second.messages.find(header);
    return found == known->second.messages.end() || !std::exchange(found->second.reported, true);
}

void ClientRights::forget(int client)
{
    if (!m_active) {
        return; // then no client is known
    }
    const std::lock_guard<std::mutex> guard(m_lock);
    m_clients.erase(client);
}

} // namespace Telvane

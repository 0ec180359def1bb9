// Refusal of connections and subscriptions, and reports of all refusals. Without limits, every process that can open
// the socket may connect and subscribe as often as it likes, and the server keeps the name of each channel forever.

#include "bus/EventServerState.h"

#include "support/Diagnostics.h"

#include <algorithm>
#include <new>

namespace Telvane
{

namespace
{

const char* reasonText(EventServerRefusal::Reason reason)
{
    switch (reason) {
    case EventServerRefusal::Reason::NotAllowed:
        return "neither its user nor one of its groups is allowed";
    case EventServerRefusal::Reason::TooManyConnections:
        return "there are as many clients as are allowed";
    case EventServerRefusal::Reason::TooManySubscriptions:
        return "it has as many subscriptions as are allowed";
    case EventServerRefusal::Reason::TooManyChannels:
        return "there are as many channels as are allowed";
    case EventServerRefusal::Reason::MayNotSubscribe:
        return "the policy does not let it subscribe";
    case EventServerRefusal::Reason::MayNotPublish:
        return "the policy does not let it publish";
    case EventServerRefusal::Reason::MayNotRequest:
        return "the policy does not let it request";
    }
    return "";
}

bool isOfConnection(EventServerRefusal::Reason reason)
{
    return reason == EventServerRefusal::Reason::NotAllowed ||
           reason == EventServerRefusal::Reason::TooManyConnections;
}

/// A client may send a message with any header, and lines of a log are for people and programs.
std::string printable(std::string_view channel)
{
    constexpr std::size_t kMaxLength = 200;
    std::string text(channel.substr(0, kMaxLength));
    std::replace_if(
        text.begin(), text.end(), [](char character) { return character < ' ' || character > '~'; }, '?');
    return channel.size() > kMaxLength ? text + "..." : text;
}

template <class Id>
bool contains(const std::vector<Id>& list, Id id)
{
    return std::find(list.begin(), list.end(), id) != list.end();
}

bool isAllowed(const EventServerLimits& limits, int client)
{
    if (limits.users.empty() && limits.groups.empty()) {
        return true;
    }
    Peer peer;
    if (!identifyPeer(client, peer)) {
        return false;
    }
    if (contains(limits.users, peer.user) || contains(limits.groups, peer.group)) {
        return true;
    }
    if (limits.groups.empty()) {
        return false;
    }
    std::vector<gid_t> groups; // none if they cannot be read
    peerGroups(client, groups);
    return std::any_of(groups.begin(), groups.end(),
                       [&limits](gid_t group) { return contains(limits.groups, group); });
}

} // namespace

std::string describe(const EventServerRefusal& refusal)
{
    std::string text = "client " + std::to_string(refusal.client) + " (process " +
                       std::to_string(refusal.process) + ", user " + std::to_string(refusal.user) +
                       ", group " + std::to_string(refusal.group) + ")";
    if (refusal.reason == EventServerRefusal::Reason::TooManySubscriptions ||
        refusal.reason == EventServerRefusal::Reason::TooManyChannels) {
        text += " for channel " + refusal.channel;
    } else if (!isOfConnection(refusal.reason)) {
        text += " for channel " + printable(refusal.channel);
    }
    return text + ": " + reasonText(refusal.reason);
}

bool EventServer::State::refusesConnection(int client)
{
    bool allowed = false;
    std::size_t maxConnections = 0;
    try {
        const std::lock_guard<std::mutex> guard(limitsLock);
        allowed = isAllowed(limits, client);
        maxConnections = limits.connections;
    } catch (const std::bad_alloc&) {
        // Do not allow a client whose identity cannot be checked.
    }
    if (!allowed) {
        refuse(EventServerRefusal::Reason::NotAllowed, client, {});
        return true;
    }
    std::size_t connected = 0;
    {
        const std::lock_guard<std::mutex> guard(connectionsLock);
        connected = connections.size();
    }
    if (maxConnections != 0 && connected >= maxConnections) {
        refuse(EventServerRefusal::Reason::TooManyConnections, client, {});
        return true;
    }
    return false;
}

bool EventServer::State::refusesSubscription(int client, std::string_view channel, bool newChannel)
{
    if (!rights.permitsSubscription(client, channel)) {
        refuse(EventServerRefusal::Reason::MayNotSubscribe, client, channel);
        return true;
    }
    std::size_t maxSubscriptions = 0;
    std::size_t maxChannels = 0;
    {
        const std::lock_guard<std::mutex> guard(limitsLock);
        maxSubscriptions = limits.subscriptionsPerClient;
        maxChannels = limits.channels;
    }
    if (maxSubscriptions != 0) {
        std::size_t subscribed = 0;
        {
            const std::lock_guard<std::mutex> guard(subscribersLock);
            const auto found = subscriptions.find(client);
            subscribed = found != subscriptions.end() ? found->second.size() : 0;
        }
        if (subscribed >= maxSubscriptions) {
            refuse(EventServerRefusal::Reason::TooManySubscriptions, client, channel);
            return true;
        }
    }
    if (maxChannels != 0 && newChannel && channelCount >= maxChannels) {
        refuse(EventServerRefusal::Reason::TooManyChannels, client, channel);
        return true;
    }
    return false;
}

/// Counts and reports a refusal. A refused message is counted already.
void EventServer::State::refuse(EventServerRefusal::Reason reason, int client, std::string_view channel)
{
    const bool ofMessage = reason == EventServerRefusal::Reason::MayNotPublish ||
                           reason == EventServerRefusal::Reason::MayNotRequest;
    if (!ofMessage) {
        count(isOfConnection(reason) ? counters.connectionsRefused : counters.subscriptionsRefused);
    }
    try {
        Peer peer;
        identifyPeer(client, peer);
        const EventServerRefusal refusal{reason,    client,     peer.process,
                                         peer.user, peer.group, std::string(channel)};
        if (onRefusal) {
            onRefusal(server, refusal);
        } else {
            writeErrorLine("REFUSED ", describe(refusal));
        }
    } catch (const std::bad_alloc&) {
        writeErrorLine("REFUSED a client: ", reasonText(reason));
    }
}

} // namespace Telvane

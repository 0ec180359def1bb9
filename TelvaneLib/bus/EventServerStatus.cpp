// Status of a running server. It does not delay messages: counters and channels are read without a lock, and
// the lock that relays need is held only while the subscriptions of one client are copied, without allocating
// texts.

#include "bus/EventServerState.h"

#include <algorithm>
#include <new>

namespace Telvane
{

void EventServer::Statistics(EventServerStatistics& statistics, std::size_t size) const
{
    const ServerCounters& counters = m_state->counters;
    EventServerStatistics copy;
    TELVANE_SERVER_COUNTERS(TELVANE_COPY_COUNTER)
    copyKnown(copy, statistics, size);
}

namespace
{

/// A copy of a subscription, without the name of its channel.
struct Snapshot
{
    const Channel::Entry* channel;
    Subscriber delivery;
};

EventServerSubscriptionStatus statusOf(const Snapshot& snapshot)
{
    const Subscriber& counters = snapshot.delivery;
    EventServerSubscriptionStatus copy;
    copy.channel = snapshot.channel->first;
    copy.lastError = counters.lastError;
    TELVANE_SUBSCRIPTION_COUNTERS(TELVANE_COPY_COUNTER)
    return copy;
}

} // namespace

std::vector<EventServerClientStatus> EventServer::Clients() const
{
    try {
        return m_state->clients();
    } catch (const std::bad_alloc&) {
        return {};
    }
}

std::vector<EventServerClientStatus> EventServer::State::clients()
{
    std::vector<EventServerClientStatus> all;
    std::vector<Snapshot> snapshots;
    // While this lock is held, no descriptor is closed.
    const std::lock_guard<std::mutex> connectionsGuard(connectionsLock);
    all.reserve(connections.size());
    for (const auto& connection : connections) {
        const int client = connection.first;
        Peer peer;
        identifyPeer(client, peer);
        snapshots.clear();
        {
            const std::lock_guard<std::mutex> guard(subscribersLock);
            if (const auto found = subscriptions.find(client); found != subscriptions.end()) {
                snapshots.reserve(found->second.size());
                for (const ServerSubscription& subscription : found->second) {
                    snapshots.push_back({subscription.channel, *subscription.delivery});
                }
            }
        }
        EventServerClientStatus& status = all.emplace_back();
        status.descriptor = client;
        status.process = peer.process;
        status.user = peer.user;
        status.group = peer.group;
        status.bytesBehind = unreadBytes(client);
        status.subscriptions.reserve(snapshots.size());
        std::transform(snapshots.begin(), snapshots.end(), std::back_inserter(status.subscriptions),
                       &statusOf);
    }
    return all;
}

std::vector<EventServerChannelStatus> EventServer::Channels() const
{
    std::vector<EventServerChannelStatus> all;
    try {
        const Channel::Entry* entry = m_state->newestChannel;
        for (; entry != nullptr; entry = entry->second.older) {
            const Channel& counters = entry->second;
            EventServerChannelStatus& copy = all.emplace_back();
            copy.name = entry->first;
            copy.subscribers = counters.subscriberCount;
            copy.lastSequence = counters.lastSequence;
            TELVANE_CHANNEL_COUNTERS(TELVANE_COPY_COUNTER)
        }
    } catch (const std::bad_alloc&) {
        return {};
    }
    std::sort(all.begin(), all.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return all;
}

} // namespace Telvane

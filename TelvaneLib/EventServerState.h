#pragma once

// What an EventServer holds. Locks, in the order in which they are taken:
//
//   stopLock         a stop request and its answer
//   connectionsLock  connections and finishedThreads
//   handlerLock      around each dispatch: channels (as a table), relayEnvelope, printer; taken alone
//   subscribersLock  leaf: who is subscribed to what; no hook runs under it
//
// A descriptor leaves the subscribers before it is closed, under subscribersLock, which a relay holds too:
// so no relay can reach whoever is given the number next.

#include <Telvane/EventServer.h>

#include "Envelope.h"
#include "MessagePrinter.h"
#include "SeqpacketSocket.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <pthread.h>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Telvane
{

/// A header that messages are dispatched on: a meta channel, or one that somebody has subscribed to. Never
/// removed.
struct Channel
{
    EventHandler handler = nullptr;
    std::unordered_map<int, std::uint64_t> subscribers; ///< descriptor to relays missed
};

using ChannelTable = std::map<std::string, Channel, std::less<>>;

struct Hook
{
    EventHandler fn = nullptr;
    void* user = nullptr;

    int install(EventHandler newFn, void* newUser);
    int uninstall();
    void call(EventServer& server, int client, const std::string& header, int sequence, cJSON* payload) const
    {
        if (fn != nullptr) {
            fn(&server, client, header, sequence, payload, user);
        }
    }
};

/// The counters behind EventServerStatistics.
struct ServerCounters
{
    std::atomic<std::uint64_t> received{0};
    std::atomic<std::uint64_t> dispatched{0};
    std::atomic<std::uint64_t> tooLarge{0};
    std::atomic<std::uint64_t> notJson{0};
    std::atomic<std::uint64_t> withoutPayload{0};
    std::atomic<std::uint64_t> withoutHandler{0};
    std::atomic<std::uint64_t> outOfMemory{0};
    std::atomic<std::uint64_t> relayed{0};
    std::atomic<std::uint64_t> relaysFailed{0};
    std::atomic<std::uint64_t> relaysTooLarge{0};
};

inline void count(std::atomic<std::uint64_t>& counter, std::uint64_t events = 1)
{
    counter.fetch_add(events, std::memory_order_relaxed);
}

struct EventServer::State
{
    explicit State(EventServer& owner);

    /// \return the server's own state, for the static entries
    static State& of(void* server) { return *static_cast<EventServer*>(server)->m_state; }

    // Start and stop
    int listenOn(FileDescriptor socket);
    bool stopTargets(pthread_t thread) const;
    bool waitForStop(std::unique_lock<std::mutex>& stopGuard);
    void endListener();
    int stopListener();
    int stopReceivers();
    void joinFinishedThreads();

    // Clients
    void admit(FileDescriptor client);
    void applySendBuffer(int client);
    int descriptorOf(pthread_t thread);
    void serve(int client);
    void tearDown(int client);

    // Messages
    void handlePacket(int client, const char* text, int length);
    int answer(int client, const char* header, bool success, const char* channel);
    bool subscribe(int client, std::string_view channel);
    bool unsubscribe(int client, std::string_view channel);
    void forget(int client);
    void relay(Channel& channel, const char* text, int length);

    EventServer& server;
    std::atomic<int> listener{-1};
    std::string path;
    pthread_t listenerThread = {};

    std::mutex connectionsLock;
    std::map<int, pthread_t> connections;
    /// By the descriptor that they had: an ending thread moves its entry here, which takes no memory.
    std::multimap<int, pthread_t> finishedThreads;

    std::mutex handlerLock;
    ChannelTable channels;
    ChannelTable::value_type* dispatching = nullptr; ///< the entry whose handler runs
    RelayEnvelope relayEnvelope;
    MessagePrinter printer;

    std::mutex subscribersLock;
    std::unordered_map<int, std::vector<Channel*>> subscriptions; ///< what each descriptor is subscribed to

    std::atomic<std::uint16_t> sequence{0};

    std::mutex stopLock;
    std::condition_variable stopCondition;
    std::atomic<bool> stopPending{false};
    std::atomic<pthread_t> stopTarget{};
    bool listenerEnded = false; ///< guarded by stopLock

    Hook onSubscribe;
    Hook onUnsubscribe;
    Hook onConnect;
    Hook onDisconnect;

    ServerCounters counters;
    std::atomic<int> sendBuffer{0};
    std::atomic<int> grantedSendBuffer{0};
    std::atomic<std::size_t> stackSize{std::size_t{512} * 1024};
};

} // namespace Telvane

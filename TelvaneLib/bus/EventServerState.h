#pragma once

// The state of an EventServer. docs/threads-and-locks.md describes its locks and their order.

#include <Telvane/EventServer.h>

#include "bus/BusCounters.h"
#include "bus/ClientRights.h"
#include "bus/LastValues.h"
#include "support/JsonWriter.h"
#include "transport/Envelope.h"
#include "transport/Inbox.h"
#include "transport/SeqpacketSocket.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Telvane
{

/// Limit of the text of a relay, in bytes. A longer relay is cut when it is sent, and is then not valid JSON.
constexpr std::size_t kMaxRelaySize = 65536;

/// Relays of one channel to one subscriber. (Delivery and Subscription are public types of the client.)
struct Subscriber
{
    std::size_t position = 0; ///< index in the subscriber's list of subscriptions
    int lastError = 0;
    TELVANE_COUNTER_MEMBERS(TELVANE_SUBSCRIPTION_COUNTERS)
};

/// A channel that has ever had a subscriber, or a meta channel. Channels are never removed, so that their
/// list can be read without a lock.
struct Channel
{
    using Entry = std::pair<const std::string, Channel>;

    EventHandler metaHandler = nullptr;              ///< null for channels whose messages are relayed
    std::unordered_map<int, Subscriber> subscribers; ///< by descriptor

    const Entry* older = nullptr; ///< next element of the list that starts at newestChannel

    // Written under handlerLock or subscribersLock, read without a lock.
    std::atomic<std::size_t> subscriberCount{0};
    std::atomic<int> lastSequence{-1};
    TELVANE_CHANNEL_COUNTERS(TELVANE_ATOMIC_COUNTER)
};

using ChannelTable = std::map<std::string, Channel, std::less<>>;

/// A message for the subscribers of a channel.
struct Relay
{
    Channel* channel = nullptr;
    const char* text = nullptr;
    int length = 0;
};

/// A client's subscription to a channel.
struct ServerSubscription
{
    Channel::Entry* channel;
    Subscriber* delivery;
};

/// \return whether clients may subscribe to the channel
inline bool isSubscribable(std::string_view channel)
{
    return channel.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_") ==
           std::string_view::npos;
}

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

/// The counters of EventServerStatistics.
struct ServerCounters
{
    TELVANE_SERVER_COUNTERS(TELVANE_ATOMIC_COUNTER)
};

/// Like count(), for counters whose writers hold a lock.
inline void incrementUnshared(std::atomic<std::uint64_t>& counter, std::uint64_t events = 1)
{
    counter.store(counter.load(std::memory_order_relaxed) + events, std::memory_order_relaxed);
}

struct EventServer::State
{
    explicit State(EventServer& owner);

    /// \return the state of a server, for its static functions
    static State& of(void* server) { return *static_cast<EventServer*>(server)->m_state; }

    // Start and stop
    int listenOn(FileDescriptor& socket, FileDescriptor wakeOfInherited);
    bool stopTargets(pthread_t thread) const;
    bool waitForStop(std::unique_lock<std::mutex>& stopGuard);
    void endListener();
    int stopListener();
    int stopReceivers();
    void joinFinishedThreads();

    // Clients
    void addClient(FileDescriptor client);
    void applySendBuffer(int client);
    int descriptorOf(pthread_t thread);
    void serve(int client);
    void tearDown(int client);

    // Messages
    void handlePackets(int client, const Packet* packets, int number);
    void handleParsed(int client, const Packet& packet);
    int dispatch(int client, Channel::Entry& channel, cJSON* payload);
    int answer(int client, const char* header, bool success, const char* channel);
    bool subscribe(int client, std::string_view channel);
    bool isSubscribed(int client, const Channel& channel);
    Channel::Entry& addChannel(std::string_view name);
    bool unsubscribe(int client, std::string_view channel);
    void removeSubscriptions(int client);
    int relay(Channel::Entry& channel, int sequenceNumber, cJSON* payload);
    void relayPrinted(int client, PrintedPublication* publications, std::size_t number);
    void noteRelay(Channel& channel, int sequenceNumber, int length);
    void sendToSubscribers(const Relay* relays, std::size_t number);
    void sendShare(int subscriber, Subscriber& delivery, const Relay* begin, const Relay* end);

    // Memory
    bool isKept(std::string_view channel) const;
    void keep(std::string_view channel, std::string_view relay);
    void keepUnrelayed(PrintedPublication& publication);
    void keepUnrelayed(std::string_view header, const cJSON* payload);
    int latestSequence() const;
    bool answerFromMemory(int client, const Channel* requests, const PrintedPublication& request);
    bool answerFromMemory(int client, const Channel* requests, std::string_view header, const cJSON* payload);
    std::string_view withIdentifier(const std::string& value, const std::string& channel,
                                    const cJSON* request);

    // Policy
    void dropMessage(int client, std::string_view header);

    // Status
    std::vector<EventServerClientStatus> clients();

    // Limits
    bool refusesConnection(int client);
    bool refusesSubscription(int client, std::string_view channel, bool newChannel);
    void refuse(EventServerRefusal::Reason reason, int client, std::string_view channel);

    EventServer& server;
    std::atomic<int> listener{-1};
    std::string path;
    pthread_t listenerThread = {};
    /// Wakes the listener thread if the socket was inherited and must not be shut down; else invalid.
    FileDescriptor wake;

    std::mutex connectionsLock;
    std::map<int, pthread_t> connections;
    /// By descriptor. A thread that ends moves its entry here, which allocates no memory.
    std::multimap<int, pthread_t> finishedThreads;

    std::mutex handlerLock;
    ChannelTable channels;
    std::atomic<const Channel::Entry*> newestChannel{nullptr};
    std::size_t channelCount = 0;       ///< count of channels without the meta channels
    std::unique_ptr<LastValues> memory; ///< null without the setting
    JsonWriter relayText{kMaxRelaySize};

    std::mutex subscribersLock;
    std::unordered_map<int, std::vector<ServerSubscription>> subscriptions; ///< by descriptor

    std::mutex limitsLock;
    EventServerLimits limits;

    ClientRights rights;

    std::mutex stopLock;
    std::condition_variable stopCondition;
    std::atomic<pthread_t> stopTarget{};
    std::atomic<bool> stopPending{false};
    bool listenerEnded = false; ///< guarded by stopLock

    std::atomic<std::uint16_t> sequence{0};

    Hook onSubscribe;
    Hook onUnsubscribe;
    Hook onConnect;
    Hook onDisconnect;
    std::function<void(EventServer&, const EventServerRefusal&)> onRefusal;

    PacketBufferPool packetBuffers;
    ServerCounters counters;
    std::atomic<int> sendBuffer{0};
    std::atomic<int> grantedSendBuffer{0};
    std::atomic<bool> relayErrorLines{true};
    std::atomic<std::size_t> stackSize{std::size_t{512} * 1024};
};

} // namespace Telvane

#pragma once

// The state that a Bus, its handles and its threads share. docs/threads-and-locks.md says what its lock protects.
//
// All endpoints and requests of a channel share one subscription at the server. One thread at a time sends the
// subscribe and unsubscribe requests (updateServer), so that they reach the server in the right order.

#include <Telvane/Bus.h>

#include "client/BusParts.h"
#include "client/DirectTurn.h"
#include "transport/Envelope.h"

#include <atomic>
#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Telvane::Detail
{

class Relay;

/// Entries of the threads. The argument is a `std::shared_ptr<BusState>*` that the thread deletes.
void* runReceiver(void* argument);
void* runWorker(void* argument);

class BusState : public std::enable_shared_from_this<BusState>
{
public:
    using Held = std::unique_lock<std::mutex>;

    BusState(const std::string& serverPath, BusOptions how);
    ~BusState();

    void start();
    void close(bool forGood);

    // BusConnecting.cpp: the receiver thread
    void receive();
    // BusDirect.cpp
    void take(const char* text);

    // BusEndpoints.cpp
    EndpointPointer addEndpoint(const std::string& channel, const EndpointSettings& settings,
                                std::unique_ptr<TelvaneDataTypeBase> prototype,
                                std::unique_ptr<MessageHandler> handler, std::error_code& error);
    void endEndpoint(const EndpointPointer& endpoint, bool wait);
    std::error_code waitActive(const EndpointPointer& endpoint, Clock::time_point deadline);
    Item nextItem(const EndpointPointer& endpoint, std::chrono::nanoseconds timeout);
    int queueDescriptor(const EndpointPointer& endpoint);

    // BusChannels.cpp
    void updateServer(Held& held);

    // BusCallbacks.cpp
    void work();
    std::size_t dispatch();
    int dispatchDescriptor();

    // BusPublishing.cpp
    /// What to do with a publication while there is no connection.
    enum class Absence
    {
        Keeps, ///< put it into the outbox, if there is one
        Fails,
    };
    Publication publish(const std::string& channel, const TelvaneDataTypeBase& record,
                        std::chrono::nanoseconds timeout, Absence absence);

    // BusRequests.cpp
    std::error_code request(const std::string& channel, const TelvaneDataTypeBase& argument,
                            TelvaneDataTypeBase& answer, std::chrono::nanoseconds timeout);

    std::error_code waitConnected(std::chrono::nanoseconds timeout);
    BusStatistics statistics() const;

    const BusOptions options;
    const std::string path;

    mutable std::mutex lock;
    std::condition_variable changed; ///< state, channels' states, ends of threads
    ConnectionState state = ConnectionState::Connecting;
    std::error_code reason;

private:
    friend class Endpoint;

    // BusConnecting.cpp
    std::error_code openLink(LinkPointer& link) const;
    enum class Step
    {
        Send,
        Wait,
        Done, ///< the bus is connected
    };
    struct Kept
    {
        std::string text;
        Clock::time_point since;
    };
    std::error_code establish(const LinkPointer& link);
    std::error_code establish(const LinkPointer& link, Kept& message);
    /// Determines the next step of establishing the connection.
    /// \param[out] message the message to send; its time is that of an outbox entry, else the latest possible
    Step nextStep(const LinkPointer& link, Kept& message);
    std::error_code receiveSome(const LinkPointer& link);
    void beginEpoch(const LinkPointer& link);
    void receiveUntilLost(const LinkPointer& link);
    bool awaitPacket(const Link& link);
    void endLink(const LinkPointer& link, std::error_code why);
    void attemptFailed(std::error_code why);
    bool sleepFor(std::chrono::nanoseconds pause);
    std::chrono::nanoseconds pauseAfter(unsigned failures);
    void setState(Held& held, ConnectionState newState, std::error_code why);

    // BusDirect.cpp
    void considerDirect(const Channel& channel);
    bool takeDirectly(Relay& relay);
    void endDirect();
    /// Before a change that concerns a subscription. Requires the lock.
    void revokeDirect() { m_direct.revoke(m_receiver); }

    // BusDelivery.cpp
    void takeAnswer(const char* header, const cJSON* message);
    void noteAnswer(const char* header, const cJSON* message);
    void takeMessage(const char* text);
    void takeRelay(Relay& relay);
    void answerRequests(Relay& relay);
    void deliver(const EndpointPointer& endpoint, Relay& relay, Clock::time_point arrival);
    void enqueue(const EndpointPointer& endpoint, std::list<Item>& message, std::list<Item>& dropped);

    // BusEndpoints.cpp
    void removeEndpoint(Endpoint& endpoint, std::list<Item>& garbage);
    bool endsEachOther(const Endpoint& endpoint) const;
    void pushToQueues(Item::Kind kind, std::error_code why);

    // BusChannels.cpp
    using Channels = std::map<std::string, Channel, std::less<>>;
    Channels::iterator findOrAddChannel(const std::string& name);
    void markDirty(Channels::value_type& channel);
    bool takeDirtyChannel(std::string& message, Channels::value_type*& channel);
    void eraseIfIdle(Channels::iterator channel);

    // BusCallbacks.cpp
    bool runNext(Held& held, Executor& executor, Run where);
    bool runEvent(Held& held, Run where);
    void runOldest(Held& held, const EndpointPointer& endpoint, Run where);
    void run(Held& held, const EndpointPointer& endpoint, Run where,
             std::unique_ptr<TelvaneDataTypeBase> record, const Delivery& delivery);
    void finish(Held& held, const EndpointPointer& endpoint, const CallbackOutcome& outcome);
    void pushReady(const EndpointPointer& endpoint);
    EndpointPointer popReady(Executor& executor);
    Executor& executorOf(const Endpoint& endpoint);
    bool mustDispatch() const;
    void updateDispatchEvent() { m_dispatchEvent.update(mustDispatch()); }
    int startWorker() { return launch(m_workerThread, &runWorker); }
    bool eventsAreDispatched() const { return options.run == Run::Dispatch; }
    void report(BusEvent::Kind kind, std::error_code why, const std::string& channel, const char* text);

    // BusPublishing.cpp
    std::unique_ptr<Writer> takeWriter(bool keeps, Publication& publication);
    void returnWriter(std::unique_ptr<Writer> writer);
    void forgetIdleLink();
    static std::error_code send(const Link& link, const char* text, int length,
                                std::chrono::nanoseconds timeout);
    bool keep(Publication& publication, const char* text, LinkPointer& link);
    void dropExpired(Clock::time_point now);

    // BusRequests.cpp
    std::error_code await(Held& held, PendingRequest& pending, const std::string& requestChannel,
                          Clock::time_point deadline);
    EndpointPointer runnableResponder(const std::string& requestChannel, Run where);
    std::string newRequestId();

    EndpointPointer takeAnyEndpoint();
    int launch(OwnThread& thread, void* (*entry)(void*));
    void endThread(Held& held, OwnThread& thread, bool forGood);

    FileDescriptor m_wake; ///< wakes the receiver while it polls
    LinkPointer m_link;    ///< the current connection, established or not
    bool m_linkUp = false; ///< m_link is established
    Channels m_channels;
    std::vector<Channels::value_type*> m_dirtyChannels;
    bool m_updating = false;       ///< a thread is in updateServer
    int m_answersDue = 0;          ///< the sum of all channels' answersDue, without those that were given up
    Clock::time_point m_windowEnd; ///< of a full window: when the answers are given up
    std::atomic<bool> m_windowFull{false}; ///< kWindow answers are due; changed with the lock
    bool m_answered = false;               ///< the server has answered a request on this connection
    bool m_pinged = false;

    std::atomic<Writer*> m_idleWriter{nullptr};
    std::atomic<const Link*> m_upLink{nullptr}; ///< m_link while it is established; changed with the lock
    std::list<Kept> m_outbox;

    Executor m_worker;
    Executor m_dispatcher;
    std::condition_variable m_work;
    std::list<BusEvent> m_events;
    bool m_eventRuns = false;
    ReadyEvent m_dispatchEvent;
    PendingRequest* m_helpers = nullptr;
    WaitingEnd* m_waitingEnds = nullptr;

    bool m_closed = false;
    std::thread::id m_closer;
    OwnThread m_receiverThread;
    OwnThread m_workerThread;

    BusStatistics m_counters; ///< without `received`
    OwnCounter m_received;    ///< of the receiver
    std::uint64_t m_requests = 0;
    std::uint64_t m_identity = 0; ///< in the `_id` of requests
    std::uint64_t m_random = 0;
    std::error_code m_lastFailure;

    std::vector<EndpointPointer> m_targets; ///< of the receiver: who gets the message
    std::vector<RequestPointer> m_asked;    ///< of the receiver: who waits for the message
    std::thread::id m_receiver;
    DirectTurn m_direct;
    std::string m_directName; ///< of the receiver: the channel of m_direct
    /// Of the receiver: the only recipient of the last message, if that was taken with the lock. Only compared.
    const Endpoint* m_lastOnly = nullptr;
};

} // namespace Telvane::Detail

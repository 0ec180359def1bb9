#pragma once

// The state that a Bus, its handles and its threads share. One lock protects all of it, and is never held during a send
// or a callback.
//
// All endpoints and requests of a channel share one subscription at the server. One thread at a time sends the
// subscribe and unsubscribe requests (updateServer), so that they reach the server in the right order.

#include <Telvane/Bus.h>

#include "bus/PublicationWriter.h"
#include "client/DirectTurn.h"
#include "transport/Envelope.h"
#include "transport/SeqpacketSocket.h"

#include <atomic>
#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace Telvane::Detail
{

using Clock = std::chrono::steady_clock;

/// Number of subscribe requests that may be unanswered. The server drops messages that do not fit into this socket,
/// including its answers.
constexpr int kWindow = 32;

/// The start of the `_id` of every request, which no other `_id` has.
constexpr std::string_view kRequestId = "request:";

/// \return the time \p timeout from now, at most a year, so that it fits into a 32-bit time_t
Clock::time_point deadlineAfter(std::chrono::nanoseconds timeout);

/// \return the text of a request to the server itself; throws `std::bad_alloc`, also for a null request
std::string printRequest(const JsonTree& request);

class Relay;

/// A connection. Its last user closes the descriptor.
struct Link
{
    explicit Link(FileDescriptor fd) : socket(std::move(fd)) {}
    /// Ends the connection for all its users.
    void shutDown() const;

    FileDescriptor socket;
};
using LinkPointer = std::shared_ptr<Link>;

/// A writer with the connection of its last publication.
struct Writer
{
    PublicationWriter text;
    LinkPointer link;
};

/// A descriptor for event loops that is readable while there is something to take. It is opened when it is needed.
class ReadyEvent
{
public:
    /// \return the descriptor; -1, with errno set, if it cannot be opened
    int descriptor(bool ready);
    void update(bool ready);

private:
    FileDescriptor m_event;
    bool m_ready = false;
};

/// A counter that one thread increments, and any thread reads.
class OwnCounter
{
public:
    void add() { m_value.store(value() + 1, std::memory_order_relaxed); }
    std::uint64_t value() const { return m_value.load(std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t> m_value{0};
};

/// A thread of the bus. It shares the ownership of the BusState.
struct OwnThread
{
    bool started = false;
    pthread_t handle = {};
};

/// A thread that waits for the answer to a request.
struct PendingRequest
{
    /// Ends the request without an answer, unless it has ended.
    void fail(std::error_code why);

    std::string id; ///< the request's `_id`, which the answer may carry
    std::unique_ptr<TelvaneDataTypeBase> prototype;
    std::unique_ptr<TelvaneDataTypeBase> answer;
    bool done = false;
    std::error_code error;
    std::condition_variable changed;
    PendingRequest* nextHelper = nullptr; ///< next request that runs responders while it waits
};
using RequestPointer = std::shared_ptr<PendingRequest>;

using EndpointPointer = std::shared_ptr<Endpoint>;

/// A channel that this bus uses, or has used.
struct Channel
{
    bool wanted() const { return !endpoints.empty() || !requests.empty() || lingers; }
    bool idle() const { return !wanted() && !asked && !dirty && !sending && answersDue == 0; }

    std::vector<EndpointPointer> endpoints;
    std::vector<RequestPointer> requests;
    Clock::time_point lastRequest; ///< when the last request ended
    bool lingers = false;          ///< kept for the next request
    bool asked = false;            ///< the last request to the server was to subscribe
    bool sending = false;          ///< a request of the channel is being sent
    bool dirty = false;            ///< in BusState::m_dirtyChannels
    bool active = false;           ///< the server has accepted the subscription
    bool refused = false;
    int answersDue = 0; ///< subscribe requests that the server has not answered
};

/// A subscription, responder or queue.
class Endpoint
{
public:
    Endpoint(std::shared_ptr<BusState> owner, const EndpointSettings& how, std::string on)
        : bus(std::move(owner)), settings(how), name(std::move(on))
    {}

    bool inReceiver() const
    {
        return settings.kind != EndpointSettings::Kind::Queue && settings.run == Run::Direct;
    }

    const std::shared_ptr<BusState> bus;
    const EndpointSettings settings;
    const std::string name;    ///< the channel to subscribe to
    std::string answerChannel; ///< responders: channel of the answers
    std::unique_ptr<TelvaneDataTypeBase> prototype;
    std::unique_ptr<MessageHandler> handler;

    std::list<Item> items;
    std::size_t messages = 0; ///< number of items that are messages
    bool overflowing = false; ///< messages were dropped since the queue was last empty
    bool knowsLoss = false;   ///< queues: the last connection change in the queue was a loss
    bool ended = false;
    std::error_code error;
    EndpointStatistics counters;
    OwnCounter deliveredDirectly; ///< callbacks that the receiver ran without the lock
    std::uint64_t lastEpoch = 0;
    int lastSequence = 0;

    bool running = false; ///< the callback is running, on the thread `runner`
    std::thread::id runner;
    int endsWaiting = 0; ///< threads in end()
    std::condition_variable changed;

    bool ready = false; ///< in the list of an executor
    EndpointPointer nextReady;

    void takeOldest(bool isMessage, std::list<Item>& to);

    /// Makes the descriptor of a queue readable, or not.
    void updateEvent() { event.update(isReadable()); }
    bool isReadable() const { return ended || !items.empty(); }
    ReadyEvent event; ///< queues
};

/// The endpoints with queued messages for one thread, which take turns.
struct Executor
{
    EndpointPointer first;
    Endpoint* last = nullptr;
    std::size_t messages = 0; ///< messages in the queues of all its endpoints
};

/// How a callback has returned.
struct CallbackOutcome
{
    CallbackOutcome() { text[0] = '\0'; }
    /// Only in a handler of an exception.
    void noteException();

    bool threw = false;
    char text[200]; ///< of the exception
};

/// A callback on this thread's stack.
struct CallbackFrame
{
    CallbackFrame(const BusState& of, const Endpoint* running, Run on);
    ~CallbackFrame();
    CallbackFrame(const CallbackFrame&) = delete;
    CallbackFrame& operator=(const CallbackFrame&) = delete;

    /// \return the innermost frame of \p bus on this thread, or null
    static const CallbackFrame* innermost(const BusState& bus);
    /// \return whether a responder to \p requestChannel is on this thread's stack
    static bool responds(const BusState& bus, const std::string& requestChannel);
    /// \return whether BusOptions::onEvent is on this thread's stack
    static bool inEvent(const BusState& bus);
    /// \return whether this thread is the receiver of \p bus, in a callback
    static bool inReceiver(const BusState& bus);

    const BusState& bus;
    const Endpoint* endpoint; ///< null for BusOptions::onEvent
    Run run;
    CallbackFrame* outer;
};

/// A thread that waits in end(). The elements of this list are on the stacks of the waiting threads.
struct WaitingEnd
{
    std::thread::id thread;
    const Endpoint* awaited;
    WaitingEnd* next;
};

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

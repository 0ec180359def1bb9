#pragma once

// What the state of a Bus consists of: connections, channels, endpoints, requests, and what a thread notes while it runs
// a callback. All of it is protected by BusState::lock, unless it says otherwise.

#include <Telvane/Bus.h>

#include "bus/PublicationWriter.h"
#include "support/JsonTree.h"
#include "transport/SeqpacketSocket.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
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

/// A connection. Its last user closes the descriptor.
struct Link
{
    explicit Link(FileDescriptor fd) : socket(std::move(fd)) {}
    /// Ends the connection for all its users.
    void shutDown() const;

    FileDescriptor socket;
};
using LinkPointer = std::shared_ptr<Link>;

/// A writer with the connection of its last publication. It belongs to the thread that has taken it, without the lock.
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
    int answersDue = 0;     ///< subscribe requests that the server has not answered
    int answersGivenUp = 0; ///< of those, the ones that no longer count in the window
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
    bool takesText = false; ///< the prototype is a PayloadText

    std::list<Item> items;
    std::size_t messages = 0; ///< number of items that are messages
    bool overflowing = false; ///< messages were dropped since the queue was last empty
    bool knowsLoss = false;   ///< queues: the last connection change in the queue was a loss
    bool ended = false;
    std::error_code error;
    EndpointStatistics counters;
    OwnCounter deliveredDirectly; ///< callbacks that the receiver ran without the lock
    std::uint64_t lastEpoch = 0;  ///< of the receiver, which uses it without the lock
    int lastSequence = 0;         ///< of the receiver, likewise

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

} // namespace Telvane::Detail

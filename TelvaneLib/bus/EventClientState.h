#pragma once

// What an EventClient holds. Locks:
//
//   exchange.turn     one meta exchange at a time; taken before exchange.lock
//   exchange.lock     the answer that is waited for; taken by the receiver thread under closuresLock
//   closuresLock      the closure table, also while a callback runs; taken before the others
//   disconnectLock    the receiver thread's end
//   connectionLock    leaf: which connection is the current one
//
// A connection is shared by all who use its descriptor, and closed by the last: so nobody can send to, or
// receive from, whoever is given the number next.

#include <Telvane/EventClient.h>

#include "bus/BusCounters.h"
#include "bus/PublicationWriter.h"
#include "transport/Envelope.h"
#include "transport/SeqpacketSocket.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <string>

namespace Telvane
{

struct Connection
{
    explicit Connection(FileDescriptor fd) : socket(std::move(fd)) {}

    FileDescriptor socket;
    std::atomic<bool> open{true}; ///< false as soon as Disconnect() has begun
};
using ConnectionPointer = std::shared_ptr<Connection>;

/// A request to the server itself, and the wait for its response.
struct MetaExchange
{
    std::mutex turn;
    std::mutex lock;
    std::condition_variable condition;
    bool success = false;
    std::string pendingChannel;
    bool done = true;

    void takeResponse(const cJSON* message);
};

/// The counters of EventClientStatistics.
struct ClientCounters
{
    TELVANE_CLIENT_COUNTERS(TELVANE_ATOMIC_COUNTER)
};

/// Runs an operation of the public face, which tells want of memory by its result.
template <class Operation>
int catchBadAlloc(Operation operation)
{
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
}

struct EventClient::State
{
    using Closure = std::unique_ptr<CallbackClosure>;
    using ClosureTable = std::map<std::string, Closure, std::less<>>;
    /// An entry of the table, made before it is needed: entering it takes no memory.
    using ClosureEntry = ClosureTable::node_type;
    class RequestClosure;

    ~State() { delete idleWriter.load(); }

    static State& of(EventClient& client) { return *client.m_state; }

    ConnectionPointer currentConnection();
    void setConnection(ConnectionPointer newConnection);
    bool connected() { return currentConnection() != nullptr; }

    /// Waits for the end of a receiver thread that is not the caller's own.
    void joinLeftReceiver();
    void endReceiver();
    /// \return whether the caller is a callback, under closuresLock
    bool isReceiver();

    void dispatch(EventClient& client, const char* text);
    /// Delivers a relay whose record can be read from the text.
    /// \return false, and nothing has been done, when \p text has to be parsed
    bool deliver(EventClient& client, const char* text);
    static ClosureEntry makeEntry(const std::string& header, Closure closure);
    /// To be called under closuresLock.
    /// \return the closure that the table held before, or null
    Closure enter(ClosureEntry entry);
    void removeClosure(const std::string& header);

    std::unique_ptr<PublicationWriter> takeWriter();
    void returnWriter(std::unique_ptr<PublicationWriter> writer);
    int send(cJSON* message);
    static int sendText(Connection& used, const char* text, int length);
    int connect(EventClient& client, const std::string& newPath);
    int enterSubscription(ClosureEntry entry, const std::weak_ptr<Connection>& subscribedOn);
    void enterRequest(ClosureEntry entry, RequestClosure& request);
    /// Takes a request's closure out again, unless the channel is then nobody's and not \p evenTheLast may go.
    /// \return whether it is out
    bool endRequest(const std::string& channel, RequestClosure& request, bool evenTheLast);
    int request(EventClient& client, const std::string& channel, TelvaneDataTypeBase& record);
    int runExchange(MetaExchange& exchange, const std::string& channel, cJSON* request);

    std::mutex connectionLock;
    ConnectionPointer connection;
    std::string path;

    std::mutex disconnectLock;
    std::condition_variable disconnectCondition;
    bool receiverRunning = false;
    bool receiverJoinable = false;
    pthread_t receiverThread = {};

    std::mutex closuresLock;
    ClosureTable closures;

    MetaExchange subscribing;
    MetaExchange unsubscribing;

    /// The writer that is not in use; another thread that publishes meanwhile makes one of its own.
    std::atomic<PublicationWriter*> idleWriter{nullptr};

    std::function<void(EventClient&)> onConnectionLost;
    ClientCounters counters;
};

} // namespace Telvane

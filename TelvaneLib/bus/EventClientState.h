#pragma once

// The state of an EventClient. docs/threads-and-locks.md describes its locks.

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

/// A connection, shared by all threads that use its descriptor. The last one closes it, so that no thread
/// sends to a later owner of the number.
struct Connection
{
    explicit Connection(FileDescriptor fd) : socket(std::move(fd)) {}

    FileDescriptor socket;
    std::atomic<bool> open{true}; ///< false from the start of Disconnect()
};
using ConnectionPointer = std::shared_ptr<Connection>;

/// A request to the server, and the wait for its response.
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

/// Runs a public operation; returns `-ENOMEM` if it throws `std::bad_alloc`.
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
    /// An entry that is allocated before it is needed, so that inserting it cannot fail.
    using ClosureEntry = ClosureTable::node_type;
    class RequestClosure;

    ~State() { delete idleWriter.load(); }

    static State& of(EventClient& client) { return *client.m_state; }

    ConnectionPointer currentConnection();
    void setConnection(ConnectionPointer newConnection);
    bool connected() { return currentConnection() != nullptr; }

    /// Joins a receiver thread that has ended or is about to, unless it is the calling thread.
    void joinEndedReceiver();
    void endReceiver();
    /// \return true on the receiver thread, which holds closuresLock
    bool isReceiver();

    void dispatch(EventClient& client, const char* text);
    /// Delivers a relay whose record can be read from the text.
    /// \return false, and nothing has been done, when \p text has to be parsed
    bool deliver(EventClient& client, const char* text);
    static ClosureEntry makeEntry(const std::string& header, Closure closure);
    /// Requires closuresLock.
    /// \return the closure that the entry replaced, or null
    Closure enter(ClosureEntry entry);
    void removeClosure(const std::string& header);

    std::unique_ptr<PublicationWriter> takeWriter();
    void returnWriter(std::unique_ptr<PublicationWriter> writer);
    int send(cJSON* message);
    static int sendText(Connection& used, const char* text, int length);
    int connect(EventClient& client, const std::string& newPath);
    int enterSubscription(ClosureEntry entry, const std::weak_ptr<Connection>& subscribedOn);
    void enterRequest(ClosureEntry entry, RequestClosure& request);
    /// Removes the closure of a request.
    /// \param removeLast whether to remove it even if it is the channel's last one
    /// \return whether it is removed
    bool endRequest(const std::string& channel, RequestClosure& request, bool removeLast);
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

    /// The writer, or null while a thread uses it. Another thread that publishes then creates its own.
    std::atomic<PublicationWriter*> idleWriter{nullptr};

    std::function<void(EventClient&)> onConnectionLost;
    ClientCounters counters;
};

} // namespace Telvane

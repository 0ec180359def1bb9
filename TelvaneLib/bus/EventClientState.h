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
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <string>
#include <string_view>

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

class ChannelChange;

/// The changes under way.
struct ChangeList
{
    std::mutex lock;
    ChannelChange* first = nullptr;
};

/// A thread that subscribes, or that unsubscribes after a request. Threads on one channel can overtake each
/// other: a subscription may be sent before, and entered after, an unsubscription. Then it is sent again.
class ChannelChange
{
public:
    enum class Kind
    {
        Subscribed,
        Unsubscribed,
    };

    ChannelChange(ChangeList& list, std::string_view channel);
    ChannelChange(const ChannelChange&) = delete;
    ChannelChange& operator=(const ChannelChange&) = delete;
    ~ChannelChange();

    void begin();
    /// Ends this change and notes it in the others of the channel.
    void end(Kind kind);

    /// \return whether an unsubscription that has ended meanwhile was sent after this subscription
    bool subscriptionUndone();
    /// \return whether a subscription that has ended meanwhile was sent before this unsubscription
    bool undidSubscription();

    std::uint64_t sent = 0; ///< position of this change's request among those of the client

private:
    void unlink();

    ChangeList& m_list;
    const std::string_view m_channel;
    std::uint64_t m_subscribed = 0;   ///< `sent` of the latest subscription that has ended meanwhile
    std::uint64_t m_unsubscribed = 0; ///< `sent` of the latest unsubscription that has ended meanwhile
    ChannelChange* m_next = nullptr;
};

/// The counters of EventClientStatistics.
struct ClientCounters
{
    TELVANE_CLIENT_COUNTERS(TELVANE_ATOMIC_COUNTER)
};

constexpr unsigned int kResponseSeconds = 1;

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
    /// Delivers a relay whose record can be read directly from the text.
    /// \return false, without any effect, if \p text has to be parsed
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
    int subscribe(const std::string& channel, ClosureEntry entry,
                  const std::weak_ptr<Connection>& subscribedOn);
    int enterSubscription(ClosureEntry entry, const std::weak_ptr<Connection>& subscribedOn,
                          Closure& earlier);
    int exchangeSubscription(const std::string& channel, ChannelChange& change);
    int subscribeForRequest(const std::string& channel, ClosureEntry entry, RequestClosure& request);
    void unsubscribeAfterRequest(const std::string& channel, RequestClosure& request);
    /// Removes the closure of a request. Requires closuresLock.
    /// \param removeLast whether to remove it even if it is the channel's last one
    /// \param removed    keeps the closure, to be destroyed after the lock
    /// \return whether it is removed
    bool endRequest(const std::string& channel, RequestClosure& request, bool removeLast, Closure& removed);
    int request(EventClient& client, const std::string& channel, TelvaneDataTypeBase& record);
    int runExchange(MetaExchange& exchange, const std::string& channel, cJSON* request,
                    std::uint64_t* sent = nullptr);

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
    ChangeList changes;

    MetaExchange subscribing;
    MetaExchange unsubscribing;
    std::mutex orderLock;
    std::uint64_t requestsSent = 0; ///< guarded by orderLock, in the order in which the server receives them

    /// The writer, or null while a thread uses it. Another thread that publishes then creates its own.
    std::atomic<PublicationWriter*> idleWriter{nullptr};

    std::function<void(EventClient&)> onConnectionLost;
    ClientCounters counters;
};

/// \return a closure of SubscriptionCallbackClosure or a class with the same constructor
template <class Closure>
std::unique_ptr<Closure> makeSubscription(EventClient::Callback callback,
                                          const TelvaneDataTypeBase& prototype, void* user)
{
    std::unique_ptr<TelvaneDataTypeBase> own(prototype.BuildNewDataType());
    if (own == nullptr) {
        throw std::bad_alloc();
    }
    auto closure = std::make_unique<Closure>(own.get(), user, std::move(callback));
    own.release(); // the closure owns it now
    return closure;
}

} // namespace Telvane

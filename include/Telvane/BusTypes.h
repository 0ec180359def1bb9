/// \file
/// What Bus reports, takes and returns: results, states, events, options, and the handles of subscriptions.
#pragma once

#include <Telvane/Export.h>
#include <Telvane/TelvaneDataTypeBase.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace Telvane
{

/// Why an operation of a Bus failed, or why a connection ended. Compares with `std::error_code`, and through
/// it with the `std::errc` given in brackets.
enum class BusError
{
    NotConnected = 1, ///< there is no connection at present (`not_connected`)
    TimedOut,         ///< not done before the deadline (`timed_out`)
    TooLarge,         ///< the message may not arrive, see Publication::kLimit (`message_size`)
    OutOfMemory,      ///< (`not_enough_memory`)
    NotWritable,      ///< the record could not be written as JSON (`invalid_argument`)
    Lost,             ///< the connection was lost (`connection_reset`)
    Closed,           ///< the bus or the handle has ended (`operation_canceled`)
    Refused,          ///< the server refused the channel's name, or its limits do (`operation_not_permitted`)
    WouldDeadlock,    ///< the caller would wait for itself (`resource_deadlock_would_occur`)
    NoServer,         ///< no server serves the path (`connection_refused`)
    NoPermission,     ///< the socket's file does not admit this user (`permission_denied`)
    Busy,       ///< the server does not accept connections at present (`resource_unavailable_try_again`)
    TurnedAway, ///< the server closed the connection unanswered: user or number of clients
                ///< (`connection_aborted`)
    NoAnswer,   ///< the server does not answer (`timed_out`)
    NotABus,    ///< the path is not the socket of a server (`wrong_protocol_type`)
    BadPath,    ///< the path is empty or has more than 107 characters (`filename_too_long`)
};

/// \return the category of BusError
TELVANE_EXPORT const std::error_category& busCategory() noexcept;

/// \return \p error as an error code; found by argument-dependent lookup
inline std::error_code make_error_code(BusError error) noexcept
{
    return {static_cast<int>(error), busCategory()};
}

/// What became of a publication.
struct TELVANE_EXPORT Publication
{
    /// The largest message, in bytes, that arrives everywhere: the server adds a number of up to 20 bytes.
    static constexpr std::size_t kLimit = 16363;

    std::error_code error; ///< empty if the message was sent or queued
    bool queued = false;   ///< kept in the outbox until the server is back
    std::size_t size = 0;  ///< size of the message in bytes; 0 if it was not printed

    /// \return the error alone, for `std::error_code error = bus.publish(record);`
    operator std::error_code() const { return error; } // NOLINT(google-explicit-constructor): is an error

    /// \return the outcome in words, for example "the message has 20000 bytes, at most 16363 arrive"
    std::string message() const;
};

/// A message's circumstances.
struct Delivery
{
    int sequence = 0; ///< number given by the server, 0 to 65535; it counts all channels
    /// Numbers between the subscription's previous message and this one; 0 for the first of a connection.
    /// They were given to other channels, or to messages that are lost.
    unsigned skippedNumbers = 0;
    std::uint64_t epoch = 0;                       ///< number of the connection, from 1, growing
    std::chrono::steady_clock::time_point arrival; ///< when the packet was received
};

/// State of the connection.
enum class ConnectionState
{
    Connecting, ///< there is no connection; the bus tries to make one
    Connected,  ///< the server has answered every subscription
    Closed,     ///< closed for good, by the application or because the path is impossible
};

/// Where a callback runs.
enum class Run
{
    Default, ///< as BusOptions::run says
    Queued,  ///< on the worker thread of the bus: everything is allowed there
    Direct,  ///< on the receiver thread, for the least delay: it must be quick and cannot wait for the server
    Dispatch, ///< on the thread that calls Bus::dispatch()
};

/// What a full queue drops.
enum class Overflow
{
    DropOldest, ///< the message that has waited longest
    DropNewest, ///< the message that just arrived
};

/// Bound of a queue.
struct Limit
{
    std::size_t messages = 1000;              ///< most messages that wait, at least 1
    Overflow overflow = Overflow::DropOldest; ///< what happens to one more
};

/// What a subscription, responder or queue has counted.
struct EndpointStatistics
{
    std::uint64_t delivered = 0;   ///< callbacks run, or messages taken from a queue
    std::uint64_t dropped = 0;     ///< lost because the queue was full
    std::uint64_t undecodable = 0; ///< payloads that the class could not read
    std::uint64_t threw = 0;       ///< callbacks that ended with an exception
    std::uint64_t unanswered = 0;  ///< responders: answers that could not be published
    std::size_t waiting = 0;       ///< messages in the queue now
};

/// What a bus has counted since its construction.
struct BusStatistics
{
    std::uint64_t connections = 0;    ///< connections made, which is also the current epoch
    std::uint64_t received = 0;       ///< packets received from servers
    std::uint64_t notJson = 0;        ///< of those: not JSON, which includes messages that were cut
    std::uint64_t notSubscribed = 0;  ///< of those: for a channel without a subscription
    std::uint64_t withoutPayload = 0; ///< of those: without "payload"
    std::uint64_t outOfMemory = 0;    ///< of those: lost because memory ran out
    std::uint64_t outboxDropped = 0;  ///< publications dropped from the outbox: too many
    std::uint64_t outboxExpired = 0;  ///< publications dropped from the outbox: too old
    std::size_t outboxWaiting = 0;    ///< publications in the outbox now
    std::uint64_t eventsDropped = 0;  ///< events not reported because too many waited
};

/// Something that a bus reports.
struct BusEvent
{
    /// What has happened.
    enum class Kind
    {
        StateChanged,        ///< BusEvent::state is new; BusEvent::reason says why a connection ended
        AttemptFailed,       ///< no connection, for another reason than the last time
        SubscriptionRefused, ///< the server refused BusEvent::channel
        MessagesDropped,     ///< a queue of BusEvent::channel is full; told once until it has been empty
        CallbackThrew, ///< an exception left a callback of BusEvent::channel; BusEvent::text is its text
    };

    Kind kind = Kind::StateChanged;                      ///< what has happened
    ConnectionState state = ConnectionState::Connecting; ///< state of the connection at that time
    std::error_code reason;                              ///< why; empty where nothing failed
    std::string channel;                                 ///< the channel concerned, or empty
    std::string text;                                    ///< more in words, or empty
    std::uint64_t epoch = 0;                             ///< number of the connection
};

/// Publications that are kept while there is no connection.
struct OutboxLimit
{
    std::size_t messages = 0;                               ///< most messages kept; 0 keeps none
    std::chrono::nanoseconds age = std::chrono::seconds(5); ///< older ones are dropped
};

/// How a bus behaves.
struct BusOptions
{
    std::chrono::nanoseconds deadline = std::chrono::seconds(1); ///< of operations without one of their own
    std::chrono::nanoseconds firstPause = std::chrono::milliseconds(100); ///< between the first attempts
    std::chrono::nanoseconds longestPause = std::chrono::seconds(5);      ///< between later attempts
    Run run = Run::Queued;                                                ///< what Run::Default stands for
    OutboxLimit outbox;                                                   ///< off by default
    /// Called for each event, on the worker thread, or in Bus::dispatch() if BusOptions::run says so.
    std::function<void(const BusEvent& event)> onEvent;
};

namespace Detail
{

class Endpoint;

/// What a queue hands out, without its type.
struct Item
{
    /// What it is.
    enum class Kind
    {
        Message,
        TimedOut,
        Connected,
        Lost,
        Ended,
    };

    Kind kind = Kind::TimedOut;                  ///< what it is
    std::unique_ptr<TelvaneDataTypeBase> record; ///< of a message
    Delivery delivery;                           ///< of a message
    std::error_code reason;                      ///< of a loss or an end
};

} // namespace Detail

/// What Subscription, Responder and Queue have in common.
///
/// A handle ends what it stands for when it is destroyed. After an end from another thread the callback
/// neither runs nor will run. In its own callback end() returns at once and takes effect on return.
/// end() waits for a callback that is running: if that callback wants a lock that the caller holds, both wait
/// forever; use cancel() there. A handle may outlive its Bus.
/// \par Threads  Any thread, callbacks included. Moving, assigning and destroying belong to one thread.
class TELVANE_EXPORT BusHandle
{
public:
    /// An ended handle.
    BusHandle() = default;
    /// Takes \p other's part; \p other is ended afterwards.
    BusHandle(BusHandle&& other) noexcept = default;
    /// Ends this handle, as end() does, then takes \p other's part.
    BusHandle& operator=(BusHandle&& other) noexcept;
    BusHandle(const BusHandle&) = delete;
    BusHandle& operator=(const BusHandle&) = delete;
    /// As end().
    ~BusHandle();

    /// Ends it and waits until its callback has returned.
    void end();

    /// Ends it without waiting: no callback begins after this call, but one may still be running.
    void cancel();

    /// Gives the handle up: what it stands for lasts as long as the Bus.
    void keep() &&;

    /// \return false once it has ended
    bool active() const;

    /// \return empty as long as nothing is wrong; BusError::Refused, BusError::OutOfMemory or
    ///         BusError::Closed otherwise
    std::error_code error() const;

    /// Waits until the server has accepted the subscription.
    /// \param timeout at most this long
    /// \return empty; BusError::Refused, BusError::TimedOut, BusError::Closed; BusError::WouldDeadlock in a
    ///         callback with Run::Direct
    std::error_code waitActive(std::chrono::nanoseconds timeout) const;

    /// \return the counters
    EndpointStatistics statistics() const;

protected:
    /// \param endpoint what the handle stands for; null for an ended one
    explicit BusHandle(std::shared_ptr<Detail::Endpoint> endpoint, std::error_code error) noexcept
        : m_endpoint(std::move(endpoint)), m_error(error)
    {}

    /// Takes the next item of a queue.
    Detail::Item nextItem(std::chrono::nanoseconds timeout);
    /// \return the descriptor of a queue, or -1
    int descriptor();

private:
    std::shared_ptr<Detail::Endpoint> m_endpoint;
    std::error_code m_error;
};

/// A callback on a channel. Returned by Bus::subscribe().
class [[nodiscard]] Subscription : public BusHandle
{
public:
    /// An ended subscription.
    Subscription() = default;

private:
    friend class Bus;
    explicit Subscription(std::shared_ptr<Detail::Endpoint> endpoint, std::error_code error) noexcept
        : BusHandle(std::move(endpoint), error)
    {}
};

/// A callback that answers requests. Returned by Bus::respond().
class [[nodiscard]] Responder : public BusHandle
{
public:
    /// An ended responder.
    Responder() = default;

private:
    friend class Bus;
    explicit Responder(std::shared_ptr<Detail::Endpoint> endpoint, std::error_code error) noexcept
        : BusHandle(std::move(endpoint), error)
    {}
};

/// What Queue::next() returned: a message, a time-out, a change of the connection, or the end.
///
///     while (auto item = queue.next(1s); !item.ended()) {
///         if (item) {
///             use(item->volts);
///         }
///     }
template <class Record>
class QueueItem
{
public:
    /// Takes over what the queue handed out.
    explicit QueueItem(Detail::Item item) : m_item(std::move(item)) {}

    /// \return whether it is a message; only then is there a record
    explicit operator bool() const { return m_item.kind == Detail::Item::Kind::Message; }
    /// \return whether nothing came before the deadline
    bool timedOut() const { return m_item.kind == Detail::Item::Kind::TimedOut; }
    /// \return whether the connection has been made again after a loss
    bool connected() const { return m_item.kind == Detail::Item::Kind::Connected; }
    /// \return whether the connection has been lost; the bus makes it again
    bool lost() const { return m_item.kind == Detail::Item::Kind::Lost; }
    /// \return whether the queue has ended: nothing will come any more
    bool ended() const { return m_item.kind == Detail::Item::Kind::Ended; }

    /// \name The record of a message
    /// @{
    /// \return the record
    const Record& operator*() const { return static_cast<const Record&>(*m_item.record); }
    /// \return the record
    const Record* operator->() const { return &**this; }
    /// @}
    /// \return the circumstances of a message
    const Delivery& delivery() const { return m_item.delivery; }
    /// \return why the connection was lost, or the queue has ended
    std::error_code reason() const { return m_item.reason; }

private:
    Detail::Item m_item;
};

/// The last record of a channel, as Bus::latest() returns it.
template <class Record>
struct Latest
{
    std::error_code error; ///< empty if there is a record
    Record record;         ///< the record; default values on an error

    /// \return whether there is a record
    explicit operator bool() const { return !error; }
    /// \name The record
    /// @{
    /// \return the record
    const Record& operator*() const { return record; }
    /// \return the record
    const Record* operator->() const { return &record; }
    /// @}
};

/// Messages that the application takes when it likes. Returned by Bus::queue().
template <class Record>
class [[nodiscard]] Queue : public BusHandle
{
public:
    /// An ended queue.
    Queue() = default;

    /// Takes the next message or change of the connection.
    /// \param timeout waits at most this long; 0 does not wait
    /// \par Threads  Any thread; several may wait, and each message goes to one of them.
    QueueItem<Record> next(std::chrono::nanoseconds timeout) { return QueueItem<Record>(nextItem(timeout)); }

    /// Returns a descriptor that is readable while next() has something to return, the end included.
    ///
    /// It is for poll(), epoll and event loops, stays the same across reconnects, and must only be waited on.
    /// With edge-triggered waiting, call next(0) until it times out.
    /// \return the descriptor, closed with the handle; -1, with errno set, if there is none
    int fd() { return descriptor(); }

private:
    friend class Bus;
    explicit Queue(std::shared_ptr<Detail::Endpoint> endpoint, std::error_code error) noexcept
        : BusHandle(std::move(endpoint), error)
    {}
};

} // namespace Telvane

/// \cond
/// Makes BusError values convert to `std::error_code`.
template <>
struct std::is_error_code_enum<Telvane::BusError> : std::true_type
{};
/// \endcond

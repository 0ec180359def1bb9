/// \file
/// Types that Bus uses: results, states, events, options, and the handles of subscriptions.
#pragma once

#include <Telvane/TelvaneDataTypeBase.h>
#include <Telvane/detail/Export.h>

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
    OutOfMemory,      ///< memory ran out (`not_enough_memory`)
    NotWritable,      ///< the record could not be written as JSON (`invalid_argument`)
    Lost,             ///< the connection was lost (`connection_reset`)
    Closed,           ///< the bus or the handle has ended (`operation_canceled`)
    Refused,          ///< the server refused the channel: its name, or a limit (`operation_not_permitted`)
    WouldDeadlock,    ///< the caller would wait for itself (`resource_deadlock_would_occur`)
    NoServer,         ///< no server serves the path (`connection_refused`)
    NoPermission,     ///< this user may not open the socket's file (`permission_denied`)
    Busy,       ///< the server does not accept connections at present (`resource_unavailable_try_again`)
    TurnedAway, ///< the server closed the connection without an answer: this user may not connect, or it has too
                ///< many clients (`connection_aborted`)
    NoAnswer, ///< the server does not answer (`timed_out`)
    NotABus,  ///< the path is not the socket of a server (`wrong_protocol_type`)
    BadPath,  ///< the path is empty or has more than 107 characters (`filename_too_long`)
};

/// \return the category of BusError
TELVANE_EXPORT const std::error_category& busCategory() noexcept;

/// \return \p error as an error code; found by argument-dependent lookup
inline std::error_code make_error_code(BusError error) noexcept
{
    return {static_cast<int>(error), busCategory()};
}

/// The result of a publication.
struct TELVANE_EXPORT Publication
{
    /// The largest message, in bytes, that every subscriber can receive: the server adds up to 20 bytes.
    static constexpr std::size_t kLimit = 16363;

    std::error_code error;          ///< empty if the message was sent or queued
    bool queued = false;            ///< kept in the outbox until the bus is connected
    std::size_t size = 0;           ///< size of the message in bytes; 0 if it was not printed
    std::uint64_t reserved[2] = {}; ///< 0, for members to come

    /// \return the error alone, for `std::error_code error = bus.publish(record);`
    operator std::error_code() const { return error; } // NOLINT(google-explicit-constructor): is an error

    /// \return the result in words, for example "the message has 20000 bytes, at most 16363 arrive"
    std::string message() const;
};

/// Number, connection and time of a received message.
struct Delivery
{
    int sequence = 0; ///< number given by the server, 0 to 65535; it counts all channels
    /// Numbers between the subscription's previous message and this one; 0 for the first of a connection.
    /// They belong to other channels, or to messages that were lost.
    unsigned skippedNumbers = 0;
    std::uint64_t epoch = 0;                       ///< number of the connection, counted from 1
    std::chrono::steady_clock::time_point arrival; ///< when the packet was received
    std::uint64_t reserved[2] = {};                ///< 0, for members to come
};

/// State of the connection.
enum class ConnectionState
{
    Connecting, ///< there is no connection; the bus tries to connect
    Connected,  ///< the server has answered every subscription
    Closed,     ///< closed by the application, or because the path is invalid; final
};

/// The thread of a callback.
enum class Run
{
    Default,  ///< as BusOptions::run
    Queued,   ///< the worker thread of the bus; everything is allowed there
    Direct,   ///< the receiver thread, with the shortest delay; must be fast, and cannot wait for the server
    Dispatch, ///< the thread that calls Bus::dispatch()
};

/// The message that a full queue drops.
enum class Overflow
{
    DropOldest, ///< the oldest message in the queue
    DropNewest, ///< the message that just arrived
};

/// Limit of a queue.
struct Limit
{
    std::size_t messages = 1000;              ///< maximum number of messages in the queue, at least 1
    Overflow overflow = Overflow::DropOldest; ///< the message to drop if there is one more
    std::uint64_t reserved[2] = {};           ///< 0, for limits to come
};

/// Counters of a subscription, responder or queue.
struct EndpointStatistics
{
    std::uint64_t delivered = 0;    ///< callbacks run, or messages taken from a queue
    std::uint64_t dropped = 0;      ///< lost because the queue was full
    std::uint64_t undecodable = 0;  ///< payloads that the class could not read
    std::uint64_t threw = 0;        ///< callbacks that ended with an exception
    std::uint64_t unanswered = 0;   ///< responders: answers that could not be published
    std::size_t waiting = 0;        ///< messages in the queue now
    std::uint64_t reserved[4] = {}; ///< 0, for counters to come
};

/// Counters of a bus since its construction.
struct BusStatistics
{
    std::uint64_t connections = 0;    ///< connections made, which is also the current epoch
    std::uint64_t received = 0;       ///< packets received from servers
    std::uint64_t notJson = 0;        ///< of those: not JSON, including messages that were cut
    std::uint64_t notSubscribed = 0;  ///< of those: for a channel without a subscription
    std::uint64_t withoutPayload = 0; ///< of those: without "payload"
    std::uint64_t outOfMemory = 0;    ///< of those: lost because memory ran out
    std::uint64_t outboxDropped = 0;  ///< publications dropped from the outbox: too many
    std::uint64_t outboxExpired = 0;  ///< publications dropped from the outbox: too old
    std::size_t outboxWaiting = 0;    ///< publications in the outbox now
    std::uint64_t eventsDropped = 0;  ///< events not reported because too many waited
    std::uint64_t reserved[6] = {};   ///< 0, for counters to come
};

/// An event that a bus reports.
struct BusEvent
{
    /// Kinds of events.
    enum class Kind
    {
        StateChanged,        ///< BusEvent::state has changed; BusEvent::reason is why a connection ended
        AttemptFailed,       ///< an attempt to connect failed, for another reason than the previous one
        SubscriptionRefused, ///< the server refused BusEvent::channel
        MessagesDropped,     ///< a queue of BusEvent::channel is full; reported once until it is empty again
        CallbackThrew, ///< an exception left a callback of BusEvent::channel; BusEvent::text is its message
    };

    Kind kind = Kind::StateChanged;                      ///< kind of event
    ConnectionState state = ConnectionState::Connecting; ///< state of the connection at that time
    std::error_code reason;                              ///< reason of a failure; empty if nothing failed
    std::string channel;                                 ///< channel of the event; empty for the connection
    std::string text;                                    ///< details in words; may be empty
    std::uint64_t epoch = 0;                             ///< number of the connection
};

/// Limits of the publications that are kept while there is no connection.
struct OutboxLimit
{
    std::size_t messages = 0;                               ///< maximum number of messages; 0 keeps none
    std::chrono::nanoseconds age = std::chrono::seconds(5); ///< older ones are dropped
    std::uint64_t reserved[2] = {};                         ///< 0, for limits to come
};

/// Settings of a bus.
struct BusOptions
{
    std::chrono::nanoseconds deadline =
        std::chrono::seconds(1); ///< of operations without a time-out argument
    std::chrono::nanoseconds firstPause =
        std::chrono::milliseconds(100);                              ///< before the second attempt to connect
    std::chrono::nanoseconds longestPause = std::chrono::seconds(5); ///< maximum between attempts
    Run run = Run::Queued;                                           ///< meaning of Run::Default
    OutboxLimit outbox;                                              ///< off by default
    /// Called for each event, on the worker thread, or in Bus::dispatch() if `run` is Run::Dispatch.
    std::function<void(const BusEvent& event)> onEvent;
    std::uint64_t reserved[8] = {}; ///< 0, for settings to come
};

namespace Detail
{

class Endpoint;

/// An item of a queue, independent of its type.
struct Item
{
    /// Kinds of items.
    enum class Kind
    {
        Message,
        TimedOut,
        Connected,
        Lost,
        Ended,
    };

    Kind kind = Kind::TimedOut;                  ///< kind of item
    std::unique_ptr<TelvaneDataTypeBase> record; ///< record of a message
    Delivery delivery;                           ///< number, connection and time of a message
    std::error_code reason;                      ///< reason of a loss or an end
};

} // namespace Detail

/// The common base of Subscription, Responder and Queue.
///
/// The destructor of a handle ends its subscription, responder or queue. When end() returns, the callback is not
/// running and will not run again. In the callback itself, end() returns at once and takes effect when the callback
/// returns. end() waits for a running callback: if that callback needs a lock that the caller holds, both wait
/// forever; use cancel() instead. A handle may outlive its Bus.
/// \par Threads  Any thread, including callbacks. Only one thread at a time may move, assign or destroy a handle.
class TELVANE_EXPORT BusHandle
{
public:
    /// An ended handle.
    BusHandle() = default;
    /// Takes over from \p other, which is an ended handle afterwards.
    BusHandle(BusHandle&& other) noexcept = default;
    /// Calls end(), then takes over from \p other.
    BusHandle& operator=(BusHandle&& other) noexcept;
    BusHandle(const BusHandle&) = delete;
    BusHandle& operator=(const BusHandle&) = delete;
    /// Calls end().
    ~BusHandle();

    /// Ends the subscription, responder or queue, and waits until its callback has returned.
    void end();

    /// Ends the subscription, responder or queue without waiting: its callback may still be running.
    void cancel();

    /// Releases the handle: the subscription, responder or queue then lasts as long as the Bus.
    void keep() &&;

    /// \return false once it has ended
    bool active() const;

    /// \return empty while there is no error; BusError::Refused; BusError::OutOfMemory; BusError::Closed, or why
    ///         the bus was closed at once; an error of the system if the worker thread cannot be created
    std::error_code error() const;

    /// Waits until the server has accepted the subscription.
    /// \param timeout maximum time to wait
    /// \return empty; BusError::TimedOut; an error as from error(); BusError::WouldDeadlock in a callback with
    ///         Run::Direct
    std::error_code waitActive(std::chrono::nanoseconds timeout) const;

    /// \return the counters
    EndpointStatistics statistics() const;

protected:
    /// \param endpoint the subscription, responder or queue; null for an ended handle
    /// \param error    why there is none
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

/// The result of Queue::next(): a message, a time-out, a change of the connection, or the end.
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
    /// Takes over an item of a queue.
    explicit QueueItem(Detail::Item item) : m_item(std::move(item)) {}

    /// \return whether it is a message; only then is there a record
    explicit operator bool() const { return m_item.kind == Detail::Item::Kind::Message; }
    /// \return whether no item arrived before the deadline
    bool timedOut() const { return m_item.kind == Detail::Item::Kind::TimedOut; }
    /// \return whether the bus has reconnected after a loss
    bool connected() const { return m_item.kind == Detail::Item::Kind::Connected; }
    /// \return whether the connection has been lost; the bus reconnects
    bool lost() const { return m_item.kind == Detail::Item::Kind::Lost; }
    /// \return whether the queue has ended: there will be no more items
    bool ended() const { return m_item.kind == Detail::Item::Kind::Ended; }

    /// \name The record of a message
    /// @{
    /// \return the record
    const Record& operator*() const { return static_cast<const Record&>(*m_item.record); }
    /// \return the record
    const Record* operator->() const { return &**this; }
    /// @}
    /// \return number, connection and time of a message
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

/// A queue of messages, which the application takes with next(). Returned by Bus::queue().
template <class Record>
class [[nodiscard]] Queue : public BusHandle
{
public:
    /// An ended queue.
    Queue() = default;

    /// Takes the next message or change of the connection.
    /// \param timeout maximum time to wait; 0 does not wait
    /// \return the item, which owns its record
    /// \par Threads  Any thread. If several wait, each message goes to one of them.
    QueueItem<Record> next(std::chrono::nanoseconds timeout) { return QueueItem<Record>(nextItem(timeout)); }

    /// Returns a descriptor that is readable while next() would return an item or the end of the queue.
    ///
    /// Use it with poll(), epoll and event loops. It stays the same when the bus reconnects. Do not read from it. If
    /// you wait for it edge-triggered, call next(0) until it times out.
    /// \return the descriptor, which the queue owns; -1, with errno set, if it cannot be created
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

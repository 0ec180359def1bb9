/// \file
/// The client for applications. It is typed, limits all queues and waits, and reconnects.
#pragma once

#include <Telvane/BusTypes.h>
#include <Telvane/RequestType.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace Telvane
{

namespace Detail
{

class BusState;

/// A callable of the application, independent of its type.
class TELVANE_EXPORT MessageHandler
{
public:
    MessageHandler() = default;
    MessageHandler(const MessageHandler&) = delete;
    MessageHandler& operator=(const MessageHandler&) = delete;
    virtual ~MessageHandler();
    /// Calls the application. May throw what the application throws.
    /// \return a responder's answer, or null
    virtual std::unique_ptr<TelvaneDataTypeBase> handle(TelvaneDataTypeBase& record,
                                                        const Delivery& delivery) = 0;
};

/// Settings of a subscription, responder or queue.
struct EndpointSettings
{
    /// Kinds of endpoints.
    enum class Kind
    {
        Callback,
        Responder,
        Queue,
    };

    Kind kind = Kind::Callback;     ///< use of the messages
    Run run = Run::Default;         ///< thread of the callback
    Limit limit;                    ///< limit of the queue
    std::uint64_t reserved[2] = {}; ///< 0, for settings to come
};

/// Calls \p callable with as many of the arguments as it takes.
template <class Callable, class Record>
decltype(auto) call(Callable& callable, const Record& record, const Delivery& delivery)
{
    if constexpr (std::is_invocable_v<Callable&, const Record&, const Delivery&>) {
        return callable(record, delivery);
    } else if constexpr (std::is_invocable_v<Callable&, const Record&>) {
        return callable(record);
    } else {
        static_assert(std::is_invocable_v<Callable&>,
                      "a callback takes (const Record&, const Delivery&), (const Record&) or ()");
        return callable();
    }
}

/// A subscription's callable.
template <class Record, class Callable>
class CallbackHandler : public MessageHandler
{
public:
    /// Keeps the callable.
    explicit CallbackHandler(Callable callable) : m_callable(std::move(callable)) {}
    std::unique_ptr<TelvaneDataTypeBase> handle(TelvaneDataTypeBase& record,
                                                const Delivery& delivery) override
    {
        call(m_callable, static_cast<const Record&>(record), delivery);
        return nullptr;
    }

private:
    Callable m_callable;
};

/// A responder's callable.
template <class Answer, class Argument, class Callable>
class ResponderHandler : public MessageHandler
{
public:
    /// Keeps the callable.
    explicit ResponderHandler(Callable callable) : m_callable(std::move(callable)) {}
    std::unique_ptr<TelvaneDataTypeBase> handle(TelvaneDataTypeBase& record,
                                                const Delivery& delivery) override
    {
        std::optional<Answer> answer = call(m_callable, static_cast<const Argument&>(record), delivery);
        return answer ? std::make_unique<Answer>(std::move(*answer)) : nullptr;
    }

private:
    Callable m_callable;
};

/// \return the name of a class without its namespaces
TELVANE_EXPORT std::string classNameOf(const std::type_info& type);

/// \return the channel that is named like \p Record
template <class Record>
const std::string& channelNamedAs()
{
    static_assert(std::is_base_of_v<TelvaneDataTypeBase, Record>,
                  "only records travel: classes derived from TelvaneDataTypeBase");
    static_assert(!std::is_abstract_v<Record>, "the record's own class is not known here: give a channel");
    static const std::string name = classNameOf(typeid(Record));
    return name;
}

} // namespace Detail

/// A connection to a bus: publishes records, receives them with callbacks and queues, and sends and answers
/// requests.
///
///     Telvane::Bus bus("/run/telvane/bus");
///     auto samples = bus.subscribe<Telvane::WeldTraceData>(
///         [](const Telvane::WeldTraceData& sample) { std::printf("%.1f V\n", sample.data.volts); });
///     std::error_code error = bus.publish(Telvane::LogData());
///
/// It connects in the background. After each loss of the connection, it reconnects and resubscribes. Every wait
/// has a deadline. docs/bus.md lists all guarantees.
///
/// Operations without a channel use the one with the name of the record's class.
/// \par Threads  All operations may be called from any thread, including callbacks. Only one thread may destroy
///               the bus, when no other uses it. A bus has a receiver thread, and a worker thread if callbacks
///               are queued (Run::Queued).
/// \par Errors   Results are `std::error_code`s, empty for success. Nothing is thrown, except
///               `std::bad_alloc` by the constructor.
class TELVANE_EXPORT Bus
{
public:
    /// Starts to connect to the server at \p path.
    /// \param path    path of the server's socket, 1 to 107 characters; with any other length, the bus is closed at
    ///                once (BusError::BadPath)
    /// \param options copied; see BusOptions
    explicit Bus(const std::string& path, BusOptions options = {});
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    /// Calls close().
    ~Bus();

    /// Disconnects, and ends all subscriptions, responders, queues and waits. The bus cannot be used again.
    ///
    /// Waits for running callbacks, except for those that it is called from. Does not wait for the server.
    void close();

    /// \name Connection
    /// @{

    /// \return the state
    ConnectionState state() const;
    /// \return why there is no connection; empty while there is one
    std::error_code reason() const;
    /// Waits until the bus is connected.
    /// \return empty; BusError::TimedOut; BusError::Closed; BusError::WouldDeadlock in a callback with
    ///         Run::Direct
    std::error_code waitConnected(std::chrono::nanoseconds timeout) const;
    /// \return the counters
    BusStatistics statistics() const;
    /// @}

    /// \name Publishing
    /// Sends a record to every subscriber of a channel.
    /// \return the result, which converts to `std::error_code`: empty if sent or queued; BusError::NotConnected,
    ///         BusError::TimedOut, BusError::TooLarge, BusError::NotWritable, BusError::OutOfMemory,
    ///         BusError::Closed
    /// \par Threads  Any. Waits for space in the server's socket, at most until the deadline.
    /// @{

    /// Publishes on the channel that is named like the record's class.
    template <class Record>
    Publication publish(const Record& record)
    {
        return withNameOf<Record, Publication>(
            [&](const std::string& name) { return publish(name, record); });
    }
    /// The same with a deadline for this call.
    template <class Record>
    Publication publish(const Record& record, std::chrono::nanoseconds timeout)
    {
        return withNameOf<Record, Publication>(
            [&](const std::string& name) { return publish(name, record, timeout); });
    }
    /// Publishes on \p channel.
    Publication publish(const std::string& channel, const TelvaneDataTypeBase& record);
    /// The same with a deadline for this call.
    Publication publish(const std::string& channel, const TelvaneDataTypeBase& record,
                        std::chrono::nanoseconds timeout);
    /// @}

    /// \name Subscribing
    /// Calls a callable for each record on a channel, until the handle ends.
    ///
    /// The callable takes `(const Record&, const Delivery&)` or less. It may be movable only. An exception
    /// that leaves it is caught, counted and reported.
    /// \return the handle; on failure, BusHandle::error() returns the reason
    /// @{

    /// Subscribes to the channel that is named like \p Record.
    template <class Record, class Callable>
    std::enable_if_t<!std::is_convertible_v<Callable, std::string>, Subscription>
    subscribe(Callable callable, Run run = Run::Default, Limit limit = {})
    {
        return withNameOf<Record, Subscription>([&](const std::string& name) {
            return subscribe<Record>(name, std::move(callable), run, limit);
        });
    }
    /// Subscribes to \p channel.
    template <class Record, class Callable>
    Subscription subscribe(const std::string& channel, Callable callable, Run run = Run::Default,
                           Limit limit = {})
    {
        return make<Subscription>(channel, {Detail::EndpointSettings::Kind::Callback, run, limit}, [&] {
            return Parts{std::make_unique<Record>(),
                         std::make_unique<Detail::CallbackHandler<Record, Callable>>(std::move(callable))};
        });
    }
    /// Subscribes with a class that is known only at run time.
    /// \param prototype a record of the class to read payloads into; used only during the call
    Subscription
    subscribe(const std::string& channel, const TelvaneDataTypeBase& prototype,
              std::function<void(TelvaneDataTypeBase& record, const Delivery& delivery)> callback,
              Run run = Run::Default, Limit limit = {});
    /// Subscribes to \p channel, and passes payloads on as text instead of reading them into records.
    ///
    /// For programs that forward or store records: it saves the time to parse and print them. Payloads of every class
    /// arrive, because only their syntax is checked.
    /// \param callback called with the payload's bytes as the server has sent them: one JSON value that the JSON library
    ///                 accepts, at most 16,383 bytes, with any white space inside and none around it. It contains no
    ///                 zero byte, is not terminated, and need not be valid UTF-8. It exists only during the call.
    Subscription
    subscribeText(const std::string& channel,
                  std::function<void(std::string_view payload, const Delivery& delivery)> callback,
                  Run run = Run::Default, Limit limit = {});

    /// Subscribes to the channel that is named like \p Record. The application takes the messages from a queue.
    template <class Record>
    Queue<Record> queue(Limit limit = {})
    {
        return withNameOf<Record, Queue<Record>>(
            [&](const std::string& name) { return queue<Record>(name, limit); });
    }
    /// Subscribes to \p channel. The application takes the messages from a queue.
    template <class Record>
    Queue<Record> queue(const std::string& channel, Limit limit = {})
    {
        return make<Queue<Record>>(channel, {Detail::EndpointSettings::Kind::Queue, Run::Default, limit}, [] {
            return Parts{std::make_unique<Record>(), nullptr};
        });
    }
    /// @}

    /// \name Requests
    /// Publishes a request on kRequestPrefix + the channel, and waits for the answer on the channel.
    ///
    /// The request has an `_id`, which responders on Bus copy into the answer. An answer without such an `_id` is
    /// accepted as well. The `_id` of \p answer is set to empty.
    /// \param[out] answer  set to the answer; unchanged on failure
    /// \return empty; BusError::TimedOut, also without a responder; BusError::Lost, BusError::NotConnected,
    ///         BusError::Refused, BusError::Closed, BusError::TooLarge, BusError::NotWritable,
    ///         BusError::OutOfMemory; BusError::WouldDeadlock in a callback with Run::Direct, or in the responder
    ///         that would have to answer
    /// \par Threads  Any. Waits until the deadline at most.
    /// @{

    /// Requests the record of the channel that is named like \p Answer.
    template <class Answer>
    std::error_code request(Answer& answer, std::chrono::nanoseconds timeout)
    {
        return withNameOf<Answer, std::error_code>(
            [&](const std::string& name) { return request(name, RequestType(), answer, timeout); });
    }
    /// The same within the deadline of BusOptions.
    template <class Answer>
    std::error_code request(Answer& answer)
    {
        return withNameOf<Answer, std::error_code>(
            [&](const std::string& name) { return request(name, RequestType(), answer); });
    }
    /// Sends \p argument as the request.
    template <class Answer, class = std::enable_if_t<std::is_base_of_v<TelvaneDataTypeBase, Answer>>>
    std::error_code request(const TelvaneDataTypeBase& argument, Answer& answer,
                            std::chrono::nanoseconds timeout)
    {
        return withNameOf<Answer, std::error_code>(
            [&](const std::string& name) { return request(name, argument, answer, timeout); });
    }
    /// The same within the deadline of BusOptions.
    template <class Answer, class = std::enable_if_t<std::is_base_of_v<TelvaneDataTypeBase, Answer>>>
    std::error_code request(const TelvaneDataTypeBase& argument, Answer& answer)
    {
        return withNameOf<Answer, std::error_code>(
            [&](const std::string& name) { return request(name, argument, answer); });
    }
    /// Requests the record of \p channel.
    std::error_code request(const std::string& channel, const TelvaneDataTypeBase& argument,
                            TelvaneDataTypeBase& answer, std::chrono::nanoseconds timeout);
    /// The same within the deadline of BusOptions.
    std::error_code request(const std::string& channel, const TelvaneDataTypeBase& argument,
                            TelvaneDataTypeBase& answer);

    /// Requests the last record of the channel that is named like \p Record.
    ///
    /// A responder answers, or else a server that keeps last messages (`telvane serve --remember`).
    /// \return the record, or the error as from request()
    template <class Record>
    Latest<Record> latest(std::chrono::nanoseconds timeout)
    {
        return withNameOf<Record, Latest<Record>>(
            [&](const std::string& name) { return latest<Record>(name, timeout); });
    }
    /// Requests the last record of \p channel.
    template <class Record>
    Latest<Record> latest(const std::string& channel, std::chrono::nanoseconds timeout)
    {
        Latest<Record> latest;
        latest.error = request(channel, RequestType(), latest.record, timeout);
        return latest;
    }

    /// Answers requests for the channel that is named like \p Answer.
    /// \param callable takes `(const Argument&, const Delivery&)` or less; returns an \p Answer, or a
    ///                 `std::optional` of one, empty to leave the request unanswered
    template <class Answer, class Argument = RequestType, class Callable>
    std::enable_if_t<!std::is_convertible_v<Callable, std::string>, Responder>
    respond(Callable callable, Run run = Run::Default, Limit limit = {})
    {
        return withNameOf<Answer, Responder>([&](const std::string& name) {
            return respond<Answer, Argument>(name, std::move(callable), run, limit);
        });
    }
    /// Answers requests for \p channel.
    template <class Answer, class Argument = RequestType, class Callable>
    Responder respond(const std::string& channel, Callable callable, Run run = Run::Default, Limit limit = {})
    {
        using Handler = Detail::ResponderHandler<Answer, Argument, Callable>;
        return make<Responder>(channel, {Detail::EndpointSettings::Kind::Responder, run, limit}, [&] {
            return Parts{std::make_unique<Argument>(), std::make_unique<Handler>(std::move(callable))};
        });
    }
    /// @}

    /// \name Callbacks on a thread of the application
    /// @{

    /// Runs the queued callbacks with Run::Dispatch. Does not wait for further messages.
    /// \return number of callbacks run
    std::size_t dispatch();
    /// \return a descriptor that is readable while dispatch() has callbacks to run; always the same one, which
    ///         the bus owns; -1, with errno set, if it cannot be created
    int fd();
    /// @}

private:
    struct Parts
    {
        std::unique_ptr<TelvaneDataTypeBase> prototype;
        std::unique_ptr<Detail::MessageHandler> handler;
    };

    static Publication failure(const Publication* /*kind*/)
    {
        Publication publication;
        publication.error = BusError::OutOfMemory;
        return publication;
    }
    static std::error_code failure(const std::error_code* /*kind*/) { return BusError::OutOfMemory; }
    template <class Record>
    static Latest<Record> failure(const Latest<Record>* /*kind*/)
    {
        Latest<Record> latest;
        latest.error = BusError::OutOfMemory;
        return latest;
    }
    template <class Handle>
    static Handle failure(const Handle* /*kind*/)
    {
        return Handle(nullptr, BusError::OutOfMemory);
    }

    /// Calls \p operation with the name of a class. Determining the name allocates memory the first time.
    template <class Record, class Result, class Operation>
    static Result withNameOf(Operation operation)
    {
        const std::string* name = nullptr;
        try {
            name = &Detail::channelNamedAs<Record>();
        } catch (const std::bad_alloc&) {
            return failure(static_cast<const Result*>(nullptr));
        }
        return operation(*name);
    }

    template <class Handle, class Maker>
    Handle make(const std::string& channel, const Detail::EndpointSettings& settings, Maker maker)
    {
        try {
            Parts parts = maker();
            std::error_code error;
            auto endpoint =
                addEndpoint(channel, settings, std::move(parts.prototype), std::move(parts.handler), error);
            return Handle(std::move(endpoint), error);
        } catch (const std::bad_alloc&) {
            return Handle(nullptr, BusError::OutOfMemory);
        }
    }

    std::shared_ptr<Detail::Endpoint> addEndpoint(const std::string& channel,
                                                  const Detail::EndpointSettings& settings,
                                                  std::unique_ptr<TelvaneDataTypeBase> prototype,
                                                  std::unique_ptr<Detail::MessageHandler> handler,
                                                  std::error_code& error);

    std::shared_ptr<Detail::BusState> m_state;
};

} // namespace Telvane

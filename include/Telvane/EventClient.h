/// \file
/// A process's connection to the event bus.
#pragma once

#include <Telvane/BusCounters.h>
#include <Telvane/Export.h>
#include <Telvane/TelvaneDataTypeBase.h>

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Telvane
{

/// What a client has counted since its construction.
struct EventClientStatistics
{
    TELVANE_COUNTER_MEMBERS(TELVANE_CLIENT_COUNTERS)
};

/// All counters of EventClientStatistics.
constexpr auto kClientCounters = TELVANE_COUNTER_TABLE(EventClientStatistics, TELVANE_CLIENT_COUNTERS);

/// Connects to an EventServer, publishes records on channels and receives them through callbacks.
///
/// A channel that is subscribed to is named by ASCII letters and underscores only. Callbacks run on the
/// client's one receiver thread with the closure-table lock held: a callback may Publish(), but must not
/// Subscribe(), Unsubscribe() or Request() on the same client, whose answers only that thread could read. The
/// first would time out, the others are refused with `-EDEADLK`.
///
/// Results are 0, negated POSIX error numbers, or a positive count where told. Any operation that sends may
/// also return `-ENOMEM`, having sent nothing; nothing is thrown, but by the constructor `std::bad_alloc`,
/// and by a callback of the application's, whose exceptions pass. All operations may be called from several
/// threads, except that Connect(), Disconnect() and destruction belong to one thread at a time.
class TELVANE_EXPORT EventClient
{
public:
    /// What is called with a received record.
    /// \param client   the EventClient
    /// \param record   lives only for the call: copy() what is kept
    /// \param sequence the relay's sequence number, 0 to 65535; 0 when it had none
    /// \param user     the pointer given to Subscribe()
    using Callback = std::function<void(void* client, TelvaneDataTypeBase* record, int sequence, void* user)>;

    EventClient();
    /// Disconnects.
    virtual ~EventClient();
    EventClient(const EventClient&) = delete;
    EventClient& operator=(const EventClient&) = delete;

    /// Connects to the server at \p path and starts the receiver thread.
    /// \param path at most 107 characters; a longer one ends the process
    /// \return 0; `-EADDRINUSE` when already connected; -1 when nobody serves the path; `-ENOMEM`
    int Connect(const std::string& path);

    /// Closes the connection, ends the receiver thread and forgets all subscriptions.
    /// \return 0; `-ENOTCONN`; `-EALREADY` when the socket could not be shut down; `-ETIMEDOUT` when the
    ///         receiver thread did not end within 10 seconds (a callback that does not return)
    int Disconnect();

    /// \return true between Connect() and Disconnect(), even when the server has gone away in the meantime
    bool IsConnected();

    /// Sends \p record to every subscriber of \p channel. Blocks while the server is busy, and for good when
    /// the server has gone away, until Disconnect() is called.
    /// \return 0, also for a message of more than 16383 bytes, which nobody can read; `-ENOTCONN`; what
    ///         Package() returned if negative; the count sent when the system took only a part
    int Publish(const std::string& channel, TelvaneDataTypeBase& record);

    /// Subscribes to \p channel, in place of any earlier subscription to it. Waits up to 1 second.
    /// \param callback  called on the receiver thread for each record
    /// \param prototype its class decides what payloads are read into; only used during the call
    /// \param user      handed to the callback
    /// \return 0; `-ENOTCONN`; -1 when the server refused the channel's name; `-ETIMEDOUT`
    int Subscribe(const std::string& channel, Callback callback, const TelvaneDataTypeBase& prototype,
                  void* user);

    /// Ends a subscription. Waits up to 1 second.
    /// \return 0; `-ENOTCONN`; `-EINVAL` when not subscribed; -1 when the server refused; `-ETIMEDOUT`
    int Unsubscribe(const std::string& channel);

    /// Asks on "req_" + \p channel and waits one second for the next record on \p channel, which goes to all
    /// threads that wait for one, and not to a subscription that stands behind them. A Subscribe() meanwhile
    /// takes the channel over, and the answer with it.
    /// \param[out] record  filled with the answer; its class decides what the answer is read into
    /// \param      timeout not consulted; EventClientSynchronizer::Request() has one that is
    /// \return 0; `-ENOTCONN`; `-ETIMEDOUT` when there was no answer
    int Request(const std::string& channel, TelvaneDataTypeBase& record, int timeout);

    /// Sends one message, retrying for as long as nothing goes out and the client stays connected.
    /// \param length clamped to 0 to 16384
    /// \return 0; the count sent when that was short; `-ENOTCONN` when the client was disconnected meanwhile
    int writeDataToSocket(char* data, int length);

    /// \name Meta exchanges
    /// The exchanges behind Subscribe() and Unsubscribe().
    /// \return 0; -1 refused; `-ETIMEDOUT`; a short count
    /// @{

    /// Sends the request and waits for its answer.
    int subscribeToServer(const std::string& channel);
    int unsubscribeFromServer(const std::string& channel);
    /// What the receiver thread calls for the answers.
    static void subscribeResponseHandler(EventClient* client, cJSON* message);
    static void unsubscribeResponseHandler(EventClient* client, cJSON* message);
    /// @}

    /// \name Additions
    /// Beyond the bus itself: everything here is off, or only observes, until it is used.
    /// @{

    /// Calls \p fn when the connection has ended without Disconnect(): the server stopped or died. To be
    /// installed before Connect(). It runs on the receiver thread, as the last thing there (thus not while a
    /// callback's own Publish() hangs), no lock held; it may call Disconnect(), which ends a Publish() that
    /// hangs, whether or not another thread calls it, too, but not Connect(), nor destroy the client.
    /// \return 0, or `-EINVAL` for an empty function
    int install_OnConnectionLost(std::function<void(EventClient& client)> fn);
    /// \return 0, or `-EALREADY` when none is installed
    int uninstall_OnConnectionLost();

    /// \return what the client has counted; the counters are read one after another while it runs
    /// \par Threads Any thread. Takes no lock.
    TELVANE_LOCAL EventClientStatistics Statistics() const
    {
        EventClientStatistics statistics;
        Statistics(statistics, sizeof statistics);
        return statistics;
    }

    /// The same for a program and a library of different versions: sets only the counters that both know.
    /// \param[out] statistics the program's own structure
    /// \param size its size, in bytes
    void Statistics(EventClientStatistics& statistics, std::size_t size) const;
    /// @}

    /// Entry of the receiver thread; not for callers.
    static void* rx_handler(void* client);

    /// What the receiver thread calls for messages of one header.
    class CallbackClosure
    {
    public:
        virtual ~CallbackClosure();
        /// \return 0, or the negative result of reading the payload
        virtual int ExecuteCallback(EventClient* client, cJSON* message) = 0;
    };

    /// The client's own handling of a meta response.
    class InternalOperationClosure : public CallbackClosure
    {
    public:
        /// What is called with the answer.
        using Operation = void (*)(EventClient* client, cJSON* message);
        /// Keeps the function.
        explicit InternalOperationClosure(Operation operation);
        int ExecuteCallback(EventClient* client, cJSON* message) override;

    private:
        Operation m_operation;
    };

    /// A subscription: builds the record and calls the application.
    class SubscriptionCallbackClosure : public CallbackClosure
    {
    public:
        /// \param prototype owned by the closure from here on
        SubscriptionCallbackClosure(TelvaneDataTypeBase* prototype, void* user, Callback callback);
        int ExecuteCallback(EventClient* client, cJSON* message) override;

    private:
        std::unique_ptr<TelvaneDataTypeBase> m_prototype;
        void* m_user;
        Callback m_callback;
    };

private:
    struct TELVANE_LOCAL State;
    std::unique_ptr<State> m_state;
};

} // namespace Telvane

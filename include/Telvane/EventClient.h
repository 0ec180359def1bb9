/// \file
/// The client of the event bus.
#pragma once

#include <Telvane/BusCounters.h>
#include <Telvane/TelvaneDataTypeBase.h>
#include <Telvane/detail/Export.h>

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Telvane
{

class JsonScanner;

/// What a client has counted since its construction.
struct EventClientStatistics
{
    TELVANE_COUNTER_MEMBERS(TELVANE_CLIENT_COUNTERS)
};

/// All counters of EventClientStatistics.
constexpr auto kClientCounters = TELVANE_COUNTER_TABLE(EventClientStatistics, TELVANE_CLIENT_COUNTERS);

/// A connection to an EventServer: publishes records and receives them through callbacks.
///
/// Names of channels that are subscribed to consist of ASCII letters and underscores.
///
/// **Results** are 0, negated POSIX error numbers, or positive counts where documented. Each operation that
/// sends may also return `-ENOMEM`, and has then sent nothing. Nothing throws except the constructor
/// (`std::bad_alloc`) and an application's own callback: its exceptions end the process.
///
/// **Threads**: Callbacks run on the client's one receiver thread with the table of closures locked. A
/// callback may call Publish(), but neither Subscribe(), which times out there, nor Unsubscribe() or
/// Request(), which return `-EDEADLK`: only the receiver thread could read their responses. All operations
/// may be called from several threads, except that Connect(), Disconnect() and the destructor must be called
/// from one thread at a time.
class TELVANE_EXPORT EventClient
{
public:
    /// Receives the records of a subscription.
    /// \param client   the EventClient
    /// \param record   the record; valid only during the call: copy() what you keep
    /// \param sequence sequence number of the message, 0 to 65535; 0 without one
    /// \param user     pointer that was given to Subscribe()
    using Callback = std::function<void(void* client, TelvaneDataTypeBase* record, int sequence, void* user)>;

    /// Creates a client that is not connected.
    EventClient();
    /// Disconnects, and waits for the receiver thread.
    virtual ~EventClient();
    EventClient(const EventClient&) = delete;
    EventClient& operator=(const EventClient&) = delete;

    /// Connects to the server at \p path and starts the receiver thread.
    /// \param path at most 107 characters; a longer path aborts the process
    /// \return 0; `-EADDRINUSE` if already connected; -1 if no server listens on \p path; `-ENOMEM`
    int Connect(const std::string& path);

    /// Closes the connection, ends the receiver thread and removes all subscriptions.
    /// \return 0; `-ENOTCONN` if not connected; `-EALREADY` if the socket cannot be shut down; `-ETIMEDOUT`
    ///         if the receiver thread did not end within 10 seconds because a callback did not return
    int Disconnect();

    /// \return true from Connect() to Disconnect(), even if the server has closed the connection
    bool IsConnected();

    /// Publishes \p record on \p channel.
    /// \return 0, even for a message of more than 16383 bytes, which no subscriber can read; `-ENOTCONN`; a
    ///         negative result of TelvaneDataTypeBase::Package(); the count of bytes sent if that was only a
    ///         part
    /// \par Threads Any thread, also a callback. Blocks while the server is busy. Blocks until Disconnect()
    ///      is called if the server has closed the connection.
    int Publish(const std::string& channel, TelvaneDataTypeBase& record);

    /// Subscribes to \p channel. Replaces an earlier subscription to it. Waits up to 1 second for the
    /// response.
    /// \param channel   name of the channel
    /// \param callback  called for each record
    /// \param prototype a record of the class to read payloads into
    /// \param user      passed to \p callback
    /// \return 0; `-ENOTCONN`; -1 if the server refused; `-ETIMEDOUT`
    /// \par Ownership The client copies \p callback and does not keep \p prototype. The caller owns \p user,
    ///      which must stay valid while subscribed.
    int Subscribe(const std::string& channel, Callback callback, const TelvaneDataTypeBase& prototype,
                  void* user);

    /// Removes the subscription to \p channel. Waits up to 1 second for the response.
    /// \return 0; `-ENOTCONN`; `-EINVAL` if not subscribed; -1 if the server refused; `-ETIMEDOUT`;
    ///         `-EDEADLK` in a callback. The subscription is kept unless the result is 0.
    int Unsubscribe(const std::string& channel);

    /// Publishes a request for \p channel and waits up to 1 second for the next record on it.
    ///
    /// The request is a RequestType on the channel kRequestPrefix + \p channel. All threads that wait for a
    /// record on the channel get it; a subscription to the channel does not. If another thread subscribes to
    /// the channel meanwhile, its callback gets the record, and the request times out.
    /// \param      channel name of the channel
    /// \param[out] record  set to the reply, whose payload is read as this record's class
    /// \param      timeout ignored; EventClientSynchronizer::Request() has a time-out of the caller's choice
    /// \return 0; `-ENOTCONN`; `-ETIMEDOUT` without a response or reply; `-EDEADLK` in a callback; a negative
    ///         result of Publish(), or a positive one negated
    int Request(const std::string& channel, TelvaneDataTypeBase& record, int timeout);

    /// Sends one message. Retries until at least a part is sent or the client is disconnected.
    /// \param data   the message; remains the caller's
    /// \param length its length in bytes, clamped to the range 0 to 16384
    /// \return 0; the count of bytes sent if that was less than the length; `-ENOTCONN`
    int writeDataToSocket(char* data, int length);

    /// \name Requests to the server
    /// Subscribe() and Unsubscribe() use these functions, which leave the client's callbacks alone.
    /// @{

    /// Sends a request for \p channel and waits up to 1 second for the response.
    /// \return 0; -1 if the server refused; `-ETIMEDOUT`; `-ENOTCONN`; the count of bytes sent if that was
    ///         only a part
    int subscribeToServer(const std::string& channel);
    /// Sends a request to end the subscription to \p channel, with the same results.
    int unsubscribeFromServer(const std::string& channel);
    /// Hands a response to the thread that waits for it. Do not call.
    static void subscribeResponseHandler(EventClient* client, cJSON* message);
    /// Hands a response to the thread that waits for it. Do not call.
    static void unsubscribeResponseHandler(EventClient* client, cJSON* message);
    /// @}

    /// \name Additions
    /// Notification and statistics of this library, switched off by default. They change nothing on the wire.
    /// @{

    /// Installs a function that is called when the server has closed the connection. Install it before
    /// Connect().
    /// \param fn called on the receiver thread without locks, as its last action, so not before a Publish() that
    ///        blocks in a callback has returned. It may call Disconnect(), which also ends a Publish() that blocks
    ///        on another thread, but must neither call Connect() nor destroy the client.
    /// \return 0, or `-EINVAL` if \p fn is empty
    int install_OnConnectionLost(std::function<void(EventClient& client)> fn);
    /// \return 0, or `-EALREADY` if no function is installed
    int uninstall_OnConnectionLost();

    /// \return what the client has counted since its construction
    /// \par Threads Any thread. Takes no lock, so counters that are read together may differ by a message.
    TELVANE_LOCAL EventClientStatistics Statistics() const
    {
        EventClientStatistics statistics;
        Statistics(statistics, sizeof statistics);
        return statistics;
    }

    /// Reads as many counters as both the program and the library know. Statistics() without arguments uses
    /// it.
    /// \param[out] statistics the program's structure; counters that the library does not know keep their
    ///         values
    /// \param      size       its size in bytes
    /// \par Threads Any thread. Takes no lock.
    void Statistics(EventClientStatistics& statistics, std::size_t size) const;
    /// @}

    /// Runs the receiver thread. Do not call.
    static void* rx_handler(void* client);

    /// Handles the messages of one channel on the receiver thread.
    class CallbackClosure
    {
    public:
        virtual ~CallbackClosure();
        /// \return 0, or the negative result of reading the payload
        virtual int ExecuteCallback(EventClient* client, cJSON* message) = 0;
    };

    /// Handles the server's responses.
    class InternalOperationClosure : public CallbackClosure
    {
    public:
        /// Called with each response.
        using Operation = void (*)(EventClient* client, cJSON* message);
        /// Creates a closure that calls \p operation.
        explicit InternalOperationClosure(Operation operation);
        int ExecuteCallback(EventClient* client, cJSON* message) override;

    private:
        Operation m_operation;
    };

    /// Handles the messages of a subscription: reads the payload into a record and calls the application.
    class SubscriptionCallbackClosure : public CallbackClosure
    {
    public:
        /// \par Ownership The closure owns \p prototype.
        SubscriptionCallbackClosure(TelvaneDataTypeBase* prototype, void* user, Callback callback);
        int ExecuteCallback(EventClient* client, cJSON* message) override;
        /// Like ExecuteCallback(), but reads the record directly from the text of the message.
        /// \return false, without any effect, if the text has to be parsed
        TELVANE_LOCAL bool deliver(EventClient& client, JsonScanner& relay, int sequence);

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

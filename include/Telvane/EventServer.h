/// \file
/// The server of the event bus.
#pragma once

#include <Telvane/EventServerStatus.h>
#include <Telvane/detail/Export.h>

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Telvane
{

/// A hook, or the handler of a channel.
/// \param server   the EventServer
/// \param client   descriptor of the client's socket
/// \param header   "header" of the message, which is its channel; empty without a message
/// \param sequence sequence number of the message, 0 to 65535; -1 without a message
/// \param payload  payload of the message, or null; valid only during the call
/// \param user     pointer that was installed with the hook
/// \return ignored by the server
using EventHandler = int (*)(void* server, int client, const std::string& header, int sequence,
                             cJSON* payload, void* user);

/// The server of a bus: accepts clients on a Unix-domain SOCK_SEQPACKET socket and relays what they publish.
///
/// The server relays each message to all clients that are subscribed to its channel, including the publisher
/// if it is subscribed. It never waits for a slow subscriber, which misses messages instead.
///
/// **Results** are 0 or negated POSIX error numbers, except where an operation documents others. Only the
/// constructor throws (`std::bad_alloc`). A server that is out of memory drops messages, which it counts, and
/// new clients, and continues to run.
///
/// **Threads**: One thread accepts clients, and one thread per client receives. Call Start(), StartOn() and
/// Stop() from one thread at a time, and not from a hook. Install hooks before Start(). Operations under
/// "Additions" may be called from any thread except where they document otherwise.
class TELVANE_EXPORT EventServer
{
public:
    /// Creates a server that is not started.
    EventServer();
    /// Does not stop a running server: call Stop() first.
    virtual ~EventServer();
    EventServer(const EventServer&) = delete;
    EventServer& operator=(const EventServer&) = delete;

    /// Creates the socket \p path and accepts clients on it. Replaces a socket file without a server.
    /// \param path at most 107 characters; a longer path aborts the process
    /// \return 0; -1 if already started, or if the socket cannot be created or bound; `-EADDRINUSE` if
    ///         another server listens on \p path; `-ENOMEM`; a positive error number if the thread cannot be
    ///         created
    int Start(const std::string& path);

    /// Disconnects all clients, ends all threads and removes the socket file.
    ///
    /// Keeps channels and the sequence number for the next Start(). Blocks until the threads have ended, for
    /// each up to 10 seconds.
    /// \return 0; `-ENOTCONN` if not started; `-EALREADY` if the socket cannot be shut down; `-ETIMEDOUT` if
    ///         a thread did not end because a hook did not return: then neither start nor destroy the server
    int Stop();

    /// \return true from a successful Start() or StartOn() until Stop()
    /// \par Threads Any thread.
    bool IsStarted();

    /// \name Hooks
    /// | Hook | Called | On thread | Lock held |
    /// |---|---|---|---|
    /// | connect | when a client's thread has started | listener | connections |
    /// | disconnect | after the client's descriptor was closed | the client's receiver | none |
    /// | subscribe, unsubscribe | after the response was sent, also a refusal | the client's receiver | handler |
    ///
    /// A hook must not throw, except `std::bad_alloc` from a subscribe or unsubscribe hook, which is caught
    /// and counted. docs/threads-and-locks.md describes the locks.
    ///
    /// The install functions replace the hook and return 0, or `-EINVAL` if \p fn is null, and then change
    /// nothing. The uninstall functions return 0, or `-EALREADY` if no hook is installed.
    /// \par Ownership The caller owns \p user, which must stay valid while the server runs.
    /// @{

    /// Installs or uninstalls a hook.
    int install_OnSubscribe(EventHandler fn, void* user);
    int install_OnUnsubscribe(EventHandler fn, void* user);
    int install_OnConnect(EventHandler fn, void* user);
    int install_OnDisconnect(EventHandler fn, void* user);
    int uninstall_OnSubscribe();
    int uninstall_OnUnsubscribe();
    int uninstall_OnConnect();
    int uninstall_OnDisconnect();
    /// @}

    /// Sends one message to a client.
    /// \param fd     descriptor of the client's socket
    /// \param data   the message; remains the caller's
    /// \param length its length in bytes, clamped to the range 0 to 16384
    /// \return 0; the count of bytes sent if that was less than the length; a negated error number, for
    ///         example `-EAGAIN` if the client's buffer is full
    /// \par Threads Any thread. Does not block.
    int writeDataToSocket(int fd, char* data, int length);

    /// \name Additions
    /// Status, limits and settings of this library, switched off by default. They change nothing on the wire.
    /// @{

    /// \return what the server has counted since its construction
    /// \par Threads Any thread. Takes no lock, so counters that are read together may differ by a message.
    TELVANE_LOCAL EventServerStatistics Statistics() const
    {
        EventServerStatistics statistics;
        Statistics(statistics, sizeof statistics);
        return statistics;
    }

    /// Reads as many counters as both the program and the library know. Statistics() without arguments uses
    /// it.
    /// \param[out] statistics the program's structure; counters that the library does not know keep their
    ///         values
    /// \param      size       its size in bytes
    /// \par Threads Any thread. Takes no lock.
    void Statistics(EventServerStatistics& statistics, std::size_t size) const;

    /// Sets the send buffer of clients that connect after this call.
    ///
    /// A larger buffer lets a slow subscriber fall further behind before it misses messages. The kernel's
    /// default holds about 170 samples of a weld. More than the system's limit needs CAP_NET_ADMIN.
    /// \param bytes size in bytes; 0 for the kernel's default
    /// \return 0, or `-EINVAL` if \p bytes is negative
    int SetSubscriberSendBuffer(int bytes);

    /// \return the send buffer, in bytes, of the client that connected last; 0 before the first
    int GrantedSubscriberSendBuffer() const;

    /// Enables or disables the line on standard error for each message that a subscriber misses.
    ///
    /// A subscriber that does not read makes the server write one for every message. If you disable the lines,
    /// report misses in your own way: Clients() and Statistics() count them.
    /// \param enabled true by default
    /// \par Threads Any thread, also while the server runs.
    void SetRelayErrorLines(bool enabled);

    /// Sets the stack size of threads that are created after this call. Hooks run on these threads.
    /// \param bytes size in bytes, at least 256 KiB. The default is 512 KiB: handling the deepest message
    ///        that the server accepts leaves about 256 KiB of it to a hook.
    /// \return 0, or `-EINVAL` if \p bytes is too small
    int SetThreadStackSize(std::size_t bytes);

    /// \return all connected clients with their subscriptions; empty if out of memory
    /// \par Threads Any thread, but not from a connect hook. Connecting and disconnecting clients wait until
    ///      it returns; a message waits while one client's subscriptions are copied.
    std::vector<EventServerClientStatus> Clients() const;

    /// \return all channels that have ever had a subscriber, in alphabetical order; empty if out of memory
    /// \par Threads Any thread. Takes no lock.
    std::vector<EventServerChannelStatus> Channels() const;

    /// Refuses connections and subscriptions beyond \p limits from now on. Existing ones stay.
    void SetLimits(EventServerLimits limits);

    /// Sets a function that decides who may publish, request and subscribe to what.
    ///
    /// A refused subscription gets the response of a refusal. A refused publication or request is dropped, counted and
    /// reported (see install_OnRefusal()), and takes no sequence number. The server remembers the decisions about a
    /// client's publications until the next call of SetPolicy(), so they cost little for each message. Existing
    /// subscriptions stay.
    /// \param allows returns whether an access is allowed; empty to allow everything. Called on the client's receiver
    ///        thread with the handler lock held. It must not throw, except `std::bad_alloc`, which refuses the access.
    /// \return 0, or `-ENOMEM`, and then nothing changes
    /// \par Threads Any thread, also while the server runs.
    int SetPolicy(std::function<bool(const EventServerAccess& access)> allows);

    /// Keeps the last message of some channels, and answers requests for it that no client is subscribed to.
    ///
    /// The answer is the kept message with its own sequence number and the `_id` of the request. Only the
    /// client that requests it gets it, and only if it is subscribed to the channel. Beyond the limits, the
    /// server drops the oldest message. Messages on channels without subscribers are kept as well. Call it before
    /// Start().
    /// \return 0, or `-ENOMEM`
    int SetMemory(EventServerMemory memory);

    /// Installs a function that is called for each refusal. Without one, the server prints a line on standard
    /// error, but only for the first refused message of a client on each channel. Install it before Start().
    /// \param fn called on the listener thread without locks for a connection, and on the client's receiver
    ///        thread with the handler lock held for anything else; must not throw, except `std::bad_alloc`
    /// \return 0, or `-EINVAL` if \p fn is empty
    int install_OnRefusal(std::function<void(EventServer& server, const EventServerRefusal& refusal)> fn);
    /// \return 0, or `-EALREADY` if no function is installed
    int uninstall_OnRefusal();

    /// Accepts clients on a socket that exists already, for example one from a service manager. Otherwise
    /// like Start().
    ///
    /// Neither this function nor Stop() removes the socket's file or shuts the socket down, so clients that
    /// connect between two servers wait in its backlog for the second one.
    /// \param listeningDescriptor an AF_UNIX SOCK_SEQPACKET socket that listens
    /// \return 0; `-EALREADY` if already started; `-EINVAL` if it is not such a socket; another negated error
    ///         number, for example `-EMFILE`, if a descriptor for waking the thread cannot be created; a
    ///         positive error number if the thread cannot be created
    /// \par Ownership On success the server owns the descriptor: it makes it non-blocking and close-on-exec,
    ///      and Stop() closes it. On failure it remains the caller's.
    int StartOn(int listeningDescriptor);
    /// @}

    /// \name Thread entries and handlers
    /// The server's own functions. Do not call them.
    /// @{

    /// Runs a thread, or handles the messages of a channel.
    static void* connectionListener(void* server);
    static void* rx_handler(void* server);
    static int meta_subscribeHandler(void* server, int fd, const std::string& header, int sequence,
                                     cJSON* payload, void* user);
    static int meta_unsubscribeHandler(void* server, int fd, const std::string& header, int sequence,
                                       cJSON* payload, void* user);
    static int subscriptionHandler(void* server, int fd, const std::string& channel, int sequence,
                                   cJSON* payload, void* user);
    /// @}

private:
    struct TELVANE_LOCAL State;
    std::unique_ptr<State> m_state;
};

} // namespace Telvane

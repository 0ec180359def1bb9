/// \file
/// The hub of the event bus.
#pragma once

#include <Telvane/EventServerStatus.h>
#include <Telvane/Export.h>

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Telvane
{

/// Signature of channel handlers and hooks.
/// \param server   the EventServer
/// \param client   descriptor of the client's socket
/// \param header   the message's header (its channel), or empty
/// \param sequence the sequence number drawn for the message, or -1
/// \param payload  the message's payload, not to be kept beyond the call, or null
/// \param user     the pointer given when the hook was installed
/// \return ignored by the server
using EventHandler = int (*)(void* server, int client, const std::string& header, int sequence,
                             cJSON* payload, void* user);

/// Accepts clients on a Unix-domain SOCK_SEQPACKET socket and relays what they publish.
///
/// Each publication on a channel goes to every client that has subscribed to it, the publisher included
/// when it has. Delivery is at most once: the server never waits for a slow subscriber, which then misses
/// the message. The server runs one listening thread and one receiver thread per client.
///
/// Results are 0 or negated POSIX error numbers unless told otherwise; nothing is thrown, but by the
/// constructor `std::bad_alloc`. A server that runs out of memory loses messages, which it counts, and
/// clients that come, and goes on.
///
/// Threading: Start() and Stop() belong to one thread at a time and must not be called from a hook. Hooks
/// are to be installed before Start(). Everything under "Additions" may be called from any thread unless it
/// says otherwise.
class TELVANE_EXPORT EventServer
{
public:
    EventServer();
    /// Does not stop a running server: call Stop() first.
    virtual ~EventServer();
    EventServer(const EventServer&) = delete;
    EventServer& operator=(const EventServer&) = delete;

    /// Binds \p path and begins to accept clients. A socket file that nobody serves any more is replaced.
    /// \param path at most 107 characters; a longer one ends the process
    /// \return 0; -1 when already started, or when a socket cannot be had or bound; `-EADDRINUSE` when a live
    ///         server answers on \p path; a positive error number when no thread could be created;
    ///         `-ENOMEM`
    int Start(const std::string& path);

    /// Disconnects every client, ends all threads and removes the socket file. Subscribable channels and the
    /// sequence counter are kept for the next Start().
    /// \return 0; `-ENOTCONN` when not started; `-EALREADY` when the socket could not be shut down;
    ///         `-ETIMEDOUT` when a thread did not end within 10 seconds (a hook that does not return): it goes
    ///         on, and the server is neither to be started again nor destroyed
    int Stop();

    /// \return true between a successful Start(), or StartOn(), and Stop()
    bool IsStarted();

    /// \name Hooks
    /// - connect: on the listener thread, with the connections lock held, when a client's thread runs
    /// - disconnect: on the client's receiver thread, no lock held, when its descriptor has been closed
    /// - subscribe, unsubscribe: on the client's receiver thread, with the handler lock held, when the
    ///   response to the request was sent, whether it was accepted or refused
    ///
    /// A hook must not throw, only that want of memory (`std::bad_alloc`) in a subscribe or unsubscribe hook is
    /// borne and counted.
    ///
    /// Installing returns 0, or `-EINVAL` for a null function; uninstalling 0, or `-EALREADY` when there was
    /// none.
    /// @{

    /// One of the hooks, as told above.
    int install_OnSubscribe(EventHandler fn, void* user);
    int install_OnUnsubscribe(EventHandler fn, void* user);
    int install_OnConnect(EventHandler fn, void* user);
    int install_OnDisconnect(EventHandler fn, void* user);
    int uninstall_OnSubscribe();
    int uninstall_OnUnsubscribe();
    int uninstall_OnConnect();
    int uninstall_OnDisconnect();
    /// @}

    /// Sends one message to a client without ever blocking.
    /// \param length clamped to 0 to 16384
    /// \return 0; the count sent when that was short; a negated error number (`-EAGAIN` when the client's
    ///         buffer is full)
    int writeDataToSocket(int fd, char* data, int length);

    /// \name Additions
    /// Beyond the bus itself: everything here is off, or only observes, until it is used.
    /// @{

    /// \return what the server has counted; the counters are read one after another while it runs
    /// \par Threads Any thread. Takes no lock.
    TELVANE_LOCAL EventServerStatistics Statistics() const
    {
        EventServerStatistics statistics;
        Statistics(statistics, sizeof statistics);
        return statistics;
    }

    /// The same for a program and a library of different versions: sets only the counters that both know.
    /// \param[out] statistics the program's own structure
    /// \param size its size, in bytes
    void Statistics(EventServerStatistics& statistics, std::size_t size) const;

    /// Sets the send buffer of clients that connect from now on: how far each may fall behind before it
    /// misses relays. The kernel's default holds some 100 samples of a weld.
    /// \param bytes 0 for the kernel's default
    /// \return 0, or `-EINVAL` for a negative size
    int SetSubscriberSendBuffer(int bytes);

    /// \return the usable size that the kernel granted to the client that connected last, 0 before any has
    int GrantedSubscriberSendBuffer() const;

    /// Sets the stack size of the threads that are created from now on. Hooks run on them. The default of
    /// 512 KiB leaves about 256 KiB to a hook while the deepest message that is accepted is handled.
    /// \return 0, or `-EINVAL` for less than 256 KiB, which leave it next to nothing
    int SetThreadStackSize(std::size_t bytes);

    /// Relays wait for no longer than the list of one client is copied; clients that come or go wait for all
    /// of it. Not to be called from a connect hook.
    /// \return every connected client and how its subscriptions fare; nothing when memory has run out
    std::vector<EventServerClientStatus> Clients() const;

    /// Takes no lock: nobody waits.
    /// \return every channel ever subscribed to, by name; nothing when memory has run out
    std::vector<EventServerChannelStatus> Channels() const;

    /// Refuses from now on what goes beyond \p limits; what is there already stays.
    void SetLimits(EventServerLimits limits);

    /// Calls \p fn for each refusal that SetLimits() brings about, in place of a line on standard error. It
    /// is to be installed before Start(). A refused connection is told on the listener thread with no lock
    /// held, a refused subscription on the client's receiver thread with the handler lock held.
    /// \return 0, or `-EINVAL` for an empty function
    int install_OnRefusal(std::function<void(EventServer& server, const EventServerRefusal& refusal)> fn);
    /// \return 0, or `-EALREADY` when none is installed
    int uninstall_OnRefusal();

    /// Begins to accept clients on a socket that is there already, as a service manager hands it over. The
    /// socket belongs to whoever made it: neither this nor Stop() touches its file, and Stop() does not shut
    /// it down either, so that clients which come between two servers wait in it for the next one. For the
    /// rest this is Start(), and Stop() ends it.
    /// \param listeningDescriptor an AF_UNIX SOCK_SEQPACKET socket that listens. On success the server owns
    ///        it: it makes it non-blocking and closed on exec, and Stop() closes it. On failure it stays the
    ///        caller's.
    /// \return 0; `-EALREADY` when already started; `-EINVAL` for anything but such a socket; another negated
    ///         error number (`-EMFILE`) when the server cannot have a descriptor to be woken by; a positive
    ///         error number when no thread could be created
    int StartOn(int listeningDescriptor);
    /// @}

    /// \name Thread entries and handlers
    /// Not for callers.
    /// @{

    /// What a thread begins with, or a message is dispatched to.
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

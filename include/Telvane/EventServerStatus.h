/// \file
/// Status, limits and refusals of an EventServer.
#pragma once

#include <Telvane/BusCounters.h>
#include <Telvane/detail/Export.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace Telvane
{

/// Counters of a server since its construction.
struct EventServerStatistics
{
    TELVANE_COUNTER_MEMBERS(TELVANE_SERVER_COUNTERS)
};

/// All counters of EventServerStatistics.
constexpr auto kServerCounters = TELVANE_COUNTER_TABLE(EventServerStatistics, TELVANE_SERVER_COUNTERS);

/// One client's subscription to one channel.
struct EventServerSubscriptionStatus
{
    std::string channel; ///< name of the channel
    /// Reason of the last miss: a negated error number (`-EAGAIN`: the client's buffer was full), or the count
    /// of bytes that were sent; 0 before the first miss.
    int lastError = 0;
    TELVANE_COUNTER_MEMBERS(TELVANE_SUBSCRIPTION_COUNTERS)
    TELVANE_COUNTER_ROOM(TELVANE_SUBSCRIPTION_COUNTERS) ///< 0, for counters to come
};

/// All counters of EventServerSubscriptionStatus.
constexpr auto kSubscriptionCounters =
    TELVANE_COUNTER_TABLE(EventServerSubscriptionStatus, TELVANE_SUBSCRIPTION_COUNTERS);

/// One connected client.
struct EventServerClientStatus
{
    int descriptor = -1;         ///< of its socket at the server, which hooks and error lines name as well
    pid_t process = 0;           ///< process ID of the peer when it connected; 0 if unknown
    uid_t user = 0;              ///< effective user ID of that process
    gid_t group = 0;             ///< effective group ID of that process
    std::size_t bytesBehind = 0; ///< bytes sent to the client and not read yet, with the kernel's overhead
    std::vector<EventServerSubscriptionStatus> subscriptions; ///< in no particular order
    std::uint64_t reserved[4] = {};                           ///< 0, for members to come
};

/// One channel that has ever had a subscriber.
struct EventServerChannelStatus
{
    std::string name;            ///< name, as in Subscribe() and Publish()
    std::size_t subscribers = 0; ///< count of clients that are subscribed now
    int lastSequence = -1;       ///< sequence number of the last message, 0 to 65535; -1 before the first
    TELVANE_COUNTER_MEMBERS(TELVANE_CHANNEL_COUNTERS)
    TELVANE_COUNTER_ROOM(TELVANE_CHANNEL_COUNTERS) ///< 0, for counters to come
};

/// All counters of EventServerChannelStatus.
constexpr auto kChannelCounters = TELVANE_COUNTER_TABLE(EventServerChannelStatus, TELVANE_CHANNEL_COUNTERS);

/// Limits of an EventServer. A limit that is 0 or empty is not applied.
struct EventServerLimits
{
    std::size_t connections = 0; ///< maximum number of clients; the server disconnects others at once
    std::size_t subscriptionsPerClient = 0; ///< maximum number per client; the server refuses others
    /// Maximum number of channels that have ever had a subscriber, which the server never forgets. It refuses
    /// subscriptions to any other channel.
    std::size_t channels = 0;
    /// User IDs that may connect, in addition to the members of `groups`. The server disconnects others at
    /// once, including root. Without users and groups, everybody may connect.
    std::vector<uid_t> users;
    std::vector<gid_t> groups;      ///< group IDs whose members may connect, in addition to `users`
    std::uint64_t reserved[4] = {}; ///< 0, for limits to come
};

/// Channels whose last message an EventServer keeps, to answer requests for it. Without `remembers`, it keeps
/// none.
struct EventServerMemory
{
    /// Returns whether the last message of a channel is kept. Called for each message, on the threads of
    /// clients with the handler lock held; must not throw.
    std::function<bool(std::string_view channel)> remembers;
    std::size_t channels = 1000;           ///< maximum number of kept messages
    std::size_t bytes = 4UL * 1024 * 1024; ///< maximum of their total size
    std::uint64_t reserved[4] = {};        ///< 0, for settings to come
};

/// What a client wants to do, for EventServer::SetPolicy().
struct EventServerAccess
{
    /// Kinds of access.
    enum class Action
    {
        Publish, ///< send a message on `channel`, also to reply to a request
        Request, ///< send a request for `channel`, that is, a message on "req_" and its name
        Subscribe, ///< receive the messages on `channel`; a responder subscribes to "req_" and the channel's name
    };

    Action action = Action::Publish; ///< the kind of access
    std::string channel;             ///< name of the channel; as received, so it may contain any characters
    int client = -1;                 ///< descriptor of the client's socket
    pid_t process = 0;               ///< process ID of the client when it connected
    uid_t user = 0;                  ///< effective user ID of that process
    gid_t group = 0;                 ///< effective group ID of that process
    std::vector<gid_t> groups;       ///< supplementary group IDs of that process
    std::uint64_t reserved[4] = {};  ///< 0, for members to come
};

/// A connection, subscription or publication that the server refused because of its limits or its policy.
struct EventServerRefusal
{
    /// Reasons of refusals.
    enum class Reason
    {
        NotAllowed,           ///< EventServerLimits::users and EventServerLimits::groups
        TooManyConnections,   ///< EventServerLimits::connections
        TooManySubscriptions, ///< EventServerLimits::subscriptionsPerClient
        TooManyChannels,      ///< EventServerLimits::channels
        MayNotSubscribe,      ///< a subscription that the policy refused
        MayNotPublish,        ///< a publication that the policy refused
        MayNotRequest,        ///< a request that the policy refused
    };

    Reason reason = Reason::NotAllowed; ///< why it was refused
    int client = -1;   ///< descriptor of the client's socket; the server closes that of a refused connection
    pid_t process = 0; ///< process ID of the client when it connected; 0 if unknown
    uid_t user = 0;    ///< effective user ID of that process
    gid_t group = 0;   ///< effective group ID of that process
    std::string channel;            ///< channel of a refused subscription, publication or request; else empty
    std::uint64_t reserved[4] = {}; ///< 0, for members to come
};

/// \return the refusal in words: client, channel and reason
TELVANE_EXPORT std::string describe(const EventServerRefusal& refusal);

} // namespace Telvane

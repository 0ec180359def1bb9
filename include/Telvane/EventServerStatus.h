/// \file
/// What an EventServer tells of its clients and channels, and what it can be told to refuse.
#pragma once

#include <Telvane/BusCounters.h>
#include <Telvane/Export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Telvane
{

/// What a server has counted since its construction.
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
    int lastError = 0;   ///< why the client missed the last relay that it missed: a negated error number
                         ///< (`-EAGAIN`: its buffer was full), or the count of bytes that were sent; 0 before
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

/// What a server refuses beyond the bus's own rules, which know no limits. Zero, or empty, refuses nothing.
struct EventServerLimits
{
    /// Clients connected at a time. One more is disconnected at once.
    std::size_t connections = 0;
    /// Channels that a client is subscribed to at a time. One more is answered with "success": false.
    std::size_t subscriptionsPerClient = 0;
    /// Names that have ever been subscribed to; a server never forgets one. A new one is answered so, too.
    std::size_t channels = 0;
    /// Who may connect: these users, root not included by itself ...
    std::vector<uid_t> users;
    /// ... and the members of these groups. Everybody when both are empty. Others are disconnected at once.
    std::vector<gid_t> groups;
    std::uint64_t reserved[4] = {}; ///< 0, for limits to come
};

/// One refusal, and whom it met.
struct EventServerRefusal
{
    /// What the refused has run into.
    enum class Reason
    {
        NotAllowed,           ///< neither user nor group is among those allowed
        TooManyConnections,   ///< EventServerLimits::connections
        TooManySubscriptions, ///< EventServerLimits::subscriptionsPerClient
        TooManyChannels,      ///< EventServerLimits::channels
    };

    Reason reason = Reason::NotAllowed; ///< why
    int client = -1;                    ///< descriptor; of a refused connection about to be closed
    pid_t process = 0;                  ///< who connected
    uid_t user = 0;                     ///< with which rights
    gid_t group = 0;                    ///< with which rights
    std::string channel;                ///< of a refused subscription
    std::uint64_t reserved[4] = {};     ///< 0, for members to come
};

/// \return the refusal as part of a sentence: whom it met, what it was about, and why
TELVANE_EXPORT std::string describe(const EventServerRefusal& refusal);

} // namespace Telvane

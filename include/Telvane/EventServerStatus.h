/// \file
/// What an EventServer tells of its clients and channels, and what it can be told to refuse.
#pragma once

#include <Telvane/Export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Telvane
{

/// How one subscription has fared so far.
struct EventServerSubscriptionStatus
{
    std::string channel;       ///< name
    std::uint64_t relayed = 0; ///< relays sent whole
    std::uint64_t missed = 0;  ///< relays that the subscriber missed, mostly because it reads too slowly
    int lastError = 0; ///< why it missed the last one: a negated error number (`-EAGAIN`: too slow), or
                       ///< the count of bytes that went out; 0 when it has missed none
};

/// One connected client.
struct EventServerClientStatus
{
    int descriptor = -1;         ///< of its socket, as hooks and error lines name it
    pid_t process = 0;           ///< who connected; 0 when the system does not tell
    uid_t user = 0;              ///< with which rights
    gid_t group = 0;             ///< with which rights
    std::size_t bytesBehind = 0; ///< sent to it and not read yet, as the kernel counts: with its own overhead
    std::vector<EventServerSubscriptionStatus> subscriptions; ///< in no order
};

/// One channel that has ever been subscribed to.
struct EventServerChannelStatus
{
    std::string name;               ///< as subscribers have it
    std::size_t subscribers = 0;    ///< at present
    std::uint64_t publications = 0; ///< relayed, be it to nobody
    std::uint64_t bytes = 0;        ///< of those relays, each counted once
    std::uint64_t missed = 0;       ///< relays that subscribers missed, those included who have left
    int lastSequence = -1;          ///< number of the last publication; -1 before the first
};

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
};

/// \return the refusal as part of a sentence: whom it met, what it was about, and why
TELVANE_EXPORT std::string describe(const EventServerRefusal& refusal);

} // namespace Telvane

/// \file
/// Counters of server and client, in one list for each structure.
///
/// To add a counter, add a line at the end of a list, and increment it in the library:
///
///     X(member, metric, reason, meaning)
///
/// The member of the structure, the metrics page and the status answers of `telvane serve`, the tables in
/// docs/server-status.md and the tests follow from it. Counters have 64 bits and start at 0 with the server,
/// client, channel or subscription that they belong to.
#pragma once

#include <array>
#include <cstdint>

namespace Telvane
{

/// One counter of the structure \p Counters, for programs that show all counters.
template <class Counters>
struct BusCounter
{
    const char* name;    ///< the member's name; also the key in status answers
    const char* metric;  ///< name on the metrics page, without "telvane_" before and "_total" after it
    const char* reason;  ///< value of the label "reason" where several counters share a metric, else null
    const char* meaning; ///< one sentence in English
    std::uint64_t Counters::*member; ///< the value
};

} // namespace Telvane

/// Counters of an EventServer.
#define TELVANE_SERVER_COUNTERS(X)                                                                           \
    X(received, "packets_received", nullptr, "Packets received from clients.")                               \
    X(dispatched, "packets_dispatched", nullptr, "Packets dispatched; each was given a sequence number.")    \
    X(tooLarge, "packets_dropped", "too_large", "Packets dropped: 16384 bytes or more.")                     \
    X(notJson, "packets_dropped", "not_json", "Packets dropped: not JSON.")                                  \
    X(withoutPayload, "packets_dropped", "no_payload", "Packets dropped: no \"payload\".")                   \
    X(unknownChannel, "packets_dropped", "no_subscriber_ever",                                               \
      "Packets dropped: the channel has never had a subscriber.")                                            \
    X(outOfMemory, "packets_dropped", "out_of_memory", "Packets dropped: out of memory.")                    \
    X(relayed, "relays_sent", nullptr, "Relays sent in full, one for each subscriber.")                      \
    X(relaysFailed, "relays_missed", nullptr,                                                                \
      "Relays that a subscriber missed, mostly because it reads too slowly.")                                \
    X(relaysTooLarge, "relays_cut", nullptr,                                                                 \
      "Publications whose relay is larger than the 16383 bytes that a subscriber can receive.")              \
    X(connectionsRefused, "connections_refused", nullptr, "Connections refused by a limit.")                 \
    X(subscriptionsRefused, "subscriptions_refused", nullptr,                                                \
      "Subscriptions refused by a limit or the policy.")                                                     \
    X(notPermitted, "packets_dropped", "not_permitted", "Packets dropped: refused by the policy.")

/// Counters of one channel of an EventServer.
#define TELVANE_CHANNEL_COUNTERS(X)                                                                          \
    X(publications, "channel_publications", nullptr,                                                         \
      "Messages published on a channel, including those that had no subscriber.")                            \
    X(bytes, "channel_relay_bytes", nullptr,                                                                 \
      "Bytes of the messages on a channel as they are relayed, each counted once.")                          \
    X(missed, "channel_relays_missed", nullptr,                                                              \
      "Relays that subscribers of a channel missed, including subscribers that have disconnected.")

/// Counters of one client's subscription to one channel.
#define TELVANE_SUBSCRIPTION_COUNTERS(X)                                                                     \
    X(relayed, "subscription_relays_sent", nullptr, "Relays sent in full to a client on a channel.")         \
    X(missed, "subscription_relays_missed", nullptr, "Relays that a client missed on a channel.")

/// Counters of an EventClient. They are on no metrics page.
#define TELVANE_CLIENT_COUNTERS(X)                                                                           \
    X(received, nullptr, nullptr, "Packets received from the server.")                                       \
    X(notJson, nullptr, nullptr,                                                                             \
      "Packets dropped: not JSON. A message of more than 16383 bytes arrives cut off and is counted here.")  \
    X(notSubscribed, nullptr, nullptr, "Packets dropped: no subscription to the channel.")                   \
    X(undecodable, nullptr, nullptr,                                                                         \
      "Packets dropped: no payload, or one that does not fit the class of the subscription.")

/// The counters of \p list as members of a structure.
#define TELVANE_COUNTER_MEMBERS(list) list(TELVANE_COUNTER_MEMBER)
/// One counter as a member.
#define TELVANE_COUNTER_MEMBER(member, metric, reason, meaning) std::uint64_t member = 0;

/// The counters of \p list as a `std::array` of BusCounter. Tables need internal linkage, which `constexpr`
/// variables have: each program keeps the counters that it was compiled with.
#define TELVANE_COUNTER_TABLE(Counters, list)                                                                \
    [] {                                                                                                     \
        using Self = Counters;                                                                               \
        return std::array{list(TELVANE_COUNTER_ROW)};                                                        \
    }()
/// One counter as a row of the table.
#define TELVANE_COUNTER_ROW(member, metric, reason, meaning)                                                 \
    BusCounter<Self>{#member, metric, reason, meaning, &Self::member},

/// Space for more counters in a structure whose size must not change. It has 8, including those of \p list.
#define TELVANE_COUNTER_ROOM(list) std::uint64_t reserved[8 - (0 list(TELVANE_COUNTER_ONE))] = {};
/// One counter as a term of their number.
#define TELVANE_COUNTER_ONE(member, metric, reason, meaning) +1

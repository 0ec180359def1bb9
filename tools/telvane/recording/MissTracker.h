#pragma once

#include "common/bus/BusConnection.h"
#include "common/bus/StatusPayload.h"

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

namespace TelvaneTool
{

/// Requests from the server how many messages it could not deliver to this process.
///
/// Gaps in the sequence numbers show that messages may have been missed. Only the server knows how many, and on which
/// channels. A request is sent after a gap, in the pause after a burst, and at the end.
class MissTracker
{
public:
    /// \param from, to  when the messages were sent at the earliest and at the latest, on the monotonic clock
    using Handler = std::function<void(const std::string& channel, std::uint64_t count, Nanoseconds from,
                                       Nanoseconds to)>;

    /// \param onMissed  called on the receiver thread
    MissTracker(BusConnection& connection, Handler onMissed)
        : m_connection(connection), m_onMissed(std::move(onMissed))
    {}

    /// Subscribes to the status answers. Does not wait for one: not every server gives any.
    /// \return an exit code
    int start();

    /// Call this before a channel is subscribed to: misses of other channels are not believed.
    void subscribes(const std::string& channel);

    /// The receiver thread: a message has arrived on one of the recorded channels.
    void arrived(const std::string& channel, int sequence);

    /// The receiver thread: for a user who records the channel of the status answers.
    void takeAnswer(const std::string& payload, int sequence);

    /// Discards the reports of the previous server.
    void restart();

    /// Sends a request to the server if one is due. Call this often.
    void follow();

    /// Sends a last request and waits briefly for the answer, even if the connection is stopping.
    void finish();

    /// \return true if messages may have been missed and the server has not reported how many
    bool uncertain();

private:
    void ask();
    void addSequence(int sequence);
    const ClientStatus* findSelf() const;

    BusConnection& m_connection;
    const Handler m_onMissed;
    Nanoseconds m_nextAsk = 0;

    std::mutex m_lock;
    StatusResponse<ClientStatus> m_answer;
    std::set<std::string, std::less<>> m_channels;   ///< on which messages arrived
    std::set<std::string, std::less<>> m_subscribed; ///< with or without messages
    std::map<std::string, std::uint64_t> m_missed;   ///< as last reported
    std::uint64_t m_answers = 0;
    int m_lastSequence = -1;
    std::uint64_t m_ownRequests = 0; ///< whose sequence numbers have not been skipped yet
    bool m_gap = false;              ///< since the last answer
    Nanoseconds m_gapFrom = 0;       ///< arrival before the first gap
    Nanoseconds m_gapTo = 0;         ///< arrival after the last gap
    Nanoseconds m_lastArrival = 0;
    std::uint64_t m_unconfirmed = 0; ///< arrivals since the last answer
};

} // namespace TelvaneTool

#pragma once

#include "telvane-mqtt/broker/MqttClient.h"
#include "telvane-mqtt/broker/RetainedTopics.h"
#include "telvane-mqtt/channels/Topics.h"
#include "telvane-mqtt/queue/OutgoingQueue.h"

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <string>

namespace TelvaneTool::Mqtt
{

/// What the link has counted.
struct LinkCounts
{
    std::atomic<bool> connected{false};
    std::atomic<std::uint64_t> connections{0};
    std::atomic<std::uint64_t> failures{0}; ///< attempts that failed and connections that were lost
    std::atomic<std::uint64_t> corrections{0};
    std::atomic<std::uint64_t> ignoredRetained{0};
};

/// Called for each message on W and R, on the link's thread. It must not wait for long.
using Receiver = std::function<void(TopicKind kind, const std::string& channel, IncomingMessage message)>;

/// A message whose answer may be the reason why connections end.
struct Suspect
{
    std::string topic;
    std::int64_t queued = 0;
    int connections = 0; ///< that ended while it was the first without answer
};

/// What connections share, one after the other.
struct LinkState
{
    LinkState(const BridgeSettings& bridgeSettings, const Session& bridgeSession, OutgoingQueue& outgoing,
              Receiver receiver)
        : settings(bridgeSettings),
          session(bridgeSession),
          queue(outgoing),
          receive(std::move(receiver)),
          topics(bridgeSettings.prefix, bridgeSettings.module)
    {}

    const BridgeSettings& settings;
    const Session& session;
    OutgoingQueue& queue;
    const Receiver receive;
    const Topics topics;
    LinkCounts counts;
    std::atomic<bool> stopping{false};
    std::atomic<Nanoseconds> stopBefore{0};
    bool schemasKnown = false;                ///< the broker has answered to all since its session began
    std::map<std::string, int> refusedTopics; ///< the last reason code that was reported
    Suspect suspect;
    RetainedTopics retained;
};

/// One connection, from its first packet to its last.
/// \par Threads  That of the link; while it waits for the broker, the queue may call sendAtOnce() on another.
class BrokerConnection : public MqttClient::Events, private OutgoingQueue::Sender
{
public:
    BrokerConnection(LinkState& link, bool version5);

    /// Connects and sends until the connection ends.
    /// \return why it ended
    std::string run();

    /// Gives back what was not acknowledged.
    void finish();

    bool wasConnected() const { return m_connected; }
    bool versionRefused() const { return m_client.versionRefused(); }
    bool takenOver() const { return m_client.takenOver(); }

private:
    /// A message without acknowledgement. Those of the link itself, such as the state, have no channel.
    struct InFlight
    {
        OutgoingMessage message;
        std::size_t bytes = 0;
        Nanoseconds sent = 0;
        bool fromQueue = false; ///< otherwise one of the link, or one that is sent once more to be retained
        bool retained = false;  ///< the broker was asked to retain it
    };

    bool step();
    bool sendAtOnce() noexcept override;
    void connected(const BrokerLimits& limits) override;
    void acknowledged(int id, int reason) override;
    void subscribed(int id, bool granted) override;
    void received(IncomingMessage message) override;

    int waitMilliseconds() const;
    bool isOverdue(Nanoseconds now);
    void dropUnreadable();
    void replaceRefused(const std::string& topic);
    void reportRefusal(const std::string& topic, int reason);
    bool send(Nanoseconds now);
    bool sendAll(Nanoseconds now);
    bool mayDrain(Nanoseconds now);
    bool isTooLarge(const Publication& publication) const;
    bool sendControl(Publication publication, Nanoseconds now);
    bool sendMessage(OutgoingMessage&& message, Nanoseconds now, bool fromQueue);
    Publication& toPublication(const OutgoingMessage& message);
    bool mayStop(Nanoseconds now);

    LinkState& m_link;
    const bool m_version5;
    MqttClient m_client;
    BrokerLimits m_limits;
    unsigned m_window = 1;
    bool m_connected = false;
    bool m_farewell = false;
    Nanoseconds m_began = 0;
    Nanoseconds m_drained = 0;
    Nanoseconds m_checked = 0;
    double m_drainCredit = 1.0;
    std::deque<std::string> m_topicsToSubscribe;
    std::map<int, std::string> m_subscriptions;
    std::deque<Publication> m_control;
    std::deque<OutgoingMessage>
        m_replacements;        ///< to be sent once more and retained, in place of refused ones
    Publication m_publication; ///< the last message, whose memory the next one uses
    std::map<int, InFlight> m_inFlight;
};

} // namespace TelvaneTool::Mqtt

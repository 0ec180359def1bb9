// Each connection is one object and starts from nothing: the broker's limits hold for one connection only, and what was
// not acknowledged on one is sent again on the next.

#include "BrokerLink.h"

#include "common/cli/Messages.h"

#include <poll.h>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr Nanoseconds kConnectAnswer = 10 * kSecond;
constexpr int kSuspiciousLosses = 4; ///< some brokers do not say that they gave the session to another client
constexpr std::size_t kPacketOverhead = 64; ///< fixed header, identifier and properties without their texts

} // namespace

/// One connection, from its first packet to its last.
class BrokerLink::Connection : public MqttClient::Events
{
public:
    Connection(BrokerLink& link, bool version5)
        : m_link(link), m_version5(version5), m_client(link.m_settings.broker, version5, *this)
    {}

    std::string run()
    {
        std::string error = m_client.connect(stateMessage(m_link.m_settings, m_link.m_session, false));
        if (!error.empty()) {
            return error;
        }
        m_began = monotonicNow();
        m_drained = m_began;
        while (m_client.step(m_link.m_queue.wakeFd(), waitMilliseconds())) {
            m_link.m_queue.clearWake();
            const Nanoseconds now = monotonicNow();
            if (!m_connected && now - m_began > kConnectAnswer) {
                return "the broker does not answer the connection";
            }
            if (isOverdue(now)) {
                return "the broker does not acknowledge messages";
            }
            if (!send(now)) {
                break;
            }
            if (m_link.isStopping() && mayStop(now)) {
                break;
            }
        }
        return m_client.error();
    }

    /// Gives back what was not acknowledged.
    void finish()
    {
        std::vector<OutgoingMessage> messages;
        for (auto& [id, inFlight] : m_inFlight) {
            if (inFlight.fromQueue) {
                messages.push_back(std::move(inFlight.message));
            }
        }
        std::sort(messages.begin(), messages.end(),
                  [](const OutgoingMessage& one, const OutgoingMessage& other) {
                      return one.queued < other.queued;
                  });
        m_link.m_queue.putBack(std::move(messages), monotonicNow());
        m_link.m_queue.makeBacklog();
    }

    bool wasConnected() const { return m_connected; }
    bool versionRefused() const { return m_client.versionRefused(); }
    bool takenOver() const { return m_client.takenOver(); }

    void connected(const BrokerLimits& limits) override
    {
        m_connected = true;
        m_limits = limits;
        m_window = std::max(1U, std::min(m_link.m_settings.broker.inFlight, limits.receiveMaximum));
        m_link.m_counts.connected = true;
        ++m_link.m_counts.connections;
        m_link.m_queue.makeBacklog();
        for (const auto& [channel, rule] : m_link.m_settings.rules.in()) {
            m_topicsToSubscribe.push_back(m_link.m_topics.write(channel));
        }
        for (const auto& [channel, rule] : m_link.m_settings.rules.requests()) {
            m_topicsToSubscribe.push_back(m_link.m_topics.request(channel));
        }
        m_topicsToSubscribe.push_back(m_link.m_topics.state());
        m_control.push_back(stateMessage(m_link.m_settings, m_link.m_session, true));
        if (!m_link.m_schemasKnown || !limits.sessionPresent) {
            for (Publication& schema : schemaMessages(m_link.m_settings)) {
                m_control.push_back(std::move(schema));
            }
            m_link.m_schemasKnown = true;
        }
        printStatus("connected to " + m_link.m_settings.broker.host + " with MQTT " +
                    (m_version5 ? "5" : "3.1.1"));
    }

    void acknowledged(int id, int reason) override
    {
        const auto found = m_inFlight.find(id);
        if (found == m_inFlight.end()) {
            return; // QoS 0
        }
        const InFlight inFlight = std::move(found->second);
        m_inFlight.erase(found);
        if (reason != 0) {
            reportRefusal(inFlight.topic, reason);
        }
        if (inFlight.fromQueue) {
            if (reason == 0) {
                m_link.m_queue.countSent(inFlight.message, inFlight.bytes);
            } else {
                m_link.m_queue.countDropped(inFlight.message, DropReason::Refused);
            }
        }
    }

    void subscribed(int id, bool granted) override
    {
        const auto found = m_subscriptions.find(id);
        if (found != m_subscriptions.end() && !granted) {
            printError("the broker refuses the subscription to " + found->second);
        }
    }

    void received(IncomingMessage message) override
    {
        std::string channel;
        const TopicKind kind = m_link.m_topics.parse(message.topic, channel);
        if (kind == TopicKind::State) {
            if (!m_link.isStopping() && isForeignState(message.payload, m_link.m_session)) {
                ++m_link.m_counts.corrections;
                m_control.push_back(stateMessage(m_link.m_settings, m_link.m_session, true));
            }
        } else if (message.retained) {
            // It may be any number of days old.
            ++m_link.m_counts.ignoredRetained;
        } else if (kind != TopicKind::None) {
            m_link.m_receive(kind, channel, std::move(message));
        }
    }

private:
    int waitMilliseconds() const
    {
        // With a limited rate there may be something to send soon.
        return m_connected && m_client.isWritable() && m_inFlight.size() < m_window &&
                       m_link.m_queue.hasBacklog()
                   ? 5
               : m_link.isStopping() ? 20
                                     : 500;
    }

    bool isOverdue(Nanoseconds now) const
    {
        for (const auto& [id, inFlight] : m_inFlight) {
            if (now - inFlight.sent > m_link.m_settings.broker.acknowledgement) {
                return true;
            }
        }
        return false;
    }

    void reportRefusal(const std::string& topic, int reason)
    {
        int& reported = m_link.m_refusedTopics[topic];
        if (reported != reason) {
            printError("the broker refuses messages on " + topic + " (reason code " + std::to_string(reason) +
                       ")");
        }
        reported = reason;
    }

    /// Sends what the window allows.
    /// \return false if the connection ended
    bool send(Nanoseconds now)
    {
        if (!m_connected) {
            return true;
        }
        for (; !m_topicsToSubscribe.empty(); m_topicsToSubscribe.pop_front()) {
            const auto id = m_client.subscribe(m_topicsToSubscribe.front());
            if (!id) {
                return false;
            }
            m_subscriptions[*id] = m_topicsToSubscribe.front();
        }
        while (m_client.isWritable() && m_inFlight.size() < m_window) {
            if (!m_control.empty()) {
                Publication publication = std::move(m_control.front());
                m_control.pop_front();
                if (!sendControl(std::move(publication), now)) {
                    return false;
                }
                continue;
            }
            const bool backlogAllowed = mayDrain(now);
            bool fromBacklog = false;
            auto message = m_link.m_queue.take(now, backlogAllowed, fromBacklog);
            if (!message) {
                break;
            }
            m_drainCredit -= fromBacklog && m_link.m_settings.drainRate != 0 ? 1.0 : 0.0;
            if (!sendMessage(std::move(*message), now)) {
                return false;
            }
        }
        return true;
    }

    bool mayDrain(Nanoseconds now)
    {
        const unsigned rate = m_link.m_settings.drainRate;
        if (rate == 0 || m_link.isStopping()) {
            return true;
        }
        m_drainCredit =
            std::min(m_drainCredit + inSeconds(now - m_drained) * rate, std::max(1.0, rate / 10.0));
        m_drained = now;
        return m_drainCredit >= 1.0;
    }

    bool isTooLarge(const Publication& publication) const
    {
        std::size_t size = publication.topic.size() + publication.payload.size() + kPacketOverhead;
        for (const auto& [name, value] : publication.properties) {
            size += name.size() + value.size() + 5;
        }
        return size > std::min(m_limits.packetSize, m_link.m_settings.broker.packetLimit);
    }

    bool sendControl(Publication publication, Nanoseconds now)
    {
        publication.retain = publication.retain && m_limits.retain;
        publication.qos = std::min(publication.qos, m_limits.maximumQos);
        if (isTooLarge(publication)) {
            printError("the message on " + publication.topic + " is larger than the broker accepts");
            return true;
        }
        const auto id = m_client.publish(publication);
        if (id && publication.qos == 1) {
            InFlight& inFlight = m_inFlight[*id];
            inFlight.sent = now;
            inFlight.topic = publication.topic;
        }
        return id.has_value();
    }

    bool sendMessage(OutgoingMessage message, Nanoseconds now)
    {
        Publication publication = toPublication(message);
        if (isTooLarge(publication)) {
            m_link.m_queue.countDropped(message, DropReason::TooLarge);
            int& reported = m_link.m_refusedTopics[message.topic];
            if (reported != -1) {
                printError("a message on " + message.topic + " is larger than the broker accepts");
            }
            reported = -1;
            return true;
        }
        const std::size_t bytes = publication.topic.size() + publication.payload.size();
        const auto id = m_client.publish(publication);
        if (publication.qos == 0) {
            m_link.m_queue.countSent(message, bytes);
            return id.has_value();
        }
        // If the connection has ended in this call, the message is given back with the others.
        InFlight& inFlight = m_inFlight[id ? *id : -1];
        inFlight.topic = publication.topic;
        inFlight.message = std::move(message);
        inFlight.bytes = bytes;
        inFlight.sent = now;
        inFlight.fromQueue = true;
        return id.has_value();
    }

    Publication toPublication(const OutgoingMessage& message) const
    {
        Publication publication;
        publication.topic = message.topic;
        publication.payload =
            m_link.m_settings.bare ? barePayloadOf(message) : payloadOf(message, m_link.m_session);
        publication.qos = std::min(message.qos, m_limits.maximumQos);
        publication.retain = message.retain && m_limits.retain;
        publication.correlation = message.correlation;
        if (m_version5 && message.number != 0) {
            publication.properties = {{"class", message.className},
                                      {"session", std::to_string(m_link.m_session.number)},
                                      {"n", std::to_string(message.number)},
                                      {"time", message.time.text}};
        }
        return publication;
    }

    /// Sends what waits before it says goodbye.
    bool mayStop(Nanoseconds now)
    {
        const bool late = now > m_link.m_stopBefore;
        if (!m_connected) {
            return true;
        }
        if (!late && (m_link.m_queue.waiting() != 0 || !m_inFlight.empty() || !m_client.isWritable())) {
            return false;
        }
        if (!m_farewell && !late) {
            m_farewell = true;
            m_control.push_back(stateMessage(m_link.m_settings, m_link.m_session, false));
            return false;
        }
        if (!late && !m_control.empty()) {
            return false;
        }
        m_client.disconnect();
        return true;
    }

    BrokerLink& m_link;
    const bool m_version5;
    MqttClient m_client;
    BrokerLimits m_limits;
    unsigned m_window = 1;
    bool m_connected = false;
    bool m_farewell = false;
    Nanoseconds m_began = 0;
    Nanoseconds m_drained = 0;
    double m_drainCredit = 1.0;
    std::deque<std::string> m_topicsToSubscribe;
    std::map<int, std::string> m_subscriptions;
    std::deque<Publication> m_control;
    std::map<int, InFlight> m_inFlight;
};

BrokerLink::BrokerLink(const BridgeSettings& settings, const Session& session, OutgoingQueue& queue,
                       Receiver receive)
    : m_settings(settings),
      m_session(session),
      m_queue(queue),
      m_receive(std::move(receive)),
      m_topics(settings.prefix, settings.module)
{}

BrokerLink::~BrokerLink()
{
    if (m_thread.joinable()) {
        stop(0);
    }
    if (m_thread.joinable()) {
        m_thread.detach();
    }
}

void BrokerLink::start()
{
    m_thread = std::thread([this] { run(); });
}

bool BrokerLink::stop(Nanoseconds patience)
{
    m_stopBefore = monotonicNow() + patience;
    m_stopping = true;
    const Nanoseconds deadline = m_stopBefore + kSecond;
    while (!m_ended && monotonicNow() < deadline) {
        poll(nullptr, 0, 10);
    }
    if (m_ended && m_thread.joinable()) {
        m_thread.join();
    }
    return m_ended;
}

void BrokerLink::run()
{
    bool version5 = m_settings.broker.protocol != Protocol::Version311;
    std::string lastError;
    int shortLived = 0;
    while (!isStopping()) {
        std::string error;
        bool versionRefused = false;
        bool takenOver = false;
        const Nanoseconds began = monotonicNow();
        const bool wasConnected = connectOnce(version5, error, versionRefused, takenOver);
        if (isStopping()) {
            break;
        }
        ++m_counts.failures;
        if (versionRefused && m_settings.broker.protocol == Protocol::Automatic) {
            version5 = false;
            continue;
        }
        if (!wasConnected && m_settings.broker.protocol == Protocol::Automatic) {
            version5 = true;
        }
        if (wasConnected || error != lastError) {
            printError(m_settings.broker.host + ": " + error);
        }
        lastError = wasConnected ? "" : error;
        // A connection that does not last must not be made again and again without a pause.
        const bool lasted = wasConnected && monotonicNow() - began >= m_settings.broker.longestPause;
        m_pause = lasted ? 0 : m_pause;
        shortLived = lasted || !wasConnected ? 0 : shortLived + 1;
        if (shortLived == kSuspiciousLosses) {
            printError(
                "connections are lost soon after they are made; another client may use the identifier " +
                m_settings.broker.clientId);
        }
        pause(takenOver);
    }
    m_ended = true;
}

bool BrokerLink::connectOnce(bool version5, std::string& error, bool& versionRefused, bool& takenOver)
{
    Connection connection(*this, version5);
    error = connection.run();
    m_counts.connected = false;
    connection.finish();
    versionRefused = !connection.wasConnected() && connection.versionRefused();
    takenOver = connection.takenOver();
    return connection.wasConnected();
}

void BrokerLink::pause(bool takenOver)
{
    const BrokerSettings& broker = m_settings.broker;
    m_pause = m_pause == 0 ? broker.firstPause : std::min(2 * m_pause, broker.longestPause);
    if (takenOver) {
        printError("another client uses the identifier " + broker.clientId +
                   "; two bridges must not have the same module");
        m_pause = broker.longestPause;
    }
    std::uniform_real_distribution<double> jitter(0.5, 1.0);
    const Nanoseconds end =
        monotonicNow() + static_cast<Nanoseconds>(static_cast<double>(m_pause) * jitter(m_random));
    while (!isStopping() && monotonicNow() < end) {
        poll(nullptr, 0, 20);
    }
}

} // namespace TelvaneTool::Mqtt

// Each connection is one object and starts from nothing: the broker's limits hold for one connection only, and what was
// not acknowledged on one is sent again on the next.

#include "telvane-mqtt/broker/BrokerConnection.h"

#include "common/cli/Messages.h"
#include "telvane-mqtt/broker/Announcements.h"

#include <algorithm>
#include <cstring>
#include <tuple>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr Nanoseconds kConnectAnswer = 10 * kSecond;
constexpr Nanoseconds kAcknowledgementCheck = 50 * kMillisecond;
constexpr int kUnreadableAnswers = 3;       ///< in a row, until their message is dropped
constexpr std::size_t kPacketOverhead = 64; ///< fixed header, identifier and properties without their texts

} // namespace

BrokerConnection::BrokerConnection(LinkState& link, bool version5)
    : m_link(link), m_version5(version5), m_client(link.settings.broker, version5, *this)
{}

std::string BrokerConnection::run()
{
    std::string error = m_client.connect(stateMessage(m_link.settings, m_link.session, false));
    if (!error.empty()) {
        return error;
    }
    m_began = monotonicNow();
    m_drained = m_began;
    while (step()) {
        m_link.queue.clearWake();
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
        if (m_link.stopping && mayStop(now)) {
            break;
        }
    }
    return m_client.error();
}

/// Waits for the broker or the queue, and handles what the broker sent.
/// \return whether the connection continues
bool BrokerConnection::step()
{
    const int milliseconds = waitMilliseconds();
    pollfd descriptors[] = {m_client.awaited(), {m_link.queue.wakeFd(), POLLIN, 0}};
    if (descriptors[0].fd >= 0) {
        m_link.queue.setSender(this); // this thread uses nothing of the connection meanwhile
        poll(descriptors, 2, milliseconds);
        m_link.queue.setSender(nullptr);
    }
    return m_client.handle(descriptors[0].revents);
}

bool BrokerConnection::sendAtOnce() noexcept
{
    if (!m_connected || m_client.hasEnded() || m_link.queue.hasBacklog()) {
        return false;
    }
    // If the connection ended or the socket takes no more, the link's thread has something to do.
    return send(monotonicNow()) && m_client.isWritable();
}

/// Gives back what was not acknowledged.
void BrokerConnection::finish()
{
    if (m_client.answerUnreadable()) {
        dropUnreadable();
    }
    std::vector<OutgoingMessage> messages;
    bool isControlDone = m_connected && m_control.empty();
    for (auto& [id, inFlight] : m_inFlight) {
        if (inFlight.fromQueue) {
            messages.push_back(std::move(inFlight.message));
        } else if (inFlight.retained) {
            m_link.retained.notePassed(std::move(inFlight.message));
        } else {
            isControlDone = false;
        }
    }
    // If the answer to a schema cannot be read, it must not end all connections.
    m_link.schemasKnown = m_link.schemasKnown || isControlDone || m_client.answerUnreadable();
    for (OutgoingMessage& message : m_replacements) {
        m_link.retained.notePassed(std::move(message));
    }
    std::sort(messages.begin(), messages.end(), [](const OutgoingMessage& one, const OutgoingMessage& other) {
        return one.queued < other.queued;
    });
    m_link.queue.putBack(std::move(messages), monotonicNow());
    m_link.queue.makeBacklog();
    m_link.retained.noteLost();
}

/// Drops the message whose answer has ended some connections, because it would end all others as well. Some versions of
/// the library do not accept all reason codes that brokers refuse messages with.
void BrokerConnection::dropUnreadable()
{
    const auto first =
        std::min_element(m_inFlight.begin(), m_inFlight.end(), [](const auto& one, const auto& other) {
            return std::tie(one.second.sent, one.first) < std::tie(other.second.sent, other.first);
        });
    if (first == m_inFlight.end()) {
        return;
    }
    const OutgoingMessage& message = first->second.message;
    Suspect& suspect = m_link.suspect;
    if (suspect.topic != message.topic || suspect.queued != message.queued) {
        suspect = {message.topic, message.queued, 0};
    }
    if (++suspect.connections < kUnreadableAnswers) {
        return;
    }
    printError("the broker's answer to a message on " + message.topic +
               " cannot be read; the message is taken for refused");
    m_link.retained.noteRefused(message.topic, message.queued);
    if (first->second.fromQueue) {
        m_link.queue.countDropped(message, DropReason::Refused);
    }
    m_inFlight.erase(first);
}

void BrokerConnection::connected(const BrokerLimits& limits)
{
    m_connected = true;
    m_limits = limits;
    m_window = std::max(1U, std::min(m_link.settings.broker.inFlight, limits.receiveMaximum));
    m_link.counts.connected = true;
    ++m_link.counts.connections;
    m_link.queue.makeBacklog();
    for (const auto& [channel, rule] : m_link.settings.rules.in()) {
        m_topicsToSubscribe.push_back(m_link.topics.write(channel));
    }
    for (const auto& [channel, rule] : m_link.settings.rules.requests()) {
        m_topicsToSubscribe.push_back(m_link.topics.request(channel));
    }
    for (const auto& [channel, rule] : m_link.settings.rules.out()) {
        if (m_link.settings.keepsInSpool(channel) && m_link.settings.rules.requests().count(channel) == 0) {
            m_topicsToSubscribe.push_back(m_link.topics.request(channel));
        }
    }
    m_topicsToSubscribe.push_back(m_link.topics.state());
    m_control.push_back(stateMessage(m_link.settings, m_link.session, true));
    if (!m_link.schemasKnown || !limits.sessionPresent) {
        for (Publication& schema : schemaMessages(m_link.settings)) {
            m_control.push_back(std::move(schema));
        }
        m_link.schemasKnown = false;
    }
    for (OutgoingMessage& message : m_link.retained.takeNewest()) {
        m_replacements.push_back(std::move(message));
    }
    printStatus("connected to " + m_link.settings.broker.host + " with MQTT " + (m_version5 ? "5" : "3.1.1"));
}

void BrokerConnection::acknowledged(int id, int reason)
{
    const auto found = m_inFlight.find(id);
    if (found == m_inFlight.end()) {
        return; // QoS 0
    }
    const auto node = m_inFlight.extract(found);
    const InFlight& inFlight = node.mapped();
    OutgoingMessage& message = node.mapped().message;
    const bool wasPassed = message.retain && !inFlight.retained && m_limits.retain;
    message.retain = inFlight.retained;
    if (inFlight.fromQueue && reason == 0) {
        m_link.queue.countSent(message, inFlight.bytes, monotonicNow());
    } else if (inFlight.fromQueue) {
        m_link.queue.countDropped(message, DropReason::Refused);
    } else if (inFlight.retained && reason == 0) {
        m_link.queue.noteRetained(message);
    }
    if (reason != 0) {
        reportRefusal(message.topic, reason);
        m_link.retained.noteRefused(message.topic, message.queued);
        replaceRefused(message.topic);
    } else if (inFlight.retained) {
        m_link.retained.noteAccepted(message.topic, message.queued);
    } else if (wasPassed) {
        const std::string topic = message.topic;
        message.retain = true;
        m_link.retained.notePassed(std::move(message));
        replaceRefused(topic); // the answer to the newest may have come before
    }
}

/// If a message was refused that was to be retained, sends the newest of those once more that the broker has.
void BrokerConnection::replaceRefused(const std::string& topic)
{
    if (auto replacement = m_link.retained.takeNewest(topic)) {
        m_replacements.push_back(std::move(*replacement));
    }
}

void BrokerConnection::subscribed(int id, bool granted)
{
    const auto found = m_subscriptions.find(id);
    if (found != m_subscriptions.end() && !granted) {
        printError("the broker refuses the subscription to " + found->second);
    }
}

void BrokerConnection::received(IncomingMessage message)
{
    std::string channel;
    const TopicKind kind = m_link.topics.parse(message.topic, channel);
    if (kind == TopicKind::State) {
        if (!m_link.stopping && isForeignState(message.payload, m_link.session)) {
            ++m_link.counts.corrections;
            m_control.push_back(stateMessage(m_link.settings, m_link.session, true));
        }
    } else if (message.retained) {
        // It may be any number of days old.
        ++m_link.counts.ignoredRetained;
    } else if (kind != TopicKind::None) {
        m_link.receive(kind, channel, std::move(message));
    }
}

int BrokerConnection::waitMilliseconds() const
{
    // With a limited rate there may be something to send soon.
    return m_connected && m_client.isWritable() && m_inFlight.size() < m_window && m_link.queue.hasBacklog()
               ? 5
           : m_link.stopping ? 20
                             : 500;
}

bool BrokerConnection::isOverdue(Nanoseconds now)
{
    if (now - m_checked < kAcknowledgementCheck) {
        return false;
    }
    m_checked = now;
    for (const auto& [id, inFlight] : m_inFlight) {
        if (now - inFlight.sent > m_link.settings.broker.acknowledgement) {
            return true;
        }
    }
    return false;
}

void BrokerConnection::reportRefusal(const std::string& topic, int reason)
{
    int& reported = m_link.refusedTopics[topic];
    if (reported != reason) {
        printError("the broker refuses messages on " + topic + " (reason code " + std::to_string(reason) +
                   ")");
    }
    reported = reason;
}

/// Sends what the window allows.
/// \return false if the connection ended
bool BrokerConnection::send(Nanoseconds now)
{
    const bool continues = sendAll(now);
    m_client.endBurst();
    return continues;
}

bool BrokerConnection::sendAll(Nanoseconds now)
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
    for (int sent = 0; m_client.isWritable() && m_inFlight.size() < m_window; ++sent) {
        if (!m_control.empty()) {
            Publication publication = std::move(m_control.front());
            m_control.pop_front();
            if (!sendControl(std::move(publication), now)) {
                return false;
            }
            continue;
        }
        if (!m_replacements.empty()) {
            OutgoingMessage replacement = std::move(m_replacements.front());
            m_replacements.pop_front();
            if (!sendMessage(std::move(replacement), now, false)) {
                return false;
            }
            continue;
        }
        const bool backlogAllowed = mayDrain(now);
        bool fromBacklog = false;
        auto message = m_link.queue.take(now, backlogAllowed, fromBacklog);
        if (!message) {
            break;
        }
        if (sent == 1 && m_inFlight.empty()) {
            // A message that comes alone is sent at once. So are those that wait for acknowledgements: the broker handles
            // the first of the window while the next ones are prepared.
            m_client.beginBurst();
        }
        m_drainCredit -= fromBacklog && m_link.settings.drainRate != 0 ? 1.0 : 0.0;
        if (!sendMessage(std::move(*message), now, true)) {
            return false;
        }
    }
    return true;
}

bool BrokerConnection::mayDrain(Nanoseconds now)
{
    const unsigned rate = m_link.settings.drainRate;
    if (rate == 0 || m_link.stopping) {
        return true;
    }
    m_drainCredit = std::min(m_drainCredit + inSeconds(now - m_drained) * rate, std::max(1.0, rate / 10.0));
    m_drained = now;
    return m_drainCredit >= 1.0;
}

bool BrokerConnection::isTooLarge(const Publication& publication) const
{
    std::size_t size = publication.topic.size() + publication.payload.size() +
                       publication.correlation.size() + kPacketOverhead;
    for (const auto& [name, value] : publication.properties) {
        size += std::strlen(name) + value.size() + 5;
    }
    return size > std::min(m_limits.packetSize, m_link.settings.broker.packetLimit);
}

bool BrokerConnection::sendControl(Publication publication, Nanoseconds now)
{
    publication.retain = publication.retain && m_limits.retain;
    publication.qos = std::min(publication.qos, m_limits.maximumQos);
    if (isTooLarge(publication)) {
        printError("the message on " + publication.topic + " is larger than the broker accepts");
        return true;
    }
    const auto id = m_client.publish(publication);
    if (publication.qos == 1) {
        InFlight& inFlight = m_inFlight[id ? *id : -1];
        inFlight.sent = now;
        inFlight.message.topic = publication.topic;
    }
    return id.has_value();
}

/// \param fromQueue otherwise the broker has the message, and is to retain it
bool BrokerConnection::sendMessage(OutgoingMessage&& message, Nanoseconds now, bool fromQueue)
{
    Publication& publication = toPublication(message);
    if (isTooLarge(publication)) {
        // An earlier connection may have asked to retain it.
        m_link.retained.noteRefused(message.topic, message.queued);
        replaceRefused(message.topic);
        if (fromQueue) {
            m_link.queue.countDropped(message, DropReason::TooLarge);
        }
        int& reported = m_link.refusedTopics[message.topic];
        if (reported != -1) {
            printError("a message on " + message.topic + " is larger than the broker accepts");
        }
        reported = -1;
        return true;
    }
    publication.retain = publication.retain && m_link.retained.isNewest(message.topic, message.queued);
    if (!fromQueue && !publication.retain) {
        m_link.retained.notePassed(std::move(message)); // a newer one was sent meanwhile
        return true;
    }
    if (publication.retain) {
        m_link.retained.noteAsked(message.topic, message.queued);
    }
    const std::size_t bytes = publication.topic.size() + publication.payload.size();
    const auto id = m_client.publish(publication);
    if (publication.qos == 0) {
        if (publication.retain) {
            m_link.retained.noteAccepted(message.topic, message.queued);
        }
        if (fromQueue) {
            m_link.queue.countSent(message, bytes, monotonicNow());
        }
        return id.has_value();
    }
    // If the connection has ended in this call, the message is given back with the others.
    InFlight& inFlight = m_inFlight[id ? *id : -1];
    inFlight.message = std::move(message);
    inFlight.bytes = bytes;
    inFlight.retained = publication.retain;
    inFlight.sent = now;
    inFlight.fromQueue = fromQueue;
    return id.has_value();
}

Publication& BrokerConnection::toPublication(const OutgoingMessage& message)
{
    Publication& publication = m_publication;
    publication.topic = message.topic;
    if (m_link.settings.bare) {
        publication.payload = barePayloadOf(message);
    } else {
        setToPayload(publication.payload, message, m_link.session);
    }
    publication.qos = std::min(message.qos, m_limits.maximumQos);
    publication.retain = message.retain && m_limits.retain;
    publication.correlation = message.correlation;
    if (m_version5 && message.number != 0) {
        auto& properties = publication.properties; // keep their memory
        properties.resize(4);
        const auto set = [&properties](std::size_t index, const char* name, const std::string& value) {
            properties[index].first = name;
            properties[index].second = value;
        };
        set(0, "class", message.className);
        set(1, "session", std::to_string(message.session != 0 ? message.session : m_link.session.number));
        set(2, "n", std::to_string(message.number));
        set(3, "time", message.time.text);
    } else {
        publication.properties.clear();
    }
    return publication;
}

/// Sends what waits before it says goodbye.
bool BrokerConnection::mayStop(Nanoseconds now)
{
    const bool late = now > m_link.stopBefore;
    if (!m_connected) {
        return true;
    }
    if (!late && (m_link.queue.waiting() != 0 || !m_inFlight.empty() || !m_replacements.empty() ||
                  !m_client.isWritable())) {
        return false;
    }
    if (!late && !m_farewell) {
        m_farewell = true;
        m_control.push_back(stateMessage(m_link.settings, m_link.session, false));
        return false;
    }
    if (!late && !m_control.empty()) {
        return false;
    }
    if (!m_farewell || !m_control.empty()) {
        // After an orderly end the broker sends no will. QoS 0 does not count as in flight.
        Publication farewell = stateMessage(m_link.settings, m_link.session, false);
        farewell.qos = 0;
        sendControl(std::move(farewell), now);
    }
    m_client.disconnect();
    return true;
}

} // namespace TelvaneTool::Mqtt

// A message counts as the newest as soon as it is sent, because an older one can follow before the broker answers. If the
// broker refuses it, the newest of those that the broker has takes its place. That can be several connections later, so
// what was passed is kept until the broker retains it or a newer one.

#include "telvane-mqtt/broker/RetainedTopics.h"

#include <iterator>
#include <utility>

namespace TelvaneTool::Mqtt
{

bool RetainedTopics::isNewest(const std::string& topic, std::int64_t queued) const
{
    const auto found = m_topics.find(topic);
    if (found == m_topics.end()) {
        return true;
    }
    const Topic& known = found->second;
    return (!known.accepted || queued >= *known.accepted) &&
           (known.asked.empty() || queued >= *known.asked.rbegin());
}

void RetainedTopics::noteAsked(const std::string& topic, std::int64_t queued)
{
    m_topics[topic].asked.insert(queued);
}

void RetainedTopics::noteAccepted(const std::string& topic, std::int64_t queued)
{
    Topic& known = m_topics[topic];
    if (!known.accepted || queued > *known.accepted) {
        known.accepted = queued;
    }
    // Older ones without answer were lost with their connection. If they come again, they are not the newest.
    known.asked.erase(known.asked.begin(), known.asked.upper_bound(*known.accepted));
    if (known.passed && known.passed->queued <= *known.accepted) {
        known.passed.reset();
    }
}

void RetainedTopics::noteRefused(const std::string& topic, std::int64_t queued)
{
    const auto found = m_topics.find(topic);
    if (found != m_topics.end()) {
        found->second.asked.erase(queued);
    }
}

void RetainedTopics::notePassed(OutgoingMessage message)
{
    Topic& known = m_topics[message.topic];
    const bool isOld = known.accepted && message.queued <= *known.accepted;
    if (!isOld && (!known.passed || message.queued > known.passed->queued)) {
        known.passed = std::move(message);
    }
}

void RetainedTopics::noteLost()
{
    for (auto& [name, topic] : m_topics) {
        if (!topic.asked.empty()) {
            topic.asked.erase(topic.asked.begin(), std::prev(topic.asked.end()));
        }
    }
}

std::optional<OutgoingMessage> RetainedTopics::takeNewest(const std::string& topic)
{
    const auto found = m_topics.find(topic);
    if (found == m_topics.end() || !found->second.passed || !isNewest(topic, found->second.passed->queued)) {
        return std::nullopt;
    }
    return std::exchange(found->second.passed, std::nullopt);
}

std::vector<OutgoingMessage> RetainedTopics::takeNewest()
{
    std::vector<OutgoingMessage> messages;
    for (const auto& [name, topic] : m_topics) {
        if (auto message = takeNewest(name)) {
            messages.push_back(std::move(*message));
        }
    }
    return messages;
}

} // namespace TelvaneTool::Mqtt

// A message counts as the newest as soon as it is sent, because an older one can follow before the broker answers. If the
// broker refuses it, the newest of those that followed takes its place.

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

void RetainedTopics::notePassed(const Publication& publication, std::int64_t queued)
{
    Topic& known = m_topics[publication.topic];
    const bool isOld = known.accepted && queued < *known.accepted;
    if (!isOld && (!known.passed || queued > known.passed->queued)) {
        known.passed = Replacement{publication, queued};
    }
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

std::optional<RetainedTopics::Replacement> RetainedTopics::noteRefused(const std::string& topic,
                                                                       std::int64_t queued)
{
    const auto found = m_topics.find(topic);
    if (found == m_topics.end()) {
        return std::nullopt;
    }
    Topic& known = found->second;
    known.asked.erase(queued);
    if (known.passed && known.passed->queued == queued) {
        known.passed.reset(); // refused as well
    }
    if (!known.passed || !isNewest(topic, known.passed->queued)) {
        return std::nullopt;
    }
    return std::exchange(known.passed, std::nullopt);
}

void RetainedTopics::noteLost()
{
    for (auto& [name, topic] : m_topics) {
        topic.passed.reset();
        if (!topic.asked.empty()) {
            topic.asked.erase(topic.asked.begin(), std::prev(topic.asked.end()));
        }
    }
}

} // namespace TelvaneTool::Mqtt

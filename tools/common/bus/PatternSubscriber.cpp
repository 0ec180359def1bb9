// A channel exists once a client has subscribed to it; messages on other channels are dropped. Polling the list of
// channels is therefore enough to see all messages, except the first ones of a new channel.

#include "common/bus/PatternSubscriber.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"

#include <Telvane/RecordCatalogue.h>

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kPollInterval = kSecond / 2;

} // namespace

PatternSubscriber::PatternSubscriber(BusConnection& bus, std::vector<std::string> wanted, bool all,
                                     Subscriber subscribe, std::size_t maxChannels)
    : m_bus(bus), m_subscribe(std::move(subscribe)), m_maxChannels(maxChannels)
{
    for (std::string& name : wanted) {
        (isPattern(name) ? m_patterns : m_names).push_back(std::move(name));
    }
    if (all) {
        m_patterns.emplace_back("*");
    }
    if (!m_patterns.empty()) {
        m_status.emplace(m_bus);
    }
}

int PatternSubscriber::start()
{
    int result = kSuccess;
    for (std::size_t i = 0; i < m_names.size() && result == kSuccess; ++i) {
        result = add(m_names[i]);
    }
    if (result != kSuccess || !m_status.has_value()) {
        return result;
    }
    // A server reports a channel only after its first subscription, so its answer lacks channels without other
    // subscribers.
    for (const Telvane::RecordClass& recordClass : Telvane::RecordCatalogue::classes()) {
        if (matchesAnyPattern(m_patterns, recordClass.name)) {
            addOptional(recordClass.name);
        }
    }
    result = m_status->start(false);
    if (result == kSuccess) {
        addMatching();
        m_nextPoll = monotonicNow() + kPollInterval;
    } else if (!m_subscribed.empty()) {
        printError("continuing without channels that are not named like a record class");
        result = kSuccess;
    }
    return result;
}

int PatternSubscriber::follow()
{
    if (m_nextPoll < 0 || m_bus.stopping()) {
        return kSuccess;
    }
    if (const Nanoseconds now = monotonicNow(); now >= m_nextPoll) {
        m_nextPoll = now + kPollInterval;
        m_status->request();
    }
    if (m_status->responses() != m_responses) {
        addMatching();
    }
    return kSuccess;
}

Nanoseconds PatternSubscriber::nextWake(Nanoseconds deadline) const
{
    if (deadline < 0 || m_nextPoll < 0) {
        return std::max(deadline, m_nextPoll);
    }
    return std::min(deadline, m_nextPoll);
}

void PatternSubscriber::addMatching()
{
    m_responses = m_status->responses();
    for (const ChannelStatus& channel : m_status->channels()) {
        if (!isStatusChannel(channel.name) && matchesAnyPattern(m_patterns, channel.name)) {
            addOptional(channel.name);
        }
    }
}

/// A refusal of a channel that was not named by the user is reported, but is not a failure.
void PatternSubscriber::addOptional(const std::string& channel)
{
    if (m_bus.stopping() || !checkChannel(channel).empty()) {
        return;
    }
    if (m_subscribed.size() < m_maxChannels || m_subscribed.count(channel) != 0) {
        add(channel);
    } else if (!m_limitReported) {
        m_limitReported = true;
        printError("not all channels are followed: patterns match more than " +
                   std::to_string(m_maxChannels));
    }
}

int PatternSubscriber::add(const std::string& channel)
{
    // A second subscription would replace the first one and miss messages in between.
    return m_subscribed.insert(channel).second ? m_subscribe(channel) : static_cast<int>(kSuccess);
}

} // namespace TelvaneTool

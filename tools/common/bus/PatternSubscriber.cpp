// A channel is there once somebody has subscribed to it: what is published on others is dropped. So a
// follower that asks for all channels sees what others see, a moment later for a channel that is new.

#include "common/bus/PatternSubscriber.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kLook = kSecond / 2;

} // namespace

PatternSubscriber::PatternSubscriber(BusConnection& session, std::vector<std::string> wanted, bool all,
                                     Subscriber subscribe)
    : m_session(session), m_subscribe(std::move(subscribe))
{
    for (std::string& name : wanted) {
        (isPattern(name) ? m_patterns : m_names).push_back(std::move(name));
    }
    if (all) {
        m_patterns.emplace_back("*");
    }
    if (!m_patterns.empty()) {
        m_inquiry.emplace(m_session);
    }
}

int PatternSubscriber::start()
{
    int result = kSuccess;
    for (std::size_t i = 0; i < m_names.size() && result == kSuccess; ++i) {
        result = add(m_names[i]);
    }
    if (result == kSuccess && m_inquiry.has_value()) {
        result = m_inquiry->start(false);
        if (result == kSuccess) {
            result = addMatching();
        }
        m_nextLook = monotonicNow() + kLook;
    }
    return result;
}

int PatternSubscriber::follow()
{
    if (!m_inquiry.has_value() || m_session.stopping()) {
        return kSuccess;
    }
    if (const Nanoseconds now = monotonicNow(); now >= m_nextLook) {
        m_nextLook = now + kLook;
        m_inquiry->ask();
    }
    return m_inquiry->answers() != m_answers ? addMatching() : static_cast<int>(kSuccess);
}

Nanoseconds PatternSubscriber::nextWake(Nanoseconds deadline) const
{
    if (deadline < 0 || m_nextLook < 0) {
        return std::max(deadline, m_nextLook);
    }
    return std::min(deadline, m_nextLook);
}

int PatternSubscriber::addMatching()
{
    m_answers = m_inquiry->answers();
    int result = kSuccess;
    for (const ChannelStatus& channel : m_inquiry->channels()) {
        if (result == kSuccess && !m_session.stopping() && !isStatusChannel(channel.name) &&
            matchesAnyPattern(m_patterns, channel.name)) {
            result = add(channel.name);
        }
    }
    return result;
}

int PatternSubscriber::add(const std::string& channel)
{
    // A second subscription would take the place of the first, and miss what comes in between.
    return m_subscribed.insert(channel).second ? m_subscribe(channel) : static_cast<int>(kSuccess);
}

} // namespace TelvaneTool

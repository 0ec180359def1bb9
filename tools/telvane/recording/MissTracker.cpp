#include "recording/MissTracker.h"

#include "common/bus/DecodedRecord.h"
#include "common/bus/RecordBuilder.h"
#include "common/bus/SequenceNumbers.h"

#include <algorithm>
#include <string>
#include <time.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kAskPeriod = kSecond / 2;
/// The end of a burst may be missing without a later message that shows a gap.
constexpr std::uint64_t kMinBurst = 50;
constexpr Nanoseconds kPause = kSecond;
/// A stopping connection can send for 200 ms.
constexpr Nanoseconds kLastAnswer = 150 * kMillisecond;
constexpr Nanoseconds kAskAgain = 40 * kMillisecond;
constexpr timespec kPoll = {0, 2'000'000};

} // namespace

int MissTracker::start()
{
    m_lastArrival = monotonicNow();
    return m_connection.subscribe(kClientsStatus, DecodedRecord(nullptr),
                                  [this](void*, Telvane::TelvaneDataTypeBase* record, int sequence, void*) {
                                      takeAnswer(static_cast<DecodedRecord&>(*record).text(), sequence);
                                  });
}

void MissTracker::subscribes(const std::string& channel)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_subscribed.insert(channel);
}

void MissTracker::arrived(const std::string& channel, int sequence)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_channels.insert(channel);
    addSequence(sequence);
    ++m_unconfirmed;
}

/// Called with the lock held.
void MissTracker::addSequence(int sequence)
{
    const Nanoseconds now = monotonicNow();
    if (m_lastSequence >= 0) {
        auto missing = static_cast<std::uint64_t>(sequencesBetween(m_lastSequence, sequence));
        const std::uint64_t own = std::min(missing, m_ownRequests);
        missing -= own;
        m_ownRequests -= own;
        if (missing != 0) {
            m_gapFrom = m_gap ? m_gapFrom : m_lastArrival;
            m_gapTo = now;
            m_gap = true;
        }
    }
    m_lastSequence = sequence;
    m_lastArrival = now;
}

void MissTracker::takeAnswer(const std::string& payload, int sequence)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    addSequence(sequence);
    if (!m_answer.take(payload)) {
        return;
    }
    ++m_answers;
    const ClientStatus* const self = findSelf();
    if (self == nullptr) {
        return;
    }
    const Nanoseconds now = monotonicNow();
    for (const Telvane::EventServerSubscriptionStatus& subscription : self->subscriptions) {
        // Any client can publish an answer, with any number of channels.
        if (isStatusChannel(subscription.channel) || m_subscribed.count(subscription.channel) == 0) {
            continue;
        }
        std::uint64_t& reported = m_missed[subscription.channel];
        if (subscription.missed > reported) {
            m_onMissed(subscription.channel, subscription.missed - reported,
                       m_gap ? m_gapFrom : m_lastArrival, m_gap ? m_gapTo : now);
            reported = subscription.missed;
        }
    }
    m_gap = false;
    m_unconfirmed = 0;
}

/// Called with the lock held. In a container, the server may see another process ID: then the client with these
/// subscriptions is this one, if there is only one.
const ClientStatus* MissTracker::findSelf() const
{
    const ClientStatus* found = nullptr;
    std::size_t count = 0;
    for (const ClientStatus& client : m_answer.items()) {
        const auto isSubscribed = [&client](const std::string& channel) {
            return std::any_of(
                client.subscriptions.begin(), client.subscriptions.end(),
                [&channel](const auto& subscription) { return subscription.channel == channel; });
        };
        if (isSubscribed(kClientsStatus) && std::all_of(m_channels.begin(), m_channels.end(), isSubscribed)) {
            if (client.process == getpid()) {
                return &client;
            }
            found = &client;
            ++count;
        }
    }
    return count == 1 ? found : nullptr;
}

void MissTracker::ask()
{
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        ++m_ownRequests;
    }
    RawRecord nothing;
    m_connection.publish(std::string("req_") + kClientsStatus, nothing);
}

void MissTracker::restart()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_missed.clear();
    m_lastSequence = -1;
    m_ownRequests = 0;
    m_unconfirmed = 0;
    m_gap = false;
}

void MissTracker::follow()
{
    const Nanoseconds now = monotonicNow();
    if (now < m_nextAsk || m_connection.stopping()) {
        return;
    }
    bool due = false;
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        due = m_gap || (m_unconfirmed >= kMinBurst && now - m_lastArrival >= kPause);
    }
    if (due) {
        m_nextAsk = now + kAskPeriod;
        ask();
    }
}

void MissTracker::finish()
{
    const auto answers = [this] {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_answers;
    };
    const std::uint64_t before = answers();
    const Nanoseconds deadline = monotonicNow() + kLastAnswer;
    Nanoseconds nextAsk = 0;
    while (answers() == before && monotonicNow() < deadline) {
        // Under load the answer itself may be lost.
        if (monotonicNow() >= nextAsk) {
            nextAsk = monotonicNow() + kAskAgain;
            ask();
        }
        nanosleep(&kPoll, nullptr);
    }
}

bool MissTracker::uncertain()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_gap;
}

} // namespace TelvaneTool

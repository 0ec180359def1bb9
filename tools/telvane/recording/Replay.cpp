#include "recording/Replay.h"

#include "common/bus/RecordBuilder.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/ProgressBar.h"
#include "common/support/ChannelPattern.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Pacer.h"
#include "common/support/Saturating.h"

#include <optional>

namespace TelvaneTool
{

namespace
{

/// The pacer catches up on a limited number of these after a delay.
constexpr Nanoseconds kPacerPeriod = kMillisecond;

} // namespace

int Replay::run()
{
    Pacer pacer([this](Nanoseconds deadline) { return m_session.sleepUntil(deadline); }, m_settings.speed);
    ProgressBar bar;
    int result = kSuccess;
    std::uint64_t before = 0;
    do {
        before = m_published;
        result = pass(pacer, bar);
    } while (m_settings.loop && result == kSuccess && !m_session.stopping() && m_published != before);
    bar.clear();
    if (m_refused != 0) {
        printError("records that could not be published: " + std::to_string(m_refused) +
                   "; the bus carries JSON objects up to a certain size");
        result = result == kSuccess ? static_cast<int>(kWrongInput) : result;
    }
    if (pacer.late() > 0) {
        printError("fell " + printSpan(pacer.late()) + " behind the recorded pace");
    }
    return result;
}

int Replay::pass(Pacer& pacer, ProgressBar& bar)
{
    RecordingInput input(m_paths, m_settings.range, [this](int fd) { return m_session.awaitInput(fd); });
    if (!input.open()) {
        return m_session.stopping() ? kSuccess : kWrongInput;
    }
    RecordedMessage message;
    std::optional<Nanoseconds> last;
    while (!m_session.stopping() && input.next(message)) {
        if (message.isNote() || !matchesAnyPattern(m_settings.only, message.channel)) {
            continue;
        }
        if (!last) {
            // Start at the requested time, to keep a pause before the first message.
            pacer.begin(input.begin(), kPacerPeriod);
        } else if (message.time < *last) {
            pacer.begin(message.time, kPacerPeriod); // an older file
        }
        last = message.time;
        show(bar, input, subtractSaturated(message.time, input.origin()));
        if (!pacer.waitUntil(message.time) || !publish(message)) {
            return m_session.stopping() ? kSuccess : kBusFailure;
        }
    }
    bar.clear();
    return input.finish();
}

bool Replay::publish(const RecordedMessage& message)
{
    std::string error;
    JsonTree payload = parseJson(std::string(message.payload), error);
    if (!cJSON_IsObject(payload.get())) {
        ++m_refused;
        return true;
    }
    std::string channel(message.channel);
    if (const auto renamed = m_settings.renames.find(channel); renamed != m_settings.renames.end()) {
        channel = renamed->second;
    }
    RawRecord record(std::move(payload));
    constexpr std::size_t kAlwaysFits = kMaxPublicationSize / 2;
    if (message.payload.size() > kAlwaysFits &&
        !checkPublicationSize(publicationSize(channel, record)).empty()) {
        ++m_refused;
        return true;
    }
    if (!m_session.publish(channel, record)) {
        return false;
    }
    ++m_published;
    return true;
}

void Replay::show(ProgressBar& bar, const RecordingInput& input, Nanoseconds time) const
{
    if (bar.due()) {
        bar.draw(input.fraction(), printSpan(time) + "  " + printNumber(m_published, "record"));
    }
}

} // namespace TelvaneTool

#include "recording/Replay.h"

#include "common/bus/RecordBuilder.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/ProgressBar.h"
#include "common/support/ChannelPattern.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Pacer.h"

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
    RecordingReader reader;
    if (!reader.open(m_path, [this](int fd) { return m_session.awaitInput(fd); })) {
        return m_session.stopping() ? kSuccess : kWrongInput;
    }
    RecordedMessage message;
    Nanoseconds origin = -1;
    bool begun = false;
    while (!m_session.stopping() && reader.next(message)) {
        origin = origin < 0 ? message.time : origin;
        const Nanoseconds time = message.time - origin;
        if (m_settings.until >= 0 && time >= m_settings.until) {
            return kSuccess;
        }
        if (time < m_settings.from || !matchesAnyPattern(m_settings.only, message.channel)) {
            continue;
        }
        if (!begun) {
            // Start at the requested time, to keep a pause before the first message.
            pacer.begin(m_settings.from, kPacerPeriod);
            begun = true;
        }
        show(bar, reader, time);
        if (!pacer.waitUntil(time) || !publish(message)) {
            return m_session.stopping() ? kSuccess : kBusFailure;
        }
    }
    bar.clear();
    return reader.finish();
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

void Replay::show(ProgressBar& bar, const RecordingReader& reader, Nanoseconds time) const
{
    if (bar.due()) {
        const double fraction = reader.size() != 0
                                    ? static_cast<double>(reader.bytes()) / static_cast<double>(reader.size())
                                    : -1.0;
        bar.draw(fraction, printSpan(time) + "  " + std::to_string(m_published) + " records");
    }
}

} // namespace TelvaneTool

// A weld can be joined in the middle: the program was started late, or the bus was away. Its samples are then drawn from
// the number of the first one, and the time between two samples is measured from their time stamps, which have whole
// milliseconds only. The measurement is therefore taken over many samples.

#include "telvane-web/live/LiveWeld.h"

#include "common/support/Json.h"
#include "common/support/Saturating.h"
#include "common/weld/WeldMatcher.h"

#include <cmath>
#include <cstdio>

namespace TelvaneTool
{

using Telvane::UnitValueDoublePair;
using Telvane::UnitValuePair;
using Telvane::WeldTraceData;
using Telvane::WeldTriggerEnd;
using Telvane::WeldTriggerStart;

namespace
{

constexpr double kWindow = 0.1;                 // of the values in figures, s
constexpr std::int64_t kMeasuredSamples = 4000; // enough for the period to 0.05 %
constexpr double kDefaultPeriod = 0.0005;
constexpr std::size_t kMaxText = 2000;
constexpr double kMicrosecondsPerSecond = 1e6;

void addMilliseconds(cJSON* object, const char* key, Nanoseconds wallClock)
{
    addNumber(object, key, wallClock / kMillisecond);
}

/// Pairs without a unit were not set or not measured.
template <class Pair>
void addPair(cJSON* object, const char* key, const Pair& pair)
{
    if (!pair.Unit.empty()) {
        cJSON* const item = cJSON_AddObjectToObject(object, key);
        addNumber(item, "value", pair.Value);
        addText(item, "unit", shortened(pair.Unit, 40));
    }
}

const char* nameOf(LiveWeld::State state)
{
    switch (state) {
    case LiveWeld::State::None:
        return "none";
    case LiveWeld::State::Arc:
        return "arc";
    case LiveWeld::State::Silent:
        return "silent";
    case LiveWeld::State::Ended:
        break;
    }
    return "ended";
}

} // namespace

std::string shortened(const std::string& text, std::size_t bytes)
{
    if (text.size() <= bytes) {
        return text;
    }
    std::size_t end = bytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return text.substr(0, end);
}

void LiveWeld::begin()
{
    ++m_weld;
    m_envelope.clear();
    m_metrics = {};
    m_next = 0;
    m_firstNumber = -1;
    m_weldSamples = 0;
    m_weldMissed = 0;
    m_powerSum = 0.0;
    m_window = {};
    m_windowBegin = 0;
    m_values = {};
}

void LiveWeld::take(const WeldTriggerStart& start, Nanoseconds now, Nanoseconds wallClock)
{
    begin();
    m_start = start;
    m_startKnown = true;
    m_periodGiven = start.samplePeriodus > 0;
    m_period = m_periodGiven ? start.samplePeriodus / kMicrosecondsPerSecond : kDefaultPeriod;
    m_lastSample = now;
    setState(State::Arc, wallClock);
}

void LiveWeld::take(const WeldTraceData& trace, Nanoseconds now, Nanoseconds wallClock)
{
    if (trace.sequence < 0) {
        return;
    }
    m_lastSample = now;
    if (m_state == State::None || m_state == State::Ended) {
        begin();
        m_start = {};
        m_startKnown = false;
        m_periodGiven = false;
        m_period = kDefaultPeriod;
        m_next = trace.sequence;
        setState(State::Arc, wallClock);
    } else if (m_state == State::Silent) {
        setState(State::Arc, wallClock);
    }
    const Telvane::WeldTraceDataPoint& point = trace.data;
    const bool powerMeasured = !m_start.data.power.empty();
    const LiveValues values = {point.amps, point.volts, point.wfs, point.gas,
                               powerMeasured ? point.power : point.amps * point.volts};
    m_envelope.add(trace.sequence, values);
    ++m_samples;
    ++m_weldSamples;
    if (trace.sequence > m_next) {
        const auto lost = static_cast<std::uint64_t>(trace.sequence - m_next);
        m_missed += lost;
        m_weldMissed += lost;
    }
    m_next = std::int64_t{trace.sequence} + 1;
    m_powerSum += values[static_cast<std::size_t>(LiveQuantity::Power)];
    if (!m_periodGiven) {
        measurePeriod(trace);
    }
    if (std::abs(static_cast<double>(trace.sequence - m_windowBegin)) * m_period >= kWindow) {
        m_window = {};
        m_windowBegin = trace.sequence;
    }
    m_window.add(values);
    // The first samples of a new window say less than all of the old one.
    if (static_cast<double>(m_window.samples) * m_period >= kWindow / 2 ||
        m_weldSamples == m_window.samples) {
        for (std::size_t i = 0; i < kLiveQuantities; ++i) {
            m_values[i] = m_window.mean(i);
        }
    }
}

void LiveWeld::measurePeriod(const WeldTraceData& trace)
{
    const Nanoseconds time = stampOf(trace.timestamp);
    if (m_firstNumber < 0) {
        m_firstNumber = trace.sequence;
        m_firstTime = time;
        return;
    }
    const std::int64_t samples = trace.sequence - m_firstNumber;
    constexpr std::int64_t kFirst = 100;
    if (samples < kFirst || samples % kFirst != 0 || time <= m_firstTime) {
        return;
    }
    m_period = inSeconds(subtractSaturated(time, m_firstTime)) / static_cast<double>(samples);
    m_periodGiven = samples >= kMeasuredSamples;
    enterState();
}

void LiveWeld::take(const WeldTriggerEnd& end, Nanoseconds wallClock)
{
    if (m_state == State::None) {
        begin();
        m_start = {};
        m_startKnown = false;
    }
    m_start.tag = end.tag;
    m_metrics = end.metrics;
    setState(State::Ended, wallClock);
}

void LiveWeld::takeError(const std::string& channel, const std::string& code, const std::string& text,
                         Nanoseconds wallClock)
{
    const JsonTree entry(cJSON_CreateObject());
    addNumber(entry.get(), "id", m_log.newest() + 1);
    addMilliseconds(entry.get(), "time", wallClock);
    addText(entry.get(), "channel", shortened(channel, kMaxText));
    addText(entry.get(), "code", shortened(code, kMaxText));
    addText(entry.get(), "text", shortened(text, kMaxText));
    m_log.add("fault", printJson(entry.get()));
}

void LiveWeld::busChanged(const std::string& reason, Nanoseconds wallClock)
{
    if (reason == m_busReason) {
        return;
    }
    m_busReason = reason;
    m_busSince = wallClock;
    enterState();
}

void LiveWeld::tick(Nanoseconds now, Nanoseconds wallClock)
{
    if (m_state == State::Arc && now - m_lastSample >= kSilence) {
        setState(State::Silent, wallClock);
    }
}

void LiveWeld::setState(State state, Nanoseconds wallClock)
{
    m_state = state;
    m_since = wallClock;
    enterState();
}

void LiveWeld::enterState()
{
    m_log.add("state", stateJson());
}

std::string LiveWeld::stateJson() const
{
    const JsonTree tree(cJSON_CreateObject());
    cJSON* const root = tree.get();
    addText(root, "state", nameOf(m_state));
    addMilliseconds(root, "since", m_since);
    cJSON* const bus = cJSON_AddObjectToObject(root, "bus");
    cJSON_AddBoolToObject(bus, "connected", m_busReason.empty() ? 1 : 0);
    addText(bus, "reason", m_busReason);
    addMilliseconds(bus, "since", m_busSince);
    if (m_weld == 0) {
        return printJson(root);
    }
    cJSON* const weld = cJSON_AddObjectToObject(root, "weld");
    addNumber(weld, "number", m_weld);
    addNumber(weld, "period", m_period);
    if (m_startKnown || m_state == State::Ended) {
        addNumber(weld, "tag", m_start.tag);
    }
    if (m_startKnown) {
        addMilliseconds(weld, "started", stampOf(m_start.timestamp));
        addNumber(weld, "program", m_start.program);
        addText(weld, "side", shortened(m_start.FeederSide, 80));
        cJSON* const set = cJSON_AddObjectToObject(weld, "set");
        addPair(set, "amps", m_start.settings.CommandAmperage);
        addPair(set, "volts", m_start.settings.CommandVoltage);
        addPair(set, "wfs", m_start.settings.CommandWFS);
        cJSON* const units = cJSON_AddObjectToObject(weld, "units");
        const Telvane::WeldTraceDataPointDefinition& data = m_start.data;
        for (const auto& [key, unit] : {std::pair{"amps", &data.amps},
                                        {"volts", &data.volts},
                                        {"wfs", &data.wfs},
                                        {"gas", &data.gas},
                                        {"power", &data.power},
                                        {"motor", &data.motor}}) {
            addText(units, key, shortened(*unit, 40));
        }
    }
    if (m_state == State::Ended) {
        cJSON* const metrics = cJSON_AddObjectToObject(weld, "metrics");
        addPair(metrics, "duration", m_metrics.ArcDuration);
        addPair(metrics, "volts", m_metrics.AverageVoltage);
        addPair(metrics, "amps", m_metrics.AverageAmperage);
        addPair(metrics, "wfs", m_metrics.AverageWFS);
        addPair(metrics, "gas", m_metrics.AverageGas);
        addPair(metrics, "motor", m_metrics.AverageMotor);
        addPair(metrics, "deposition", m_metrics.TotalDeposition);
        addPair(metrics, "energy", m_metrics.TotalEnergy);
    }
    return printJson(root);
}

std::string LiveWeld::valuesJson() const
{
    char text[320];
    const int length = std::snprintf(
        text, sizeof text,
        R"({"weld":%u,"time":%.7g,"amps":%.7g,"volts":%.7g,"wfs":%.7g,"gas":%.7g,"power":%.7g,"energy":%.7g,"samples":%llu,"missed":%llu})",
        m_weld, static_cast<double>(m_next) * m_period, m_values[0], m_values[1], m_values[2], m_values[3],
        m_values[4], m_powerSum * m_period, static_cast<unsigned long long>(m_weldSamples),
        static_cast<unsigned long long>(m_weldMissed));
    return {text, static_cast<std::size_t>(length)};
}

} // namespace TelvaneTool

// Units are A, V, in/min, l/min, J, lb and s. A quantity that was not measured has the value 0 and an empty
// unit, which distinguishes it from a measured zero.

#include "weld/WeldPublisher.h"

#include "common/support/Saturating.h"

#include <Telvane/WireComputations.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <limits>

namespace TelvaneTool
{

using Telvane::DateTime;
using Telvane::UnitValueDoublePair;
using Telvane::UnitValuePair;
using Telvane::WeldMetrics;
using Telvane::WeldTraceDataPoint;
using Telvane::WeldTriggerEnd;
using Telvane::WeldTriggerStart;

namespace
{

constexpr const char* kAmps = "A";
constexpr const char* kVolts = "V";
constexpr const char* kWatts = "W";
constexpr const char* kWfs = "in/min";
constexpr const char* kGas = "l/min";
constexpr const char* kJoule = "J";
constexpr const char* kPounds = "lb";
constexpr const char* kSeconds = "s";
constexpr double kInchesPerFoot = 12.0;
constexpr double kSecondsPerHour = 3600.0;

const std::string kStartChannel = "WeldTriggerStart";
const std::string kTraceChannel = "WeldTraceData";
const std::string kEndChannel = "WeldTriggerEnd";

void set(UnitValueDoublePair& pair, const char* unit, double value)
{
    pair.Unit = unit;
    pair.Value = value;
}

/// Rounds to the nearest integer in range.
void set(UnitValuePair& pair, const char* unit, double value)
{
    constexpr double kMax = std::numeric_limits<int>::max();
    pair.Unit = unit;
    pair.Value = static_cast<int>(std::lround(std::clamp(value, -kMax, kMax)));
}

DateTime toDateTime(Nanoseconds sinceEpoch)
{
    DateTime time;
    time.time.tv_sec = static_cast<time_t>(sinceEpoch / kSecond);
    time.time.tv_nsec = static_cast<long>(sinceEpoch % kSecond);
    return time;
}

} // namespace

WeldMetrics weldMetrics(const WeldSummary& summary, const SampleSource::Traits& traits,
                        const WeldSetup& setup)
{
    WeldMetrics metrics;
    set(metrics.ArcDuration, kSeconds, rounded(inSeconds(summary.arcTime()), 1e6));
    set(metrics.AverageVoltage, kVolts, rounded(summary.mean(Quantity::Volts), 1e3));
    set(metrics.AverageAmperage, kAmps, summary.mean(Quantity::Amps));
    set(metrics.TotalEnergy, kJoule, summary.energy());
    const bool wireMeasured = traits.has(Quantity::Wfs) || traits.has(Quantity::WireUsed);
    if (wireMeasured) {
        constexpr double kSecondsPerMinute = 60.0;
        const double minutes = inSeconds(summary.arcTime()) / kSecondsPerMinute;
        set(metrics.AverageWFS, kWfs, minutes > 0.0 ? summary.wireLength() / minutes : 0.0);
        const auto diameter = static_cast<float>(Telvane::GetWireDiameterInInches(setup.wireSize));
        const double poundsPerFoot = Telvane::GetWireWeight(setup.alloy, diameter);
        set(metrics.TotalDeposition, kPounds,
            rounded(summary.wireLength() / kInchesPerFoot * poundsPerFoot, 1e6));
    }
    if (traits.has(Quantity::Gas)) {
        set(metrics.AverageGas, kGas, summary.mean(Quantity::Gas));
    }
    if (traits.has(Quantity::Motor)) {
        set(metrics.AverageMotor, kAmps, summary.mean(Quantity::Motor));
    }
    return metrics;
}

WeldPublisher::WeldPublisher(RecordSink& sink, const SampleSource& source, LatencyTracker& ledger,
                             const WeldSetup& setup, const Settings& settings)
    : m_sink(sink),
      m_source(source),
      m_ledger(ledger),
      m_setup(setup),
      m_settings(settings),
      m_pacer([&sink](Nanoseconds deadline) { return sink.sleepUntil(deadline); }, settings.speed),
      m_tag(setup.firstTag),
      m_lifetimeHours(setup.lifetimeHours)
{}

void WeldPublisher::beginGroup(const WeldSample& first)
{
    m_pacer.begin(first.time, m_source.traits().period);
    if (!m_source.traits().absoluteTime) {
        // Time stamps never go back, even if a group is replayed faster than recorded.
        const Nanoseconds earliest = m_begun ? addSaturated(m_lastMoment, m_stampOffset) : 0;
        m_stampOffset = subtractSaturated(std::max(realTimeNow(), earliest), first.time);
    }
    m_begun = true;
}

bool WeldPublisher::waitUntil(Nanoseconds moment)
{
    m_aborted = m_aborted || !m_pacer.waitUntil(moment);
    if (!m_aborted) {
        m_lastMoment = moment;
    }
    return !m_aborted;
}

DateTime WeldPublisher::stamp(Nanoseconds moment)
{
    m_stamp = m_settings.stampNow ? realTimeNow() : addSaturated(moment, m_stampOffset);
    return toDateTime(m_stamp);
}

void WeldPublisher::publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record, int& serial)
{
    m_serial = addSaturated(m_serial, 1);
    serial = m_serial;
    if (m_ledger.isOpen()) {
        m_ledger.note(serial);
    }
    m_sink.publish(channel, record, m_stamp,
                   &channel == &kStartChannel ? m_source.traits().group : std::string());
}

void WeldPublisher::arcStarted(const WeldSample& first)
{
    if (!waitUntil(first.time)) {
        return;
    }
    const SampleSource::Traits& traits = m_source.traits();
    WeldTriggerStart start;
    start.tag = m_tag;
    start.timestamp = stamp(first.time);
    start.samplePeriodus = static_cast<int>(std::min<Nanoseconds>(
        (traits.period + kMicrosecond / 2) / kMicrosecond, std::numeric_limits<int>::max()));
    start.program = m_setup.program;
    start.process = m_setup.process;
    start.wireType = m_setup.wireType;
    start.wireSize = m_setup.wireSize;
    start.alloy = m_setup.alloy;
    start.gas = m_setup.gas;
    start.FeederSide = m_setup.feederSide;
    set(start.settings.CommandVoltage, kVolts, m_setup.setVolts);
    set(start.settings.CommandAmperage, kAmps, m_setup.setAmps);
    set(start.settings.CommandWFS, kWfs, m_setup.setWfs);
    set(start.settings.CommandArcControl, "", m_setup.setArcControl);
    start.data.amps = kAmps;
    start.data.volts = kVolts;
    start.data.wfs = traits.has(Quantity::Wfs) ? kWfs : "";
    start.data.gas = traits.has(Quantity::Gas) ? kGas : "";
    start.data.power = kWatts;
    start.data.motor = traits.has(Quantity::Motor) ? kAmps : "";

    m_summary = WeldSummary(traits.has(Quantity::WireUsed));
    m_trace = {};
    m_welding = true;
    ++m_welds;
    publish(kStartChannel, start, start.messageSerial);
}

void WeldPublisher::arcSample(const WeldSample& sample, bool burning)
{
    if (!waitUntil(sample.time)) {
        return;
    }
    WeldTraceDataPoint& point = m_trace.data;
    point.amps = sample[Quantity::Amps];
    point.volts = sample[Quantity::Volts];
    point.wfs = sample[Quantity::Wfs];
    point.gas = sample[Quantity::Gas];
    point.motor = sample[Quantity::Motor];
    point.power = rounded(point.amps * point.volts, 1e3);
    m_trace.timestamp = stamp(sample.time);
    m_trace.sequence = static_cast<int>(m_summary.samples());
    m_summary.add(sample, burning);
    publish(kTraceChannel, m_trace, m_trace.messageSerial);
    ++m_samples;
}

void WeldPublisher::arcEnded(const WeldSample& end)
{
    if (m_welding && waitUntil(end.time)) {
        endWeld(end);
    }
}

void WeldPublisher::abort()
{
    m_aborted = true;
    if (m_welding) {
        WeldSample end = m_summary.last();
        end.time = addSaturated(end.time, m_source.traits().period);
        endWeld(end);
    }
}

void WeldPublisher::endWeld(const WeldSample& end)
{
    m_welding = false;
    m_summary.end(end);
    m_lifetimeHours += inSeconds(m_summary.arcTime()) / kSecondsPerHour;
    WeldTriggerEnd record;
    record.timestamp = stamp(end.time);
    record.tag = m_tag;
    m_tag = addSaturated(m_tag, 1);
    record.lifetimeArcHours = m_lifetimeHours;
    record.metrics = weldMetrics(m_summary, m_source.traits(), m_setup);
    publish(kEndChannel, record, record.messageSerial);
}

} // namespace TelvaneTool

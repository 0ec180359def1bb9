#include "weld/WeldMonitor.h"

#include "common/cli/Terminal.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"
#include "common/weld/WeldMatcher.h"

#include <algorithm>
#include <cmath>

namespace TelvaneTool
{

using Telvane::DateTime;
using Telvane::UnitValueDoublePair;
using Telvane::UnitValuePair;
using Telvane::WeldMetrics;
using Telvane::WeldTraceData;
using Telvane::WeldTraceDataPoint;
using Telvane::WeldTriggerEnd;
using Telvane::WeldTriggerStart;

namespace
{

constexpr Nanoseconds kColumnTime = kSecond / 5;
constexpr std::size_t kMaxColumns = 60;

std::string withUnit(double value, const std::string& unit)
{
    const std::string text = formatted("%.10g", value);
    return unit.empty() ? text : text + " " + unit;
}

/// One line for each metric that was measured, that is, has a unit.
class MetricLines
{
public:
    template <class Pair>
    MetricLines& add(const char* name, const Pair& pair)
    {
        if (!pair.Unit.empty()) {
            m_text += formatted("  %-18s ", name) + withUnit(pair.Value, pair.Unit) + "\n";
        }
        return *this;
    }
    const std::string& text() const { return m_text; }

private:
    std::string m_text;
};

std::string describe(const WeldMetrics& metrics)
{
    return MetricLines()
        .add("arc duration", metrics.ArcDuration)
        .add("mean voltage", metrics.AverageVoltage)
        .add("mean current", metrics.AverageAmperage)
        .add("mean wire feed", metrics.AverageWFS)
        .add("mean gas flow", metrics.AverageGas)
        .add("mean motor load", metrics.AverageMotor)
        .add("wire deposited", metrics.TotalDeposition)
        .add("energy", metrics.TotalEnergy)
        .text();
}

/// \return an empty text for 0, which means that the set point is unknown
std::string describe(const char* name, const UnitValueDoublePair& pair)
{
    return pair.Value != 0.0 ? std::string(", ") + name + " " + withUnit(pair.Value, pair.Unit)
                             : std::string();
}

} // namespace

void WeldMonitor::arrived(int serial)
{
    ++m_received;
    if (!m_ledger.isOpen()) {
        return;
    }
    const Nanoseconds published = m_ledger.published(serial);
    if (published != 0) {
        m_latency.add(monotonicNow() - published);
    }
}

void WeldMonitor::take(const WeldTriggerStart& start)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    arrived(start.messageSerial);
    m_welding = true;
    m_tag = std::to_string(start.tag);
    m_start = stampOf(start.timestamp);
    m_latest = m_start;
    m_nextSequence = 0;
    m_columns.clear();
    DateTime stamp = start.timestamp;
    m_events += "weld " + std::to_string(start.tag) + " started at " + stamp.ToISO8601String() +
                ": a sample every " + std::to_string(start.samplePeriodus) + " us" +
                describe("set to", start.settings.CommandVoltage) +
                describe("wire feed", start.settings.CommandWFS) +
                describe("current", start.settings.CommandAmperage) + "\n";
}

void WeldMonitor::take(const WeldTraceData& trace)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    arrived(trace.messageSerial);
    ++m_samples;
    if (!m_welding) {
        join(trace);
    }
    if (trace.sequence > m_nextSequence) {
        m_missed = addSaturated(m_missed, static_cast<std::uint64_t>(trace.sequence - m_nextSequence));
    }
    m_nextSequence = std::max<std::int64_t>(0, std::int64_t(trace.sequence) + 1);
    m_latest = stampOf(trace.timestamp);
    addToChart(m_latest, trace.data);
}

/// Shows a weld whose start was before the subscription, or was missed. Its tag is unknown until its end.
void WeldMonitor::join(const WeldTraceData& trace)
{
    m_welding = true;
    m_tag = "?";
    m_start = stampOf(trace.timestamp);
    m_nextSequence = trace.sequence;
    m_columns.clear();
    m_events += "a weld is in progress, shown from its sample " + std::to_string(trace.sequence) + " on\n";
}

void WeldMonitor::take(const WeldTriggerEnd& end)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    arrived(end.messageSerial);
    m_welding = false;
    m_events += "weld " + std::to_string(end.tag) + " ended\n" + describe(end.metrics);
}

void WeldMonitor::addToChart(Nanoseconds time, const WeldTraceDataPoint& point)
{
    if (m_columns.empty() || subtractSaturated(time, m_columns.back().begin) >= kColumnTime) {
        if (!m_columns.empty()) {
            const Column& whole = m_columns.back();
            const double mean = whole.amps / whole.samples;
            m_ampsScale = std::isfinite(mean) ? std::max(m_ampsScale, mean) : m_ampsScale;
        }
        Column column;
        column.begin = time;
        m_columns.push_back(column);
    }
    Column& column = m_columns.back();
    column.amps += point.amps;
    column.volts += point.volts;
    ++column.samples;
    if (m_columns.size() > kMaxColumns) {
        m_columns.pop_front();
    }
}

std::string WeldMonitor::takeEvents()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    std::string events;
    events.swap(m_events);
    return events;
}

std::string WeldMonitor::chart(std::size_t columns) const
{
    static const char* const kBlocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    static const char* const kCharacters[] = {" ", ".", ":", "-", "=", "+", "*", "%", "#"};
    constexpr long kTop = 8;
    const auto& levels = terminalIsUtf8() ? kBlocks : kCharacters;
    std::string text;
    const std::size_t first = m_columns.size() > columns ? m_columns.size() - columns : 0;
    for (std::size_t i = first; i < m_columns.size(); ++i) {
        const double level = m_columns[i].amps / m_columns[i].samples / m_ampsScale * double{kTop};
        text += levels[std::isfinite(level) ? std::lround(std::clamp(level, 0.0, double{kTop})) : 0];
    }
    return text;
}

std::string WeldMonitor::liveLine(std::size_t width) const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (!m_welding || m_columns.empty()) {
        return {};
    }
    // The current column may have only a few samples; the previous one is steadier.
    const Column& shown = m_columns.size() > 1 ? m_columns[m_columns.size() - 2] : m_columns.back();
    const std::string text = formatted("weld %s %6.1f s %5.0f A %5.1f V  ", m_tag.c_str(),
                                       inSeconds(subtractSaturated(m_latest, m_start)),
                                       shown.amps / shown.samples, shown.volts / shown.samples);
    const std::size_t used = text.size() + 1;
    return text + (width > used ? chart(width - used) : "");
}

std::uint64_t WeldMonitor::received() const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_received;
}

std::string WeldMonitor::summary(std::uint64_t undecodable) const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    std::string text;
    if (m_ledger.isOpen()) {
        const std::uint64_t published = m_ledger.published();
        text += "published " + std::to_string(published) + ", received " + std::to_string(m_received) +
                ", lost " + std::to_string(published - std::min(published, m_received)) + "\n";
    } else {
        text += "received " + std::to_string(m_received) + ", lost " + std::to_string(m_missed) +
                " by the samples' numbers\n";
    }
    if (undecodable != 0) {
        text += "could not be decoded: " + std::to_string(undecodable) + "\n";
    }
    if (m_latency.count() != 0) {
        text += "from publish to callback: p50 " + printDuration(m_latency.quantile(0.5)) + ", p99 " +
                printDuration(m_latency.quantile(0.99)) + ", longest " + printDuration(m_latency.max()) +
                "\n";
    }
    return text;
}

} // namespace TelvaneTool

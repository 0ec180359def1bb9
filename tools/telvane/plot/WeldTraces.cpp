// How a sample finds its weld. A weld that can continue with the sample has a smaller sample number and serial
// number, and does not start later. If there is a gap in the sample numbers, the time that passed must also match
// the gap: otherwise, an end and a start are missing in it. Of several welds, the best is the one with
// consecutive serial numbers, then the one with consecutive sample numbers, then the one that fits best in time.
// If two welds fit equally well, the sample is not assigned.

#include "plot/WeldTraces.h"

#include "common/bus/RecordCheck.h"
#include "common/support/Json.h"
#include "common/support/Saturating.h"

#include <Telvane/RecordCatalogue.h>

#include <algorithm>
#include <tuple>

namespace TelvaneTool
{

using Telvane::DateTime;
using Telvane::WeldTraceData;
using Telvane::WeldTriggerEnd;
using Telvane::WeldTriggerStart;

namespace
{

/// Time stamps have milliseconds: the times of faster samples are computed from their numbers.
constexpr Nanoseconds kFinestStamp = 2 * kMillisecond;
/// By how much the time across a gap may differ from what the missing samples take.
constexpr Nanoseconds kGapTolerance = kSecond / 2;
constexpr Nanoseconds kGapToleranceDivisor = 4;          ///< and this part of the time
constexpr Nanoseconds kMinMeasured = 100 * kMillisecond; ///< to measure the interval between samples
constexpr std::size_t kMaxOpen = 64;

Nanoseconds distance(Nanoseconds a, Nanoseconds b)
{
    return subtractSaturated(std::max(a, b), std::min(a, b));
}

bool isWeldChannel(std::string_view channel)
{
    return channel == "WeldTriggerStart" || channel == "WeldTraceData" || channel == "WeldTriggerEnd";
}

} // namespace

Nanoseconds stampOf(const DateTime& stamp)
{
    return addSaturated<Nanoseconds>(
        multiplySaturated<Nanoseconds>(static_cast<Nanoseconds>(stamp.time.tv_sec), kSecond),
        static_cast<Nanoseconds>(stamp.time.tv_nsec));
}

/// How well a sample continues a weld; smaller is better.
struct WeldTraces::Fit
{
    bool possible = false;
    bool serialGap = true;
    bool numberGap = true;
    Nanoseconds timeError = 0;

    bool isBetterThan(const Fit& other) const
    {
        return std::tie(serialGap, numberGap, timeError) <
               std::tie(other.serialGap, other.numberGap, other.timeError);
    }
};

template <class Record>
bool WeldTraces::read(std::string_view payload, Record& record)
{
    // The library would report each invalid key on standard output or standard error.
    std::string error;
    const JsonTree tree = parseJson(std::string(payload), error);
    const bool valid = checkRecord(tree.get(), Record::recordTable(), Strictness::Receiving).empty() &&
                       record.Unpackage(tree.get()) == 0;
    m_undecodable += valid ? 0 : 1;
    return valid;
}

void WeldTraces::add(const RecordedMessage& message)
{
    if (message.missed != 0) {
        m_missed = addSaturated(m_missed, isWeldChannel(message.channel) ? message.missed : 0);
    } else if (message.channel == "WeldTraceData") {
        WeldTraceData trace;
        if (read(message.payload, trace)) {
            addSample(trace);
        }
    } else if (message.channel == "WeldTriggerStart") {
        WeldTriggerStart start;
        if (read(message.payload, start)) {
            addStart(start, message.group);
        }
    } else if (message.channel == "WeldTriggerEnd") {
        WeldTriggerEnd end;
        if (read(message.payload, end)) {
            addEnd(end);
        }
    }
}

void WeldTraces::addStart(const WeldTriggerStart& start, std::string_view group)
{
    RecordedWeld& weld = m_welds.emplace_back();
    weld.start = start;
    weld.group = group;
    Progress& progress = m_progress.emplace_back();
    progress.serial = start.messageSerial;
    progress.stamp = stampOf(start.timestamp);
    progress.period = std::max(start.samplePeriodus, 0) * kMicrosecond;
    m_open.push_back(m_welds.size() - 1);
    if (m_open.size() > kMaxOpen) {
        m_open.pop_front();
    }
}

/// The start's period does not hold for records that are stamped with the time of a faster or slower replay.
Nanoseconds WeldTraces::Progress::interval() const
{
    const Nanoseconds passed = subtractSaturated(stamp, firstStamp);
    return firstNumber >= 0 && number > firstNumber && passed >= kMinMeasured
               ? passed / (std::int64_t(number) - firstNumber)
               : period;
}

WeldTraces::Fit WeldTraces::fitOf(const Progress& progress, const WeldTraceData& trace)
{
    Fit fit;
    const Nanoseconds passed = subtractSaturated(stampOf(trace.timestamp), progress.stamp);
    const bool hasSerials = progress.serial != 0 && trace.messageSerial != 0;
    if (trace.sequence <= progress.number || passed < -kFinestStamp ||
        (hasSerials && trace.messageSerial <= progress.serial)) {
        return fit;
    }
    // The first sample is taken at the time of the start.
    const std::int64_t steps = std::int64_t(trace.sequence) - progress.number - (progress.number < 0 ? 1 : 0);
    const Nanoseconds expected = multiplySaturated<Nanoseconds>(steps, progress.interval());
    fit.numberGap = std::int64_t(trace.sequence) - progress.number > 1;
    fit.serialGap = !hasSerials || std::int64_t(trace.messageSerial) - progress.serial !=
                                       std::int64_t(trace.sequence) - progress.number;
    fit.timeError = distance(passed, expected);
    fit.possible = !fit.numberGap || progress.interval() == 0 ||
                   fit.timeError <= addSaturated(kGapTolerance, passed / kGapToleranceDivisor);
    return fit;
}

void WeldTraces::addSample(const WeldTraceData& trace)
{
    std::size_t best = m_welds.size();
    Fit bestFit;
    bool ambiguous = false;
    for (const std::size_t i : m_open) {
        const Fit fit = fitOf(m_progress[i], trace);
        if (!fit.possible) {
            continue;
        }
        if (best == m_welds.size() || fit.isBetterThan(bestFit)) {
            best = i;
            bestFit = fit;
            ambiguous = false;
        } else if (!bestFit.isBetterThan(fit)) {
            ambiguous = true;
        }
    }
    if (best == m_welds.size() || ambiguous) {
        ++m_strays;
        return;
    }
    RecordedWeld& weld = m_welds[best];
    Progress& progress = m_progress[best];
    weld.missing = addSaturated(
        weld.missing, static_cast<std::uint64_t>(std::int64_t(trace.sequence) - progress.number - 1));
    ++weld.sampleCount;
    progress.number = trace.sequence;
    progress.serial = trace.messageSerial;
    progress.stamp = stampOf(trace.timestamp);
    if (progress.firstNumber < 0) {
        progress.firstNumber = progress.number;
        progress.firstStamp = progress.stamp;
    }
    if (m_keepSamples) {
        const Nanoseconds period = std::max(weld.start.samplePeriodus, 0) * kMicrosecond;
        const Nanoseconds time =
            period > 0 && period < kFinestStamp
                ? trace.sequence * period
                : std::max<Nanoseconds>(0, subtractSaturated(progress.stamp, stampOf(weld.start.timestamp)));
        weld.samples.push_back({time, trace.sequence, trace.data});
    }
}

void WeldTraces::addEnd(const WeldTriggerEnd& end)
{
    const Nanoseconds stamp = stampOf(end.timestamp);
    std::size_t best = m_welds.size();
    std::tuple<bool, Nanoseconds> bestFit;
    for (const std::size_t i : m_open) {
        const Progress& progress = m_progress[i];
        if (m_welds[i].start.tag == end.tag) {
            const bool serialGap =
                progress.serial == 0 || std::int64_t(end.messageSerial) - progress.serial != 1;
            const std::tuple<bool, Nanoseconds> fit(serialGap, distance(stamp, progress.stamp));
            if (best == m_welds.size() || fit <= bestFit) {
                best = i;
                bestFit = fit;
            }
        }
    }
    if (best == m_welds.size()) {
        m_strayEnds.push_back(end.tag);
        return;
    }
    m_welds[best].metrics = end.metrics;
    m_welds[best].ended = true;
    m_open.erase(std::find(m_open.begin(), m_open.end(), best));
}

} // namespace TelvaneTool

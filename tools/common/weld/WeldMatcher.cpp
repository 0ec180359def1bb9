// How a sample finds its weld. A weld that can continue with the sample has a smaller sample number and serial
// number, and does not start later. If there is a gap in the sample numbers, the time that passed must also match
// the gap: otherwise, an end and a start are missing in it. Of several welds, the best is the one with
// consecutive serial numbers, then the one with consecutive sample numbers, then the one that fits best in time.
// If two welds fit equally well, the sample is not assigned.

#include "common/weld/WeldMatcher.h"

#include "common/support/Saturating.h"

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

/// Time stamps have milliseconds.
constexpr Nanoseconds kFinestStamp = 2 * kMillisecond;
/// By how much the time across a gap may differ from what the missing samples take.
constexpr Nanoseconds kGapTolerance = kSecond / 2;
constexpr Nanoseconds kGapToleranceDivisor = 4;          ///< and this part of the time
constexpr Nanoseconds kMinMeasured = 100 * kMillisecond; ///< to measure the interval between samples

Nanoseconds distance(Nanoseconds a, Nanoseconds b)
{
    return subtractSaturated(std::max(a, b), std::min(a, b));
}

} // namespace

Nanoseconds stampOf(const DateTime& stamp)
{
    return addSaturated<Nanoseconds>(
        multiplySaturated<Nanoseconds>(static_cast<Nanoseconds>(stamp.time.tv_sec), kSecond),
        static_cast<Nanoseconds>(stamp.time.tv_nsec));
}

/// How well a sample continues a weld; smaller is better.
struct WeldMatcher::Fit
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

/// The start's period does not hold for records that are stamped with the time of a faster or slower replay.
Nanoseconds WeldMatcher::Progress::interval() const
{
    const Nanoseconds passed = subtractSaturated(stamp, firstStamp);
    return firstNumber >= 0 && number > firstNumber && passed >= kMinMeasured
               ? passed / (std::int64_t(number) - firstNumber)
               : period;
}

WeldMatcher::Fit WeldMatcher::fitOf(const Progress& progress, const WeldTraceData& trace)
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

void WeldMatcher::addStart(Weld weld, const WeldTriggerStart& start)
{
    Progress progress;
    progress.weld = weld;
    progress.tag = start.tag;
    progress.serial = start.messageSerial;
    progress.stamp = stampOf(start.timestamp);
    progress.period = std::max(start.samplePeriodus, 0) * kMicrosecond;
    m_open.push_back(progress);
    if (m_open.size() > kMaxOpen) {
        m_open.pop_front();
    }
}

std::optional<WeldMatcher::Match> WeldMatcher::addSample(const WeldTraceData& trace)
{
    Progress* best = nullptr;
    Fit bestFit;
    bool ambiguous = false;
    for (Progress& progress : m_open) {
        const Fit fit = fitOf(progress, trace);
        if (!fit.possible) {
            continue;
        }
        if (best == nullptr || fit.isBetterThan(bestFit)) {
            best = &progress;
            bestFit = fit;
            ambiguous = false;
        } else if (!bestFit.isBetterThan(fit)) {
            ambiguous = true;
        }
    }
    if (best == nullptr || ambiguous) {
        return std::nullopt;
    }
    const Match match = {best->weld,
                         static_cast<std::uint64_t>(std::int64_t(trace.sequence) - best->number - 1)};
    best->number = trace.sequence;
    best->serial = trace.messageSerial;
    best->stamp = stampOf(trace.timestamp);
    if (best->firstNumber < 0) {
        best->firstNumber = best->number;
        best->firstStamp = best->stamp;
    }
    return match;
}

std::optional<WeldMatcher::Weld> WeldMatcher::addEnd(const WeldTriggerEnd& end)
{
    const Nanoseconds stamp = stampOf(end.timestamp);
    auto best = m_open.end();
    std::tuple<bool, Nanoseconds> bestFit;
    for (auto progress = m_open.begin(); progress != m_open.end(); ++progress) {
        if (progress->tag != end.tag) {
            continue;
        }
        const bool serialGap =
            progress->serial == 0 || std::int64_t(end.messageSerial) - progress->serial != 1;
        const std::tuple<bool, Nanoseconds> fit(serialGap, distance(stamp, progress->stamp));
        if (best == m_open.end() || fit <= bestFit) {
            best = progress;
            bestFit = fit;
        }
    }
    if (best == m_open.end()) {
        return std::nullopt;
    }
    const Weld weld = best->weld;
    m_open.erase(best);
    return weld;
}

void WeldMatcher::drop(Weld weld)
{
    m_open.erase(std::remove_if(m_open.begin(), m_open.end(),
                                [weld](const Progress& progress) { return progress.weld == weld; }),
                 m_open.end());
}

} // namespace TelvaneTool

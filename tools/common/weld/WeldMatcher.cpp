// How a sample finds its weld. A weld that can continue with the sample has a smaller sample number, and its last
// record is not later. If there is a gap in the sample numbers, the time that passed must also match the gap:
// otherwise, an end and a start are missing in it. Of several welds, the best is the one with consecutive serial
// numbers, then the one with consecutive sample numbers, then the one that fits best in time. If two welds fit
// equally well, the sample is not assigned.
//
// Serial numbers that decrease do not exclude a weld, because the counter of a source may be narrow or start again
// within a weld. They are the worst match, though, and the time must be right. Nor does the time exclude a sample
// whose numbers are both consecutive: the clock of the source may be set within a weld.

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
constexpr Nanoseconds kClockSet = 10 * kSecond; ///< no two samples are so far apart unless the clock was set

/// How serial numbers follow each other; smaller is better.
enum class Order
{
    Consecutive,
    Gap,
    Decreasing,
};

/// \return the difference of two serial numbers, which may have passed the largest 32-bit number in between
std::int64_t serialStep(int from, int to)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(to) - static_cast<std::uint32_t>(from));
}

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
    Order serials = Order::Gap;
    bool numberGap = true;
    Nanoseconds timeError = 0;

    bool isBetterThan(const Fit& other) const
    {
        return std::tie(serials, numberGap, timeError) <
               std::tie(other.serials, other.numberGap, other.timeError);
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
    const std::int64_t numberStep = std::int64_t(trace.sequence) - progress.number;
    if (numberStep <= 0) {
        return fit;
    }
    fit.numberGap = numberStep > 1;
    if (progress.serial != 0 && trace.messageSerial != 0) {
        const std::int64_t step = serialStep(progress.serial, trace.messageSerial);
        fit.serials = step <= 0 ? Order::Decreasing : step == numberStep ? Order::Consecutive : Order::Gap;
    }
    const Nanoseconds passed = subtractSaturated(stampOf(trace.timestamp), progress.stamp);
    // The first sample is taken at the time of the start.
    const std::int64_t steps = numberStep - (progress.number < 0 ? 1 : 0);
    fit.timeError = distance(passed, multiplySaturated<Nanoseconds>(steps, progress.interval()));
    // Without a start and before it was measured, the interval is unknown, and time says nothing about a gap.
    const bool inTime = progress.interval() == 0
                            ? progress.tag.has_value() || fit.serials == Order::Consecutive
                            : fit.timeError <= addSaturated(kGapTolerance, passed / kGapToleranceDivisor);
    if (fit.serials == Order::Consecutive && !fit.numberGap) {
        fit.possible = true;
    } else if (passed >= -kFinestStamp) {
        fit.possible = inTime || (!fit.numberGap && fit.serials != Order::Decreasing);
    }
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
    open(progress);
}

void WeldMatcher::addRunning(Weld weld, const WeldTraceData& trace)
{
    Progress progress;
    progress.weld = weld;
    progress.number = trace.sequence;
    progress.serial = trace.messageSerial;
    progress.stamp = stampOf(trace.timestamp);
    progress.firstNumber = progress.number;
    progress.firstStamp = progress.stamp;
    open(progress);
}

void WeldMatcher::open(const Progress& progress)
{
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
    const Nanoseconds passed = subtractSaturated(stampOf(trace.timestamp), best->stamp);
    best->number = trace.sequence;
    best->serial = trace.messageSerial;
    best->stamp = stampOf(trace.timestamp);
    // The interval is measured again after the clock was set.
    if (best->firstNumber < 0 || passed < -kFinestStamp || passed > kClockSet) {
        best->firstNumber = best->number;
        best->firstStamp = best->stamp;
    }
    return match;
}

std::optional<WeldMatcher::Weld> WeldMatcher::addEnd(const WeldTriggerEnd& end)
{
    const Nanoseconds stamp = stampOf(end.timestamp);
    auto best = m_open.end();
    std::tuple<bool, bool, Nanoseconds> bestFit;
    for (auto progress = m_open.begin(); progress != m_open.end(); ++progress) {
        const Nanoseconds passed = distance(stamp, progress->stamp);
        if (progress->tag ? *progress->tag != end.tag : passed > kClockSet) {
            continue;
        }
        const bool serialGap = progress->serial == 0 || serialStep(progress->serial, end.messageSerial) != 1;
        const std::tuple<bool, bool, Nanoseconds> fit(!progress->tag, serialGap, passed);
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

#include "plot/WeldTraces.h"

#include "common/bus/RecordCheck.h"
#include "common/support/Saturating.h"

#include <algorithm>

namespace TelvaneTool
{

using Telvane::WeldTraceData;
using Telvane::WeldTriggerEnd;
using Telvane::WeldTriggerStart;

namespace
{

/// Time stamps have milliseconds: the times of faster samples are computed from their numbers.
constexpr Nanoseconds kFinestStamp = 2 * kMillisecond;

bool isWeldChannel(std::string_view channel)
{
    return channel == "WeldTriggerStart" || channel == "WeldTraceData" || channel == "WeldTriggerEnd";
}

} // namespace

template <class Record>
bool WeldTraces::read(std::string_view payload, Record& record)
{
    const bool valid = readRecord(payload, record);
    m_undecodable += valid ? 0 : 1;
    return valid;
}

void WeldTraces::add(const RecordedMessage& message)
{
    if (message.isNote()) {
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
    m_matcher.addStart(m_welds.size(), start);
    RecordedWeld& weld = m_welds.emplace_back();
    weld.start = start;
    weld.group = group;
}

void WeldTraces::addSample(const WeldTraceData& trace)
{
    const auto match = m_matcher.addSample(trace);
    if (!match) {
        m_strays += joinRunning(trace) ? 0 : 1;
        return;
    }
    RecordedWeld& weld = m_welds[match->weld];
    weld.missing = addSaturated(weld.missing, match->missing);
    ++weld.sampleCount;
    if (m_keepSamples) {
        const Nanoseconds period = std::max(weld.start.samplePeriodus, 0) * kMicrosecond;
        const Nanoseconds time =
            period > 0 && period < kFinestStamp
                ? trace.sequence * period
                : std::max<Nanoseconds>(
                      0, subtractSaturated(stampOf(trace.timestamp), stampOf(weld.start.timestamp)));
        weld.samples.push_back({time, trace.sequence, trace.data});
    }
}

/// Takes a sample as the first one of a weld that is in progress when the recording begins.
bool WeldTraces::joinRunning(const WeldTraceData& trace)
{
    if (!m_welds.empty() || trace.sequence < 1) {
        return false;
    }
    m_matcher.addRunning(0, trace);
    RecordedWeld& weld = m_welds.emplace_back();
    weld.started = false;
    weld.start.timestamp = trace.timestamp;
    weld.sampleCount = 1;
    if (m_keepSamples) {
        weld.samples.push_back({0, trace.sequence, trace.data});
    }
    return true;
}

/// Nothing but the start has the period of samples that are faster than the time stamps. So it is measured.
void WeldTraces::finish()
{
    for (RecordedWeld& weld : m_welds) {
        if (weld.started || weld.samples.empty()) {
            continue;
        }
        const int first = weld.samples.front().number;
        const std::int64_t steps = std::int64_t(weld.samples.back().number) - first;
        const Nanoseconds period = steps > 0 ? weld.samples.back().time / steps : 0;
        if (period > 0 && period < kFinestStamp) {
            for (RecordedWeld::Sample& sample : weld.samples) {
                sample.time = (std::int64_t(sample.number) - first) * period;
            }
        }
    }
}

void WeldTraces::addEnd(const WeldTriggerEnd& end)
{
    const auto weld = m_matcher.addEnd(end);
    if (!weld) {
        m_strayEnds.push_back(end.tag);
        return;
    }
    m_welds[*weld].start.tag = end.tag;
    m_welds[*weld].metrics = end.metrics;
    m_welds[*weld].ended = true;
}

} // namespace TelvaneTool

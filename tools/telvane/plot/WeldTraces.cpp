#include "plot/WeldTraces.h"

#include "common/bus/RecordCheck.h"
#include "common/support/Json.h"

#include <Telvane/RecordCatalogue.h>

namespace TelvaneTool
{

using Telvane::DateTime;
using Telvane::WeldTraceData;
using Telvane::WeldTriggerEnd;
using Telvane::WeldTriggerStart;

namespace
{

/// Time stamps come in milliseconds: what is sampled faster is told apart by its number.
constexpr Nanoseconds kFinestStamp = 2 * kMillisecond;

Nanoseconds timeOf(const DateTime& stamp)
{
    return static_cast<Nanoseconds>(stamp.time.tv_sec) * kSecond + stamp.time.tv_nsec;
}

} // namespace

template <class Record>
bool WeldTraces::read(std::string_view payload, Record& record)
{
    // The library would printError about each wrong key on streams of its own choice.
    std::string error;
    const JsonTree tree = parseJson(std::string(payload), error);
    const bool right = checkRecord(tree.get(), Record::recordTable(), Strictness::Receiving).empty() &&
                       record.Unpackage(tree.get()) == 0;
    m_unreadable += right ? 0 : 1;
    return right;
}

void WeldTraces::add(const RecordedMessage& message)
{
    if (message.channel == "WeldTraceData") {
        WeldTraceData trace;
        if (read(message.payload, trace)) {
            addSample(trace);
        }
    } else if (message.channel == "WeldTriggerStart") {
        WeldTriggerStart start;
        if (read(message.payload, start)) {
            m_welds.emplace_back().start = start;
            m_welding = true;
        }
    } else if (message.channel == "WeldTriggerEnd") {
        WeldTriggerEnd end;
        if (read(message.payload, end) && m_welding) {
            m_welds.back().metrics = end.metrics;
            m_welds.back().ended = true;
            m_welding = false;
        }
    }
}

void WeldTraces::addSample(const WeldTraceData& trace)
{
    if (!m_welding) {
        ++m_strays;
        return;
    }
    RecordedWeld& weld = m_welds.back();
    const Nanoseconds period = weld.start.samplePeriodus * kMicrosecond;
    const Nanoseconds time = period > 0 && period < kFinestStamp
                                 ? trace.sequence * period
                                 : timeOf(trace.timestamp) - timeOf(weld.start.timestamp);
    weld.samples.push_back({time, trace.data});
}

} // namespace TelvaneTool

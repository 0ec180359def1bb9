#pragma once

#include "common/support/Clock.h"
#include "common/weld/WeldMatcher.h"
#include "recording/RecordingReader.h"

#include <Telvane/WeldRecords.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// A weld in a recording.
struct RecordedWeld
{
    struct Sample
    {
        Nanoseconds time = 0; ///< since the start of the weld, or the first sample if the start is missing
        int number = 0;       ///< running number within the weld, from 0
        Telvane::WeldTraceDataPoint point;
    };

    /// \return the tag as text; "?" if it is unknown
    std::string tag() const { return hasTag() ? std::to_string(start.tag) : "?"; }
    bool hasTag() const { return started || ended; }

    /// Without the record of the start, only the time stamp of the first sample, and the tag if the weld has ended.
    Telvane::WeldTriggerStart start;
    bool started = true;         ///< the recording has the start of the weld
    std::string group;           ///< of a weld converted from CSV; else empty
    std::vector<Sample> samples; ///< empty if WeldTraces does not keep them
    std::uint64_t sampleCount = 0;
    std::uint64_t missing = 0;    ///< samples, by the gaps in their numbers
    Telvane::WeldMetrics metrics; ///< without units unless \p ended
    bool ended = false;           ///< the recording has the end of the weld
};

/// Collects the welds of a recording.
///
/// WeldMatcher decides which weld a record belongs to. A weld that is in progress when the recording begins is one of
/// them, although its start is missing.
class WeldTraces
{
public:
    /// \param keepSamples  false to count the samples only
    explicit WeldTraces(bool keepSamples = true) : m_keepSamples(keepSamples) {}

    void add(const RecordedMessage& message);
    /// Call it after the last record.
    void finish();

    /// \return the welds in order of their starts
    const std::vector<RecordedWeld>& welds() const { return m_welds; }
    /// \return number of samples that belong to no weld
    std::uint64_t strays() const { return m_strays; }
    /// \return tags of ends that belong to no weld
    const std::vector<int>& strayEnds() const { return m_strayEnds; }
    /// \return number of undecodable records on the channels of welds
    std::uint64_t undecodable() const { return m_undecodable; }
    /// \return number of records on the channels of welds that the recorder missed
    std::uint64_t missed() const { return m_missed; }

private:
    template <class Record>
    bool read(std::string_view payload, Record& record);
    void addStart(const Telvane::WeldTriggerStart& start, std::string_view group);
    void addSample(const Telvane::WeldTraceData& trace);
    bool joinRunning(const Telvane::WeldTraceData& trace);
    void addEnd(const Telvane::WeldTriggerEnd& end);

    const bool m_keepSamples;
    std::vector<RecordedWeld> m_welds;
    WeldMatcher m_matcher; ///< knows welds by their index
    std::uint64_t m_strays = 0;
    std::vector<int> m_strayEnds;
    std::uint64_t m_undecodable = 0;
    std::uint64_t m_missed = 0;
};

} // namespace TelvaneTool

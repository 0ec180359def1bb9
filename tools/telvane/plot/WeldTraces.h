#pragma once

#include "common/support/Clock.h"
#include "recording/RecordingReader.h"

#include <Telvane/WeldRecords.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// A weld as it stands in a recording.
struct RecordedWeld
{
    struct Sample
    {
        Nanoseconds time = 0; ///< since the start of the weld
        Telvane::WeldTraceDataPoint point;
    };

    Telvane::WeldTriggerStart start;
    std::vector<Sample> samples;
    Telvane::WeldMetrics metrics; ///< all without units when the recording ends before the weld does
    bool ended = false;
};

/// Gathers the welds of a recording.
class WeldTraces
{
public:
    void add(const RecordedMessage& message);

    const std::vector<RecordedWeld>& welds() const { return m_welds; }
    /// \return samples from before the first start
    std::uint64_t strays() const { return m_strays; }
    /// \return records on the channels of welds that are none
    std::uint64_t unreadable() const { return m_unreadable; }

private:
    template <class Record>
    bool read(std::string_view payload, Record& record);
    void addSample(const Telvane::WeldTraceData& trace);

    std::vector<RecordedWeld> m_welds;
    bool m_welding = false;
    std::uint64_t m_strays = 0;
    std::uint64_t m_unreadable = 0;
};

} // namespace TelvaneTool

#pragma once

#include "common/support/Clock.h"

#include <Telvane/WeldRecords.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace TelvaneTool
{

/// \return ns since the Unix epoch, or the nearest value in range
Nanoseconds stampOf(const Telvane::DateTime& stamp);

/// Finds the weld that a record belongs to.
///
/// Welds may overlap, and any of their records may be missing. An end belongs to the weld with its tag. A sample
/// has no tag: it belongs to the weld whose sample numbers, serial numbers and times it continues. The serial numbers of
/// a source may wrap or start again within a weld, and its clock may be set.
class WeldMatcher
{
public:
    using Weld = std::size_t; ///< the caller's number of a weld

    /// A sample's weld.
    struct Match
    {
        Weld weld = 0;
        std::uint64_t missing = 0; ///< samples that are missing before it
    };

    static constexpr std::size_t kMaxOpen = 64;

    /// Adds a weld. With more than kMaxOpen, the oldest one gets no more records.
    void addStart(Weld weld, const Telvane::WeldTriggerStart& start);
    /// Adds a weld whose start is missing, by the first of its samples. Its tag is unknown.
    void addRunning(Weld weld, const Telvane::WeldTraceData& trace);
    /// \return nothing if the sample belongs to no weld, or it is not clear to which
    std::optional<Match> addSample(const Telvane::WeldTraceData& trace);
    /// Ends a weld.
    /// \return nothing if the end belongs to no weld
    std::optional<Weld> addEnd(const Telvane::WeldTriggerEnd& end);
    /// Forgets a weld.
    void drop(Weld weld);

private:
    /// What the next record of a weld is compared with.
    struct Progress
    {
        Weld weld = 0;
        std::optional<int> tag;
        int number = -1;       ///< of the last sample
        int serial = 0;        ///< of the last record
        Nanoseconds stamp = 0; ///< of the last record
        int firstNumber = -1;  ///< of the first sample
        Nanoseconds firstStamp = 0;
        Nanoseconds period = 0; ///< between samples according to the start; 0 if unknown

        Nanoseconds interval() const;
    };
    struct Fit;

    void open(const Progress& progress);
    static Fit fitOf(const Progress& progress, const Telvane::WeldTraceData& trace);

    std::deque<Progress> m_open; ///< welds without an end
};

} // namespace TelvaneTool

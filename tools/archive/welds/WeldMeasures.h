#pragma once

#include "archive/samples/Sample.h"
#include "archive/welds/WeldColumns.h"
#include "common/support/Clock.h"
#include "common/support/Saturating.h"

#include <cstdint>
#include <utility>

namespace TelvaneArchive
{

/// The moments of a weld's samples.
///
/// Time stamps on the bus are whole milliseconds. Where samples are closer than that, their numbers and the period
/// give the moment.
class SampleClock
{
public:
    /// \param periodUs  time between samples; 0 if unknown
    SampleClock(std::int64_t start, std::int64_t periodUs)
        : m_start(start), m_period(TelvaneTool::multiplySaturated<std::int64_t>(periodUs, 1000))
    {}

    /// \return ns since the Unix epoch
    std::int64_t momentOf(const Sample& sample) const
    {
        constexpr std::int64_t kFinestStamp = 2'000'000;
        return m_period > 0 && m_period < kFinestStamp
                   ? TelvaneTool::addSaturated(m_start, sample.number * m_period)
                   : sample.time;
    }
    /// \return ns since the start
    std::int64_t sinceStart(const Sample& sample) const
    {
        return TelvaneTool::subtractSaturated(momentOf(sample), m_start);
    }
    /// \return the earliest and the latest moment of samples, which need not be in order
    /// \param count  at least 1
    std::pair<std::int64_t, std::int64_t> rangeOf(const Sample* samples, std::size_t count) const;
    std::int64_t period() const { return m_period; }
    std::int64_t start() const { return m_start; }

private:
    std::int64_t m_start;
    std::int64_t m_period;
};

/// Weighted mean, standard deviation and limits.
class Moments
{
public:
    void add(double value, double weight);
    double weight() const { return m_weight; }
    double mean() const { return m_mean; }
    double deviation() const;
    double min() const { return m_min; }
    double max() const { return m_max; }

private:
    double m_weight = 0.0;
    double m_mean = 0.0;
    double m_squares = 0.0;
    double m_min = 0.0;
    double m_max = 0.0;
};

/// When an arc burns, and what a short circuit is.
struct MeasureSettings
{
    double arcAmps = 10.0;       ///< the arc burns from this current on
    double shortBelow = 12.0;    ///< a short circuit begins below this voltage
    double shortAbove = 15.0;    ///< and ends above this one
    double minShortMs = 0.1;     ///< a shorter one is noise
    double minOutMs = 5.0;       ///< an arc that is out for less was not interrupted
    double maxPeriodUs = 1000.0; ///< no short circuits are counted in slower samples
};

/// The metrics of a weld, from its samples in order. docs/archive.md defines each.
class WeldMeasures
{
public:
    explicit WeldMeasures(SampleClock clock, const MeasureSettings& settings = {});
    void add(const Sample& sample);

    /// Fills in the computed metrics.
    /// \param weld  its settings and context are used; its StartRecord says what was measured
    void finish(Weld& weld);

private:
    void close(double seconds);
    void followArc(bool burning, TelvaneTool::Nanoseconds moment);
    void follow(const Sample& sample, TelvaneTool::Nanoseconds moment);

    SampleClock m_clock;
    MeasureSettings m_settings;
    std::array<Moments, kChannels> m_moments;
    Moments m_shortTimes;
    Moments m_shortPeriods;
    Sample m_last;
    std::uint64_t m_samples = 0;
    bool m_burning = false;
    TelvaneTool::Nanoseconds m_outSince = -1; ///< since the start; negative while it has not been out
    std::int64_t m_interruptions = 0;
    double m_arcTime = 0.0;
    double m_energy = 0.0;
    bool m_shorted = false;
    TelvaneTool::Nanoseconds m_shortStart = 0;     ///< since the start of the weld
    TelvaneTool::Nanoseconds m_previousStart = -1; ///< of the short circuit before
    std::uint64_t m_shorts = 0;
};

} // namespace TelvaneArchive

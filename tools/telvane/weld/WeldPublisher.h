#pragma once

#include "common/support/Pacer.h"
#include "weld/LatencyTracker.h"
#include "weld/RecordSink.h"
#include "weld/WeldDetector.h"
#include "weld/WeldSummary.h"

#include <Telvane/Consumables.h>
#include <Telvane/WeldRecords.h>

#include <cstdint>

namespace TelvaneTool
{

/// What the power source knows about a weld without measuring.
struct WeldSetup
{
    int firstTag = 1;
    int program = 0;
    Telvane::_ProcessID_e process = Telvane::ProcessID_MIGShortArc;
    Telvane::_WireType_e wireType = Telvane::WireType_Steel;
    Telvane::_WireSize_e wireSize = Telvane::WireSize_Inch_0_045;
    Telvane::_AlloyID_e alloy = Telvane::AlloyID_STL_E70;
    Telvane::_GasID_e gas = Telvane::GasID_AR75_CO225;
    std::string feederSide;
    double setVolts = 0.0;      ///< V
    double setAmps = 0.0;       ///< A
    double setWfs = 0.0;        ///< in/min
    double setArcControl = 0.0; ///< without a unit
    double lifetimeHours = 0.0; ///< arc time of the machine before the first weld, h
};

/// \return the metrics of a weld with their units; a quantity that was not measured has no unit
Telvane::WeldMetrics weldMetrics(const WeldSummary& summary, const SampleSource::Traits& traits,
                                 const WeldSetup& setup);

/// Publishes the welds that a detector finds, as a power source does: start, samples, end.
class WeldPublisher : public WeldDetector::Listener
{
public:
    struct Settings
    {
        double speed = 1.0;    ///< factor on the recorded pace; 0 for no delays
        bool stampNow = false; ///< use the time of publication instead of the recorded time
    };

    /// \param ledger  may be closed, to measure nothing
    WeldPublisher(RecordSink& sink, const SampleSource& source, LatencyTracker& ledger,
                  const WeldSetup& setup, const Settings& settings);

    /// Starts a new group of samples.
    void beginGroup(const WeldSample& first);

    void arcStarted(const WeldSample& first) override;
    void arcSample(const WeldSample& sample, bool burning) override;
    void arcEnded(const WeldSample& end) override;

    /// Ends a weld in progress early, so that no subscriber waits for its end.
    void abort();

    std::uint64_t welds() const { return m_welds; }
    std::uint64_t samples() const { return m_samples; }
    Nanoseconds late() const { return m_pacer.late(); }

private:
    bool waitUntil(Nanoseconds moment);
    void endWeld(const WeldSample& end);
    Telvane::DateTime stamp(Nanoseconds moment);
    void publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record, int& serial);

    RecordSink& m_sink;
    const SampleSource& m_source;
    LatencyTracker& m_ledger;
    const WeldSetup m_setup;
    const Settings m_settings;
    Pacer m_pacer;

    Nanoseconds m_stampOffset = 0; ///< from recorded time to real time
    Nanoseconds m_lastMoment = 0;
    bool m_aborted = false; ///< stopping: publish nothing but the end of the weld
    bool m_welding = false;
    bool m_begun = false;
    WeldSummary m_summary{false};
    Telvane::WeldTraceData m_trace;
    int m_serial = 0;
    Nanoseconds m_stamp = 0; ///< of the last record
    int m_tag;
    double m_lifetimeHours;
    std::uint64_t m_welds = 0;
    std::uint64_t m_samples = 0;
};

} // namespace TelvaneTool

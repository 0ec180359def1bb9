#pragma once

#include "common/support/Clock.h"
#include "common/support/LatencyHistogram.h"
#include "weld/LatencyTracker.h"

#include <Telvane/WeldRecords.h>

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

namespace TelvaneTool
{

/// Collects the records of welds and formats them for a terminal.
///
/// take() is for the receiver thread, everything else is for the thread that draws.
class WeldMonitor
{
public:
    /// \param ledger  may be closed, to measure no latency
    explicit WeldMonitor(const LatencyTracker& ledger) : m_ledger(ledger) {}

    void take(const Telvane::WeldTriggerStart& start);
    void take(const Telvane::WeldTraceData& trace);
    void take(const Telvane::WeldTriggerEnd& end);

    /// \return lines for the events since the last call
    std::string takeEvents();

    /// \param width  maximum number of columns
    /// \return a line about the weld in progress; empty if there is none
    std::string liveLine(std::size_t width) const;

    std::uint64_t received() const;
    /// \param undecodable  number of records that could not be decoded
    std::string summary(std::uint64_t undecodable) const;

private:
    void arrived(int serial);
    void join(const Telvane::WeldTraceData& trace);
    void addToChart(Nanoseconds time, const Telvane::WeldTraceDataPoint& point);
    std::string chart(std::size_t columns) const;

    /// The samples of one column of the chart.
    struct Column
    {
        Nanoseconds begin = 0;
        double amps = 0.0; ///< sums
        double volts = 0.0;
        unsigned samples = 0;
    };

    const LatencyTracker& m_ledger;
    mutable std::mutex m_lock;
    std::string m_events;
    bool m_welding = false;
    std::string m_tag;       ///< "?" if the start was not received
    Nanoseconds m_start = 0; ///< by the time stamps of the records
    Nanoseconds m_latest = 0;
    std::int64_t m_nextSequence = 0;
    std::deque<Column> m_columns;
    double m_ampsScale = 100.0; ///< the top of the chart

    std::uint64_t m_received = 0;
    std::uint64_t m_samples = 0;
    std::uint64_t m_missed = 0; ///< by gaps in the sample numbers
    LatencyHistogram m_latency;
};

} // namespace TelvaneTool

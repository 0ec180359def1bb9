#pragma once

#include "bench/BenchWorkers.h"

namespace TelvaneTool
{

/// What a run has come to.
struct BenchResult
{
    BenchSettings settings;
    Nanoseconds time = 0; ///< in which publishers published
    std::uint64_t published = 0;
    std::uint64_t received = 0; ///< by all subscribers together
    LatencyHistogram latencies;

    /// \return records that a subscriber should have received and did not
    std::uint64_t lost() const;
};

std::string printBench(const BenchResult& result);
std::string printBenchJson(const BenchResult& result);

} // namespace TelvaneTool

#pragma once

#include "bench/BenchWorkers.h"

namespace TelvaneTool
{

/// The result of a run.
struct BenchResult
{
    BenchSettings settings;
    Nanoseconds time = 0; ///< from the first to the last publication
    std::uint64_t published = 0;
    std::uint64_t received = 0; ///< by all subscribers
    LatencyHistogram latencies;

    /// \return the number of records that subscribers did not receive
    std::uint64_t lost() const;
};

std::string printBench(const BenchResult& result);
std::string printBenchJson(const BenchResult& result);

} // namespace TelvaneTool

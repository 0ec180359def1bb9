#pragma once

// The processes of telvane bench and their shared memory.

#include "common/support/LatencyHistogram.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace TelvaneTool
{

struct BenchSettings
{
    std::string path; ///< of the bus
    double wait = 0.0;
    std::string channel;
    int size = 200;    ///< approximate size of a payload, in bytes
    double rate = 0.0; ///< of each publisher, records per second; 0 for the maximum
    int publishers = 1;
    int subscribers = 1;
    Nanoseconds duration = 5 * kSecond;
};

constexpr int kMaxWorkers = 64; ///< of each kind
constexpr int kMinBenchSize = 100;
constexpr int kMaxBenchSize = 16000;

/// Memory shared by all processes of a run. Each worker writes to its own element.
class BenchBoard
{
public:
    enum class Phase
    {
        Preparing,
        Publishing,
        Ending,
    };

    struct Publisher
    {
        std::atomic<std::uint64_t> published{0};
        std::atomic<bool> ready{false};
        std::atomic<bool> done{false};
    };
    struct Subscriber
    {
        std::atomic<std::uint64_t> received{0};
        std::atomic<bool> ready{false};
        LatencyHistogram latencies; ///< complete when the process has exited
    };

    /// \return memory shared with processes forked from now on; null if there is none
    static BenchBoard* make();

    std::uint64_t published() const;
    std::uint64_t received() const;

    std::atomic<Phase> phase{Phase::Preparing};
    std::array<Publisher, kMaxWorkers> publishers;
    std::array<Subscriber, kMaxWorkers> subscribers;
};

/// \name Main functions of the processes
/// Clients print no errors once they are ready: all would print the same ones.
/// \return an exit code
/// @{
int runBenchServer(const std::string& path);
int runBenchSubscriber(const BenchSettings& settings, BenchBoard& board, int index);
int runBenchPublisher(const BenchSettings& settings, BenchBoard& board, int index);
/// @}

} // namespace TelvaneTool

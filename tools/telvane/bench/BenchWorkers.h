#pragma once

// The processes of telvane bench, and what they share.

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
    int size = 200;    ///< of a payload's text, in bytes, about
    double rate = 0.0; ///< of each publisher, records per second; 0 for as fast as it goes
    int publishers = 1;
    int subscribers = 1;
    Nanoseconds duration = 5 * kSecond;
};

constexpr int kMaxWorkers = 64; ///< of each kind
constexpr int kMinBenchSize = 100;
constexpr int kMaxBenchSize = 16000;

/// Memory that all processes of a run see. Each worker writes to its own place in it.
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
        LatencyHistogram latencies; ///< complete when the process has ended
    };

    /// \return memory that stays shared with processes that are forked from now on; null without memory
    static BenchBoard* make();

    std::uint64_t published() const;
    std::uint64_t received() const;

    std::atomic<Phase> phase{Phase::Preparing};
    std::array<Publisher, kMaxWorkers> publishers;
    std::array<Subscriber, kMaxWorkers> subscribers;
};

/// Keeps what this process complains of from now on to itself: others have the same to say.
void keepQuiet();

/// \name What the processes do
/// Clients keep quiet from when they are ready on.
/// \return an exit code
/// @{
int runBenchServer(const std::string& path);
int runBenchSubscriber(const BenchSettings& settings, BenchBoard& board, int index);
int runBenchPublisher(const BenchSettings& settings, BenchBoard& board, int index);
/// @}

} // namespace TelvaneTool

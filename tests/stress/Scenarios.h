#pragma once

// The scenarios of a soak run. Each prints its measurements and throws a Failure if a check fails.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace Soak
{

struct Plan
{
    std::uint32_t seed = 1;
    int kills = 500;
    std::size_t clients = 1000;          ///< count of clients, each with a channel of its own
    std::size_t sharedSubscribers = 200; ///< of these, clients that also subscribe to one shared channel
    std::size_t visitors = 50;           ///< clients that connect and disconnect meanwhile
    std::chrono::seconds load{600};
    std::uint64_t published = 20000;         ///< messages published while a subscriber is stopped
    std::chrono::milliseconds measure{5000}; ///< time of measuring the latency with each neighbour
    int names = 100000;                      ///< channels that a neighbour subscribes to
};

/// Kills and restarts processes at random times; the others must continue.
void killProcesses(const Plan& plan);

/// Stops one subscriber for a while: the others must receive everything, and the server must count what it
/// missed.
void pauseSubscriber(const Plan& plan);

/// Runs many clients and channels on one server, with connects and disconnects: its resources must not grow.
void loadServer(const Plan& plan);

/// Measures the latency of two well-behaved clients with misbehaving neighbours.
void compareNeighbours(const Plan& plan);

/// Prints a line and flushes it, to show progress.
template <class... Values>
void report(const char* format, Values... values)
{
    std::printf(format, values...);
    std::fflush(stdout);
}

} // namespace Soak

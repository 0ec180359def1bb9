#pragma once

// What a soak run does. Each scenario prints its figures and throws a Failure for anything that must not be.

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
    std::size_t clients = 1000; ///< with a channel each
    std::size_t sharers = 200;  ///< of them subscribe to one channel together
    std::size_t joiners = 50;   ///< come and go meanwhile
    std::chrono::seconds load{600};
    std::uint64_t published = 20000;      ///< while a subscriber stands still
    std::chrono::milliseconds look{5000}; ///< at the latency beside each bad neighbour
    int names = 100000;                   ///< that a bad neighbour subscribes to
};

/// Kills and restarts the processes of a bus at random moments; those that are left carry on.
void killProcesses(const Plan& plan);

/// Stops one subscriber for a while: the others receive everything, and what it missed is known.
void stopASubscriber(const Plan& plan);

/// Puts many clients and channels on one server, with a coming and going: nothing grows.
void crowdTheServer(const Plan& plan);

/// Looks at the latency of two well-behaved clients beside others that mean harm.
void endureNeighbours(const Plan& plan);

/// Prints a line of figures at once, so that whoever waits sees that it goes on.
template <class... Values>
void report(const char* format, Values... values)
{
    std::printf(format, values...);
    std::fflush(stdout);
}

} // namespace Soak

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace TelvaneArchive
{

/// The measured quantities of a sample, in the order in which they are stored.
enum class Channel : std::size_t
{
    Amps,
    Volts,
    Wfs,
    Gas,
    Power,
    Motor,
};
constexpr std::size_t kChannels = 6;
constexpr std::array<const char*, kChannels> kChannelNames = {"amps", "volts", "wfs",
                                                              "gas",  "power", "motor"};

/// One sample of a weld, as it was published.
struct Sample
{
    std::int32_t number = 0;                   ///< running number in its weld
    std::int32_t serial = 0;                   ///< publisher's number for the message
    std::int64_t time = 0;                     ///< time stamp, ns since the Unix epoch
    std::array<double, kChannels> values = {}; ///< in the publisher's units

    double operator[](Channel channel) const { return values[static_cast<std::size_t>(channel)]; }
    double& operator[](Channel channel) { return values[static_cast<std::size_t>(channel)]; }
};

} // namespace TelvaneArchive

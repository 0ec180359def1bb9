#pragma once

// What is measured at one moment of a weld, and where such samples come from.

#include "common/support/Clock.h"

#include <array>
#include <cstddef>

namespace TelvaneTool
{

/// The quantities of a sample, with the units that the tool works in.
enum class Quantity : std::size_t
{
    Amps,     ///< welding current, A
    Volts,    ///< arc voltage, V
    Wfs,      ///< wire-feed speed, in/min
    Gas,      ///< shielding-gas flow, l/min
    Motor,    ///< load of the wire-feed motor, A
    WireUsed, ///< wire fed so far, in: a counter that only grows
};
constexpr std::size_t kQuantities = 6;

struct WeldSample
{
    Nanoseconds time = 0; ///< since the Unix epoch, or since the first sample, see SampleSource::Traits
    std::array<double, kQuantities> values = {};

    double& operator[](Quantity quantity) { return values[static_cast<std::size_t>(quantity)]; }
    double operator[](Quantity quantity) const { return values[static_cast<std::size_t>(quantity)]; }
};

/// A stream of samples in order of time.
class SampleSource
{
public:
    enum class Next
    {
        Sample,   ///< the sample follows the one before
        NewGroup, ///< the sample is the first of a group (of the recording, too); time starts afresh
        End,      ///< there is none
    };

    struct Traits
    {
        std::array<bool, kQuantities> measured = {}; ///< which values mean anything
        bool absoluteTime = false;                   ///< times count from the Unix epoch
        Nanoseconds period = 0; ///< of the group that the last sample belongs to; typical, if it varies

        bool has(Quantity quantity) const { return measured[static_cast<std::size_t>(quantity)]; }
    };

    virtual ~SampleSource() = default;
    virtual Next next(WeldSample& sample) = 0;
    virtual const Traits& traits() const = 0;
};

} // namespace TelvaneTool

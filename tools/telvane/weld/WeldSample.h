#pragma once

// One set of measurements during a weld, and the interface of their sources.

#include "common/support/Clock.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <string>

namespace TelvaneTool
{

/// The quantities of a sample, in the tool's units.
enum class Quantity : std::size_t
{
    Amps,     ///< welding current, A
    Volts,    ///< arc voltage, V
    Wfs,      ///< wire-feed speed, in/min
    Gas,      ///< shielding-gas flow, l/min
    Motor,    ///< load of the wire-feed motor, A
    WireUsed, ///< total wire fed so far, in
};
constexpr std::size_t kQuantities = 6;

struct WeldSample
{
    Nanoseconds time = 0; ///< ns since the Unix epoch or since the first sample, see Traits
    std::array<double, kQuantities> values = {};

    double& operator[](Quantity quantity) { return values[static_cast<std::size_t>(quantity)]; }
    double operator[](Quantity quantity) const { return values[static_cast<std::size_t>(quantity)]; }
};

/// \return a multiple of 1 / \p perUnit
inline double rounded(double value, double perUnit)
{
    return std::round(value * perUnit) / perUnit;
}

/// A stream of samples in order of time.
class SampleSource
{
public:
    enum class Next
    {
        Sample,   ///< the sample follows the previous one
        NewGroup, ///< the sample is the first of a group or file; time may restart
        End,      ///< there are no more samples
    };

    struct Traits
    {
        std::array<bool, kQuantities> measured = {}; ///< quantities with values
        bool absoluteTime = false;                   ///< times are since the Unix epoch
        std::string group;                           ///< value of the group column; empty without one
        Nanoseconds period = 0;                      ///< of the current group; the median if it varies

        bool has(Quantity quantity) const { return measured[static_cast<std::size_t>(quantity)]; }
    };

    virtual ~SampleSource() = default;
    virtual Next next(WeldSample& sample) = 0;
    virtual const Traits& traits() const = 0;
};

} // namespace TelvaneTool

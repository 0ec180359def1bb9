#pragma once

#include "weld/WeldSample.h"

#include <cstdint>

namespace TelvaneTool
{

/// The metrics of a weld, computed from its samples.
///
/// Each sample counts until the next one. Interruptions of the arc do not count: they show the open-circuit
/// voltage, which is not an arc voltage.
class WeldSummary
{
public:
    /// \param wireUsedMeasured  take the wire length from Quantity::WireUsed, not from the feed speed
    explicit WeldSummary(bool wireUsedMeasured) : m_wireUsedMeasured(wireUsedMeasured) {}

    void add(const WeldSample& sample, bool burning);
    /// \param sample  first sample without an arc; ends the previous sample
    void end(const WeldSample& sample);

    std::uint64_t samples() const { return m_samples; }
    const WeldSample& last() const { return m_last; }
    Nanoseconds arcTime() const { return m_arcTime; }
    double mean(Quantity quantity) const;      ///< over the arc time
    double energy() const { return m_energy; } ///< integral of voltage times current, J
    double wireLength() const;                 ///< wire fed while the arc burned, in

private:
    void close(const WeldSample& next);

    bool m_wireUsedMeasured;
    std::uint64_t m_samples = 0;
    WeldSample m_last;
    bool m_lastBurning = false;
    Nanoseconds m_arcTime = 0;
    std::array<double, kQuantities> m_integrals =
        {}; ///< of each quantity over the arc time, in its unit times s
    double m_energy = 0.0;
    double m_wireUsed = 0.0;
};

} // namespace TelvaneTool

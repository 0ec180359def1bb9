#pragma once

#include "weld/WeldSample.h"

#include <cstdint>

namespace TelvaneTool
{

/// What a weld came to, computed from its samples.
///
/// Each sample holds until the next one. Only the time during which the arc burned counts: in an
/// interruption the power source shows its open-circuit voltage, which is no arc voltage.
class WeldSummary
{
public:
    /// \param wireUsedMeasured the samples carry the running total of wire fed, which is then taken instead
    ///                         of the wire-feed speed
    explicit WeldSummary(bool wireUsedMeasured) : m_wireUsedMeasured(wireUsedMeasured) {}

    void add(const WeldSample& sample, bool burning);
    /// \param sample the first one without an arc; only closes the one before
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
    std::array<double, kQuantities> m_integrals = {}; ///< of each quantity over the arc time, in its unit x s
    double m_energy = 0.0;
    double m_wireUsed = 0.0;
};

} // namespace TelvaneTool

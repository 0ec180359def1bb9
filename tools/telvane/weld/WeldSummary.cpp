// Samples may be unevenly spaced, so means are weighted by time, and each sample counts until the next one.
// The arc starts and ends somewhere between two samples; with this rule the two errors cancel on average.
// Energy is the integral of instantaneous power, not the product of the means: in a short-circuiting arc the
// current is high while the voltage is low.

#include "weld/WeldSummary.h"

#include "common/support/Saturating.h"

namespace TelvaneTool
{

void WeldSummary::add(const WeldSample& sample, bool burning)
{
    if (m_samples > 0) {
        close(sample);
    }
    m_last = sample;
    m_lastBurning = burning;
    ++m_samples;
}

void WeldSummary::end(const WeldSample& sample)
{
    close(sample);
    m_lastBurning = false;
}

void WeldSummary::close(const WeldSample& next)
{
    if (!m_lastBurning) {
        return;
    }
    const Nanoseconds lasted = subtractSaturated(next.time, m_last.time);
    const double seconds = inSeconds(lasted);
    m_arcTime = addSaturated(m_arcTime, lasted);
    for (std::size_t i = 0; i < kQuantities; ++i) {
        m_integrals[i] += m_last.values[i] * seconds;
    }
    m_wireUsed += next[Quantity::WireUsed] - m_last[Quantity::WireUsed];
    m_energy += m_last[Quantity::Volts] * m_last[Quantity::Amps] * seconds;
}

double WeldSummary::mean(Quantity quantity) const
{
    return m_arcTime > 0 ? m_integrals[static_cast<std::size_t>(quantity)] / inSeconds(m_arcTime) : 0.0;
}

double WeldSummary::wireLength() const
{
    constexpr double kSecondsPerMinute = 60.0;
    return m_wireUsedMeasured ? m_wireUsed
                              : m_integrals[static_cast<std::size_t>(Quantity::Wfs)] / kSecondsPerMinute;
}

} // namespace TelvaneTool

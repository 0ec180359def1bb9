// The current follows the equation of the welding circuit, L dI/dt = U - R I - Uload. The load is either the
// arc or the short circuit of a passing drop. This gives steep rises, exponential decays and collapsing
// voltage. To get the same numbers on every machine, the code uses only additions and multiplications, and
// takes random numbers from the generator's bits instead of the standard library's distributions.

#include "weld/SimulatedWeld.h"

#include "common/support/Saturating.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr double kStep = 20e-6; ///< of the circuit's equation, s

constexpr double kPreFlow = 0.3;    ///< s
constexpr double kPostFlow = 1.2;   ///< s
constexpr double kRunUp = 0.35;     ///< s from ignition to the set wire-feed speed
constexpr double kCraterFill = 1.0; ///< s at the end of the arc

constexpr double kOpenCircuit = 68.0;     ///< V
constexpr double kIgnitionVoltage = 30.0; ///< V, above the set voltage to ignite the cold wire
constexpr double kInductance = 0.28e-3;   ///< H
constexpr double kResistance = 0.016;     ///< of cables and power source, ohm
constexpr double kShortResistance = 0.013;
constexpr double kArcVoltage = 16.3; ///< at zero current
constexpr double kArcResistance = 0.036;

constexpr double kMeanShort = 2.6e-3; ///< s; with kMeanArc, about a hundred short circuits per second
constexpr double kMeanArc = 7.4e-3;   ///< s
constexpr double kRunInWfs = 70.0;    ///< in/min, before the arc ignites
constexpr double kSetGas = 14.0;      ///< l/min
constexpr double kGasSurge = 12.0;    ///< l/min

} // namespace

SimulatedWeld::SimulatedWeld(const Settings& settings)
    : m_settings(settings), m_random(settings.seed), m_weldsLeft(settings.welds)
{
    m_traits.measured = {true, true, true, true, true, false};
    m_traits.period = settings.period;
}

double SimulatedWeld::random()
{
    return static_cast<double>(m_random() >> 11) * 0x1p-53;
}

double SimulatedWeld::noise()
{
    return random() + random() + random() - 1.5;
}

double SimulatedWeld::varied(double mean)
{
    return mean * std::max(0.25, 1.0 + 0.6 * noise());
}

SampleSource::Next SimulatedWeld::next(WeldSample& sample)
{
    if (m_weldsLeft == 0) {
        return Next::End;
    }
    const bool first = m_index == 0;
    if (!first) {
        advance(inSeconds(m_settings.period));
        if (!movePhase()) {
            return Next::End;
        }
    }
    sample = measure();
    sample.time = multiplySaturated(static_cast<Nanoseconds>(m_index++), m_settings.period);
    return first ? Next::NewGroup : Next::Sample;
}

void SimulatedWeld::advance(double seconds)
{
    m_phaseTime += seconds;
    // The circuit changes faster than the sample period.
    const auto steps = static_cast<long>(std::ceil(seconds / kStep));
    for (long step = 0; step < steps; ++step) {
        moveCircuit(seconds / static_cast<double>(steps));
    }
    moveFeeds(seconds);
}

bool SimulatedWeld::movePhase()
{
    if (m_phase == Phase::PreFlow && m_phaseTime >= kPreFlow) {
        ignite();
    } else if (m_phase == Phase::Arc && m_phaseTime >= inSeconds(m_settings.duration)) {
        m_phase = Phase::PostFlow;
        m_phaseTime = 0.0;
        m_current = 0.0; // the arc goes out
        m_voltage = 0.0;
    } else if (m_phase == Phase::PostFlow && m_phaseTime >= kPostFlow) {
        if (--m_weldsLeft == 0) {
            return false;
        }
        m_phase = Phase::PreFlow;
        m_phaseTime = 0.0;
    }
    return true;
}

void SimulatedWeld::ignite()
{
    m_phase = Phase::Arc;
    m_phaseTime = 0.0;
    m_shorted = true;
    m_transferLeft = 4e-3;
    moveCircuit(kStep);
}

void SimulatedWeld::moveCircuit(double seconds)
{
    if (m_phase != Phase::Arc) {
        m_voltage = m_phase == Phase::PreFlow ? kOpenCircuit : 0.0;
        return;
    }
    m_transferLeft -= seconds;
    if (m_transferLeft <= 0.0) {
        m_shorted = !m_shorted;
        m_transferLeft = varied(m_shorted ? kMeanShort : kMeanArc);
    }
    double supply = kSetVolts;
    const double left = inSeconds(m_settings.duration) - m_phaseTime;
    if (m_phaseTime < kRunUp) {
        supply += (kIgnitionVoltage - kSetVolts) * (1.0 - m_phaseTime / kRunUp);
    } else if (left < kCraterFill) {
        supply -= 2.5 * (1.0 - left / kCraterFill);
    }
    m_voltage = m_shorted ? m_current * kShortResistance : kArcVoltage + m_current * kArcResistance;
    m_current += (supply - m_voltage - m_current * kResistance) / kInductance * seconds;
}

void SimulatedWeld::moveFeeds(double seconds)
{
    double wanted = 0.0;
    if (m_phase == Phase::PreFlow) {
        wanted = kRunInWfs;
    } else if (m_phase == Phase::Arc) {
        const double left = inSeconds(m_settings.duration) - m_phaseTime;
        wanted = kSetWfs * (left < kCraterFill ? 0.6 + 0.4 * left / kCraterFill : 1.0);
    }
    m_wfs += (wanted - m_wfs) * std::min(1.0, seconds / 0.1);
    m_slip += (0.2 * noise() - m_slip) * std::min(1.0, seconds / 0.2);

    const bool open = m_phase != Phase::PostFlow || m_phaseTime < kPostFlow - 0.4;
    m_gasSurge += (open ? -m_gasSurge : kGasSurge - m_gasSurge) * std::min(1.0, seconds / 0.5);
    m_gas += ((open ? kSetGas + m_gasSurge : 0.0) - m_gas) * std::min(1.0, seconds / 0.08);
}

WeldSample SimulatedWeld::measure()
{
    WeldSample sample;
    const bool live = m_phase == Phase::Arc;
    sample[Quantity::Amps] = rounded(std::max(0.0, m_current + (live ? 1.5 : 0.3) * noise()), 10.0);
    sample[Quantity::Volts] = rounded(std::max(0.0, m_voltage + 0.2 * noise()), 100.0);
    const double wfs = m_wfs * (1.0 + m_slip);
    sample[Quantity::Wfs] = rounded(wfs, 10.0);
    sample[Quantity::Gas] = rounded(std::max(0.0, m_gas + 0.1 * noise()), 100.0);
    sample[Quantity::Motor] = rounded(std::max(0.0, 0.4 + 0.008 * wfs + 0.15 * noise()), 100.0);
    return sample;
}

} // namespace TelvaneTool

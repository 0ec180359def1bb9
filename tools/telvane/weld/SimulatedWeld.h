#pragma once

#include "weld/WeldSample.h"

#include <cstdint>
#include <random>

namespace TelvaneTool
{

/// A simulated short-arc weld with 1.2 mm solid steel wire: gas pre-flow, ignition, run-up, about a hundred
/// short circuits per second, crater fill and post-flow. The same settings give the same samples on every
/// machine.
class SimulatedWeld : public SampleSource
{
public:
    struct Settings
    {
        std::uint64_t seed = 1;
        unsigned welds = 1;                      ///< one after the other
        Nanoseconds duration = 10 * kSecond;     ///< arc time of each weld
        Nanoseconds period = 500 * kMicrosecond; ///< between samples
    };

    explicit SimulatedWeld(const Settings& settings);

    Next next(WeldSample& sample) override;
    const Traits& traits() const override { return m_traits; }

    /// The operator's set points.
    static constexpr double kSetVolts = 20.5;
    static constexpr double kSetWfs = 210.0; ///< in/min

private:
    enum class Phase
    {
        PreFlow,
        Arc,
        PostFlow,
    };

    double random();
    double noise();
    double varied(double mean);
    void ignite();
    void advance(double seconds);
    void moveCircuit(double seconds);
    void moveFeeds(double seconds);
    bool movePhase();
    WeldSample measure();

    Settings m_settings;
    Traits m_traits;
    std::mt19937_64 m_random;
    std::uint64_t m_index = 0;
    unsigned m_weldsLeft;

    Phase m_phase = Phase::PreFlow;
    double m_phaseTime = 0.0;    ///< time in the current phase, s
    bool m_shorted = false;      ///< the wire touches the weld pool
    double m_transferLeft = 0.0; ///< until the next change between short circuit and arc, s
    double m_current = 0.0;      ///< A
    double m_voltage = 0.0;      ///< at the torch, V
    double m_wfs = 0.0;          ///< in/min
    double m_slip = 0.0;         ///< slow relative deviation of the wire-feed speed
    double m_gas = 0.0;          ///< l/min
    double m_gasSurge = 12.0;    ///< from the pressure that built up behind the closed valve, l/min
};

} // namespace TelvaneTool

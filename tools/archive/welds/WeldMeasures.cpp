// Means and deviations are weighted by time, because samples may be unevenly spaced: each sample counts until the
// next one, the last one for one period. Interruptions of the arc do not count; they show the open-circuit voltage.
// Energy is the sum of u*i*dt: in a short-circuiting arc the current is high while the voltage is low, so the product
// of the means differs from it, in either direction.

#include "archive/welds/WeldMeasures.h"

#include <Telvane/Consumables.h>
#include <Telvane/WeldRecords.h>
#include <Telvane/WireComputations.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

namespace TelvaneArchive
{

namespace
{

constexpr double kSecondsPerMinute = 60.0;
constexpr double kInchesPerFoot = 12.0;
constexpr double kGramsPerPound = 453.59237;
constexpr double kJoulePerKilojoule = 1000.0;

double millisecondsBetween(TelvaneTool::Nanoseconds from, TelvaneTool::Nanoseconds to)
{
    return static_cast<double>(TelvaneTool::subtractSaturated(to, from)) /
           static_cast<double>(TelvaneTool::kMillisecond);
}

void setMoments(Weld& weld, const Moments& moments, Column mean, Column deviation)
{
    weld[mean] = moments.mean();
    weld[deviation] = moments.deviation();
}

/// \return the weight of the wire; 0 for codes that the tables do not have
double poundsPerFoot(const Telvane::WeldTriggerStart& start)
{
    const auto isIn = [](int code, std::size_t codes) {
        return code >= 0 && static_cast<std::size_t>(code) < codes;
    };
    if (!isIn(start.wireSize, std::size(Telvane::WireSizeStrings)) ||
        !isIn(start.alloy, std::size(Telvane::AlloyIDStrings))) {
        return 0.0;
    }
    const auto size = static_cast<Telvane::_WireSize_e>(start.wireSize);
    const auto diameter = static_cast<float>(Telvane::GetWireDiameterInInches(size));
    return Telvane::GetWireWeight(static_cast<Telvane::_AlloyID_e>(start.alloy), diameter);
}

} // namespace

void Moments::add(double value, double weight)
{
    if (!std::isfinite(value) || !(weight > 0.0)) {
        return;
    }
    m_min = m_weight > 0.0 ? std::min(m_min, value) : value;
    m_max = m_weight > 0.0 ? std::max(m_max, value) : value;
    m_weight += weight;
    const double difference = value - m_mean;
    m_mean += difference * weight / m_weight;
    m_squares += weight * difference * (value - m_mean);
}

double Moments::deviation() const
{
    return m_weight > 0.0 ? std::sqrt(std::max(0.0, m_squares / m_weight)) : 0.0;
}

std::pair<std::int64_t, std::int64_t> SampleClock::rangeOf(const Sample* samples, std::size_t count) const
{
    std::pair<std::int64_t, std::int64_t> range = {momentOf(samples[0]), momentOf(samples[0])};
    for (std::size_t i = 1; i < count; ++i) {
        const std::int64_t moment = momentOf(samples[i]);
        range = {std::min(range.first, moment), std::max(range.second, moment)};
    }
    return range;
}

WeldMeasures::WeldMeasures(SampleClock clock, const MeasureSettings& settings)
    : m_clock(clock), m_settings(settings)
{}

void WeldMeasures::add(const Sample& sample)
{
    if (m_samples++ != 0) {
        close(TelvaneTool::inSeconds(
            TelvaneTool::subtractSaturated(m_clock.momentOf(sample), m_clock.momentOf(m_last))));
    }
    // Whole nanoseconds: with fractions of a second, an event that lasts exactly as long as the limit may seem shorter.
    const TelvaneTool::Nanoseconds moment = m_clock.sinceStart(sample);
    followArc(sample[Channel::Amps] > m_settings.arcAmps, moment);
    m_last = sample;
    follow(sample, moment);
}

void WeldMeasures::followArc(bool burning, TelvaneTool::Nanoseconds moment)
{
    if (m_burning && !burning) {
        m_outSince = moment;
    } else if (burning && !m_burning && m_outSince >= 0 &&
               millisecondsBetween(m_outSince, moment) >= m_settings.minOutMs) {
        ++m_interruptions;
        m_shorted = false;
        m_previousStart = -1;
    }
    m_burning = burning;
}

void WeldMeasures::close(double seconds)
{
    if (!m_burning || !(seconds > 0.0)) {
        return;
    }
    m_arcTime += seconds;
    for (std::size_t i = 0; i < kChannels; ++i) {
        m_moments[i].add(m_last.values[i], seconds);
    }
    m_energy += m_last[Channel::Volts] * m_last[Channel::Amps] * seconds;
}

void WeldMeasures::follow(const Sample& sample, TelvaneTool::Nanoseconds moment)
{
    const double volts = sample[Channel::Volts];
    if (!m_shorted && m_burning && volts < m_settings.shortBelow) {
        m_shorted = true;
        m_shortStart = moment;
    } else if (m_shorted && volts > m_settings.shortAbove) {
        m_shorted = false;
        const double lasted = millisecondsBetween(m_shortStart, moment);
        if (lasted < m_settings.minShortMs) {
            return;
        }
        ++m_shorts;
        m_shortTimes.add(lasted, 1.0);
        if (m_previousStart >= 0) {
            m_shortPeriods.add(millisecondsBetween(m_previousStart, m_shortStart), 1.0);
        }
        m_previousStart = m_shortStart;
    }
}

void WeldMeasures::finish(Weld& weld)
{
    close(TelvaneTool::inSeconds(m_clock.period()));
    weld[Column::ArcTime] = m_arcTime;
    weld[Column::Interruptions] = m_interruptions;
    if (!(m_arcTime > 0.0)) {
        return;
    }
    const auto moments = [this](Channel channel) -> const Moments& {
        return m_moments[static_cast<std::size_t>(channel)];
    };
    setMoments(weld, moments(Channel::Amps), Column::MeanAmps, Column::SdAmps);
    weld[Column::MinAmps] = moments(Channel::Amps).min();
    weld[Column::MaxAmps] = moments(Channel::Amps).max();
    setMoments(weld, moments(Channel::Volts), Column::MeanVolts, Column::SdVolts);
    weld[Column::MinVolts] = moments(Channel::Volts).min();
    weld[Column::MaxVolts] = moments(Channel::Volts).max();
    weld[Column::Energy] = m_energy;
    weld[Column::EnergyMethod] = std::string("sum of u*i*dt, each sample until the next");
    weld[Column::EnergyOfMeans] = moments(Channel::Amps).mean() * moments(Channel::Volts).mean() * m_arcTime;

    // What was not measured has no unit in the start's record.
    Telvane::WeldTriggerStart start;
    const std::string& record = weld.text(Column::StartRecord);
    const bool known = !record.empty() && start.FromJson(record);
    if (known && !start.data.wfs.empty()) {
        setMoments(weld, moments(Channel::Wfs), Column::MeanWfs, Column::SdWfs);
        const double inches = moments(Channel::Wfs).mean() * m_arcTime / kSecondsPerMinute;
        weld[Column::WireLength] = inches;
        const double pounds = inches / kInchesPerFoot * poundsPerFoot(start);
        if (pounds > 0.0) {
            weld[Column::Deposition] = pounds * kGramsPerPound;
        }
    }
    if (known && !start.data.gas.empty()) {
        setMoments(weld, moments(Channel::Gas), Column::MeanGas, Column::SdGas);
    }
    if (known && !start.data.motor.empty()) {
        setMoments(weld, moments(Channel::Motor), Column::MeanMotor, Column::SdMotor);
    }
    const double periodUs = static_cast<double>(m_clock.period()) / 1000.0;
    if (periodUs > 0.0 && periodUs <= m_settings.maxPeriodUs) {
        weld[Column::ShortRate] = static_cast<double>(m_shorts) / m_arcTime;
        char method[96];
        std::snprintf(method, sizeof method, "U<%g V until U>%g V, >=%g ms, sampled every %g us",
                      m_settings.shortBelow, m_settings.shortAbove, m_settings.minShortMs, periodUs);
        weld[Column::ShortMethod] = std::string(method);
    }
    if (m_shortPeriods.weight() >= 2.0) {
        setMoments(weld, m_shortTimes, Column::ShortTime, Column::SdShortTime);
        setMoments(weld, m_shortPeriods, Column::ShortPeriod, Column::SdShortPeriod);
        weld[Column::ArcStability] = m_shortPeriods.deviation() / m_shortPeriods.mean();
    }
    const double speed = weld.number(Column::TravelSpeed);
    const double efficiency = weld.number(Column::Efficiency);
    if (speed > 0.0 && efficiency > 0.0) {
        weld[Column::HeatInput] = efficiency * m_energy / kJoulePerKilojoule / (speed * m_arcTime);
    }
}

} // namespace TelvaneArchive

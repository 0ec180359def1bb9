#include "common/support/Pacer.h"

#include "common/support/Saturating.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr int kMaxCaughtUp = 64; ///< samples
constexpr Nanoseconds kMinTolerance = 2 * kMillisecond;
constexpr Nanoseconds kMaxTolerance = kSecond;

} // namespace

void Pacer::begin(Nanoseconds start, Nanoseconds period)
{
    m_start = start;
    m_base = std::max(monotonicNow(), m_due);
    m_due = m_base;
    const double tolerance = m_speed > 0.0 ? kMaxCaughtUp * static_cast<double>(period) / m_speed : 0.0;
    m_tolerance =
        std::clamp(static_cast<Nanoseconds>(std::min(tolerance, 1e18)), kMinTolerance, kMaxTolerance);
}

bool Pacer::waitUntil(Nanoseconds moment)
{
    if (m_speed <= 0.0) {
        return m_sleepUntil(0);
    }
    const Nanoseconds recorded = subtractSaturated(moment, m_start);
    m_due = addSaturated(m_base, toSaturated<Nanoseconds>(static_cast<double>(recorded) / m_speed));
    const Nanoseconds behind = subtractSaturated(monotonicNow(), m_due);
    if (behind > m_tolerance) {
        const Nanoseconds lost = behind - m_tolerance;
        m_base = addSaturated(m_base, lost);
        m_due = addSaturated(m_due, lost);
        m_late = addSaturated(m_late, lost);
    }
    return m_sleepUntil(m_due);
}

} // namespace TelvaneTool

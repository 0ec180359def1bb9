// Only after the hold time is it known whether the arc was interrupted or is out. The samples of that time
// wait here, so that the listener gets them in order and no weld ends with idle samples.

#include "weld/WeldDetector.h"

#include "common/support/Saturating.h"

namespace TelvaneTool
{

void WeldDetector::push(const WeldSample& sample)
{
    const bool burning = sample[Quantity::Amps] > m_settings.threshold;
    if (m_welding && !m_below.empty() &&
        subtractSaturated(sample.time, m_below.front().time) >= m_settings.hold) {
        end(WeldSample(m_below.front()));
    }
    if (!m_welding) {
        if (!burning) {
            return;
        }
        m_welding = true;
        m_listener.arcStarted(sample);
    }
    if (!burning) {
        m_below.push_back(sample);
        return;
    }
    for (const WeldSample& interrupted : m_below) {
        m_listener.arcSample(interrupted, false);
    }
    m_below.clear();
    m_lastBurning = sample;
    m_listener.arcSample(sample, true);
}

void WeldDetector::finish(Nanoseconds period)
{
    if (!m_welding) {
        return;
    }
    WeldSample last = m_lastBurning;
    last.time = addSaturated(last.time, period);
    end(m_below.empty() ? last : WeldSample(m_below.front()));
}

void WeldDetector::end(const WeldSample& at)
{
    m_welding = false;
    m_below.clear();
    m_listener.arcEnded(at);
}

} // namespace TelvaneTool

// Two thresholds and two times, so that a client near the limit does not change its pace with every packet.

#include "telvane-web/live/StreamGate.h"

namespace TelvaneTool
{

StreamGate::Pace StreamGate::update(Nanoseconds now, std::size_t unsent, bool blocked)
{
    const bool behind = blocked || unsent > m_settings.high;
    const bool caughtUp = !blocked && unsent < m_settings.low;
    m_behindSince = !behind ? 0 : m_behindSince != 0 ? m_behindSince : now;
    m_caughtUpSince = !caughtUp ? 0 : m_caughtUpSince != 0 ? m_caughtUpSince : now;

    const auto lasts = [now](Nanoseconds since, Nanoseconds duration) {
        return since != 0 && now - since >= duration;
    };
    switch (m_pace) {
    case Pace::Full:
        if (lasts(m_behindSince, m_settings.patience)) {
            m_pace = Pace::Thinned;
        }
        break;
    case Pace::Thinned:
        if (lasts(m_behindSince, m_settings.limit)) {
            m_pace = Pace::Disconnect;
        } else if (lasts(m_caughtUpSince, m_settings.recovery)) {
            m_pace = Pace::Full;
        }
        break;
    case Pace::Disconnect:
        break;
    }
    return m_pace;
}

} // namespace TelvaneTool

#include "recording/RecordingInput.h"

#include "common/cli/ExitCodes.h"
#include "common/support/Saturating.h"

#include <algorithm>
#include <limits>

namespace TelvaneTool
{

bool RecordingInput::open()
{
    if (!openNext()) {
        return false;
    }
    m_header = m_reader->header();
    return true;
}

bool RecordingInput::openNext()
{
    m_reader = std::make_unique<RecordingReader>();
    if (!m_reader->open(m_paths[m_nextPath++], m_waiter)) {
        m_reader.reset();
        m_result = kWrongInput;
        return false;
    }
    return true;
}

void RecordingInput::closeCurrent()
{
    if (m_reader != nullptr) {
        m_result = std::max(m_result, m_reader->finish());
        m_reader.reset();
    }
}

void RecordingInput::skipToNext()
{
    closeCurrent();
    if (m_nextPath != m_paths.size() && openNext()) {
        m_shift = subtractSaturated(m_reader->header().started, m_header.started);
    }
}

bool RecordingInput::next(RecordedMessage& message)
{
    while (m_reader != nullptr) {
        if (!m_reader->next(message)) {
            skipToNext();
            continue;
        }
        message.time = addSaturated(message.time, m_shift);
        message.missedFrom = addSaturated(message.missedFrom, m_shift);
        message.missedTo = addSaturated(message.missedTo, m_shift);
        if (!m_begun) {
            m_begun = true;
            m_origin = message.time;
            const auto timeOf = [this](const RecordingBound& bound) {
                const Nanoseconds first = addSaturated(m_header.started, m_origin);
                return subtractSaturated(bound.moment(first), m_header.started);
            };
            m_begin = m_range.from.has_value() ? timeOf(*m_range.from) : m_origin;
            m_end = m_range.to.has_value() ? timeOf(*m_range.to) : std::numeric_limits<Nanoseconds>::max();
        }
        if (message.time >= m_end) {
            skipToNext(); // it may be older than this one
        } else if (!m_range.from.has_value() || message.time >= m_begin) {
            return true;
        }
    }
    return false;
}

double RecordingInput::fraction() const
{
    if (m_reader == nullptr || m_reader->size() == 0) {
        return -1.0;
    }
    const double part = static_cast<double>(m_reader->bytes()) / static_cast<double>(m_reader->size());
    return (static_cast<double>(m_nextPath - 1) + part) / static_cast<double>(m_paths.size());
}

int RecordingInput::finish()
{
    closeCurrent();
    return m_result;
}

} // namespace TelvaneTool

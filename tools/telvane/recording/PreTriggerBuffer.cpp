#include "recording/PreTriggerBuffer.h"

namespace TelvaneTool
{

void PreTriggerBuffer::add(std::string_view line, Nanoseconds time)
{
    m_lines.push_back({time, std::string(line)});
    m_bytes += line.size();
    while (time - m_lines.front().time > m_span) {
        m_truncated = false;
        dropOldest();
    }
    while (m_bytes > m_maxBytes && m_lines.size() > 1) {
        m_truncated = true;
        dropOldest();
    }
}

void PreTriggerBuffer::dropOldest()
{
    m_bytes -= m_lines.front().text.size();
    m_lines.pop_front();
}

} // namespace TelvaneTool

#include "recording/PreTriggerBuffer.h"

namespace TelvaneTool
{

void PreTriggerBuffer::add(std::string_view line, Nanoseconds time)
{
    m_lines.push_back({time, std::string(line)});
    m_bytes += line.size();
    while (time - m_lines.front().time > m_span) {
        m_cutShort = false;
        dropOldest();
    }
    while (m_bytes > m_mostBytes && m_lines.size() > 1) {
        m_cutShort = true;
        dropOldest();
    }
}

void PreTriggerBuffer::dropOldest()
{
    m_bytes -= m_lines.front().text.size();
    m_lines.pop_front();
}

} // namespace TelvaneTool

#pragma once

#include "common/support/Clock.h"

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace TelvaneTool
{

/// The latest lines of a recording, kept in memory until somebody wants them.
class PreTriggerBuffer
{
public:
    /// \param span how long a line is kept
    /// \param mostBytes of all lines together; the oldest go first
    PreTriggerBuffer(Nanoseconds span, std::uint64_t mostBytes) : m_span(span), m_mostBytes(mostBytes) {}

    void add(std::string_view line, Nanoseconds time);

    struct Line
    {
        Nanoseconds time;
        std::string text;
    };
    /// \return what is kept, oldest first
    const std::deque<Line>& lines() const { return m_lines; }

    std::uint64_t bytes() const { return m_bytes; }
    /// \return true when the last line that had to go was younger than the span
    bool cutShort() const { return m_cutShort; }

private:
    void dropOldest();

    const Nanoseconds m_span;
    const std::uint64_t m_mostBytes;
    std::deque<Line> m_lines;
    std::uint64_t m_bytes = 0;
    bool m_cutShort = false;
};

} // namespace TelvaneTool

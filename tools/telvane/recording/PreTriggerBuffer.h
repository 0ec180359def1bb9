#pragma once

#include "common/support/Clock.h"

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace TelvaneTool
{

/// The latest lines of a recording, kept in memory until a trigger saves them. Used by one thread.
class PreTriggerBuffer
{
public:
    /// \param span      maximum age of a line
    /// \param maxBytes  maximum size of all lines; the oldest are dropped first
    PreTriggerBuffer(Nanoseconds span, std::uint64_t maxBytes) : m_span(span), m_maxBytes(maxBytes) {}

    void add(std::string_view line, Nanoseconds time);

    struct Line
    {
        Nanoseconds time;
        std::string text;
    };
    /// \return the lines, oldest first
    const std::deque<Line>& lines() const { return m_lines; }

    std::uint64_t bytes() const { return m_bytes; }
    /// \return true if the last line dropped was younger than the span
    bool truncated() const { return m_truncated; }

private:
    void dropOldest();

    const Nanoseconds m_span;
    const std::uint64_t m_maxBytes;
    std::deque<Line> m_lines;
    std::uint64_t m_bytes = 0;
    bool m_truncated = false;
};

} // namespace TelvaneTool

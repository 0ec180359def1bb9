// The receiver thread only makes lines. The disk may take its time: while it does, lines wait in memory, and
// the server, which drops what a subscriber does not fetch, has nobody waiting.

#include "recording/Recorder.h"

#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"

namespace TelvaneTool
{

Recorder::Recorder(Settings settings, RecordingHeader header)
    : m_settings(std::move(settings)),
      m_header(std::move(header)),
      m_origin(monotonicNow()),
      m_writer(m_settings.output)
{
    if (m_settings.keep > 0) {
        m_ring.emplace(m_settings.keep, m_settings.mostKept);
    }
}

void Recorder::take(const std::string& channel, int sequence, std::string_view payload)
{
    const Nanoseconds time = monotonicNow() - m_origin;
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_settings.count == 0 || m_taken < m_settings.count) {
        appendMessage(m_arrived, {time, channel, sequence, payload});
        ++m_taken;
    }
}

bool Recorder::write(bool triggered)
{
    m_batch.clear();
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_batch.swap(m_arrived);
        m_records = m_taken;
    }
    if (!writeLines(m_batch)) {
        return false;
    }
    const Nanoseconds now = monotonicNow() - m_origin;
    if (m_ring.has_value() && triggered) {
        printError("told to write");
        m_until = now + m_settings.after;
        if (!m_writer.isOpen() && !begin()) {
            return false;
        }
    }
    return m_writer.flush() && (!m_ring.has_value() || endAfter(now));
}

bool Recorder::writeLines(std::string_view lines)
{
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find('\n') + 1);
        lines.remove_prefix(line.size());
        RecordedMessage message;
        m_reader.read(line.substr(0, line.size() - 1), message);
        if (!writeLine(line, message.time)) {
            return false;
        }
        if (m_ring.has_value() && message.channel == m_settings.trigger) {
            printError("triggered by " + m_settings.trigger + " " + std::to_string(message.sequence));
            m_until = message.time + m_settings.after;
            if (!m_writer.isOpen() && !begin()) {
                return false;
            }
        }
    }
    return true;
}

bool Recorder::writeLine(std::string_view line, Nanoseconds time)
{
    if (!m_ring.has_value()) {
        return m_writer.add(line, time);
    }
    // What comes after a trigger may be what was before the next one.
    m_ring->add(line, time);
    return endAfter(time) && (!m_writer.isOpen() || m_writer.add(line, time));
}

bool Recorder::begin()
{
    if (!m_writer.open(m_header)) {
        return false;
    }
    if (m_ring->truncated()) {
        printError("only the last " + printBytes(static_cast<double>(m_ring->bytes())) +
                   " were kept; --keep-size allows more");
    }
    for (const PreTriggerBuffer::Line& line : m_ring->lines()) {
        if (!m_writer.add(line.text, line.time)) {
            return false;
        }
    }
    return true;
}

bool Recorder::endAfter(Nanoseconds time)
{
    if (!m_writer.isOpen() || time <= m_until) {
        return true;
    }
    printError("has written " + m_writer.currentPath());
    return m_writer.close();
}

bool Recorder::complete()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_settings.count != 0 && m_taken == m_settings.count;
}

bool Recorder::finish()
{
    const bool written = write(false);
    return m_writer.close() && written;
}

} // namespace TelvaneTool

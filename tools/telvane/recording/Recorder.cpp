// The receiver thread only formats lines. If the disk is slow, they wait in memory. The server drops what a
// subscriber does not read in time, so the receiver must never wait for the disk.

#include "recording/Recorder.h"

#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"

#include <algorithm>

namespace TelvaneTool
{

Recorder::Recorder(Settings settings, RecordingHeader header, Clock clock)
    : m_settings(std::move(settings)),
      m_header(std::move(header)),
      m_clock(std::move(clock)),
      m_origin(m_clock()),
      m_writer(m_settings.output)
{
    if (m_settings.keep > 0) {
        m_buffer.emplace(m_settings.keep, m_settings.maxKept);
    }
}

void Recorder::take(const std::string& channel, int sequence, std::string_view payload)
{
    const Nanoseconds time = m_clock() - m_origin;
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_settings.count != 0 && m_taken == m_settings.count) {
        return;
    }
    if (m_queue.size() + payload.size() > m_settings.maxQueued) {
        Dropped& dropped = m_dropped[channel];
        dropped.from = dropped.count++ == 0 ? m_lastTime : dropped.from;
        dropped.to = time;
        return;
    }
    noteDropped();
    append({time, channel, sequence, payload});
    ++m_taken;
}

void Recorder::addMissed(const std::string& channel, std::uint64_t count, Nanoseconds from, Nanoseconds to)
{
    const Nanoseconds now = m_clock() - m_origin;
    const std::lock_guard<std::mutex> guard(m_lock);
    m_missed[channel] += count;
    RecordedMessage note;
    note.time = now;
    note.channel = channel;
    note.missed = count;
    note.missedFrom = std::max<Nanoseconds>(0, from - m_origin);
    note.missedTo = std::clamp<Nanoseconds>(to - m_origin, note.missedFrom, std::max(now, note.missedFrom));
    append(note);
}

void Recorder::addOutage(Nanoseconds from, Nanoseconds to)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    noteDropped();
    RecordedMessage note;
    note.outage = true;
    note.time = std::max(m_lastTime, m_clock() - m_origin);
    note.missedFrom = std::max<Nanoseconds>(0, from - m_origin);
    note.missedTo = std::max(note.missedFrom, to - m_origin);
    append(note);
}

/// Called with the lock held.
void Recorder::append(const RecordedMessage& message)
{
    appendMessage(m_queue, message);
    m_lastTime = message.time;
}

/// Called with the lock held. Adds a note of what did not fit into the queue.
void Recorder::noteDropped()
{
    for (const auto& [channel, dropped] : m_dropped) {
        RecordedMessage note;
        note.time = dropped.to;
        note.channel = channel;
        note.missed = dropped.count;
        note.missedFrom = dropped.from;
        note.missedTo = dropped.to;
        m_missed[channel] += dropped.count;
        append(note);
    }
    m_dropped.clear();
}

bool Recorder::write(const std::string& reason)
{
    m_batch.clear();
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        noteDropped();
        m_batch.swap(m_queue);
    }
    if (!writeLines(m_batch)) {
        return false;
    }
    const Nanoseconds now = m_clock() - m_origin;
    if (m_buffer.has_value() && !reason.empty() && !trigger(reason, now)) {
        return false;
    }
    return m_writer.flush() && (!m_buffer.has_value() || endAfter(now));
}

bool Recorder::writeLines(std::string_view lines)
{
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find('\n') + 1);
        lines.remove_prefix(line.size());
        RecordedMessage message;
        m_reader.read(line.substr(0, line.size() - 1), message);
        if (!writeLine(line, message)) {
            return false;
        }
        if (m_buffer.has_value() && !message.isNote() && message.channel == m_settings.trigger &&
            !trigger(m_settings.trigger + " " + std::to_string(message.sequence), message.time)) {
            return false;
        }
    }
    return true;
}

bool Recorder::writeLine(std::string_view line, const RecordedMessage& message)
{
    if (!m_buffer.has_value()) {
        return m_writer.add(line, message);
    }
    // What comes after one trigger may be what came before the next one.
    m_buffer->add(line, message.time);
    return endAfter(message.time) && (!m_writer.isOpen() || m_writer.add(line, message));
}

bool Recorder::trigger(const std::string& reason, Nanoseconds time)
{
    printError("saving the buffered records: " + reason);
    m_until = addSaturated(time, m_settings.after);
    return m_writer.isOpen() || begin();
}

bool Recorder::begin()
{
    if (!m_writer.open(m_header)) {
        return false;
    }
    if (m_buffer->truncated()) {
        printError("the buffer held only the last " + printBytes(static_cast<double>(m_buffer->bytes())) +
                   "; --keep-size allows more");
    }
    RecordedMessage message;
    for (const PreTriggerBuffer::Line& line : m_buffer->lines()) {
        m_reader.read(std::string_view(line.text).substr(0, line.text.size() - 1), message);
        if (!m_writer.add(line.text, message)) {
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
    const bool closed = m_writer.close();
    if (closed) {
        printError("saved " + m_writer.currentPath());
    }
    return closed;
}

bool Recorder::complete()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_settings.count != 0 && m_taken == m_settings.count;
}

std::map<std::string, std::uint64_t> Recorder::missed()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_missed;
}

bool Recorder::finish(const std::string& reason)
{
    bool written = write();
    if (written && m_buffer.has_value() && !reason.empty() && !m_buffer->lines().empty()) {
        written = trigger(reason, m_clock() - m_origin);
    }
    const bool wasOpen = m_writer.isOpen();
    const bool closed = m_writer.close();
    if (wasOpen && closed && m_buffer.has_value()) {
        printError("saved " + m_writer.currentPath());
    }
    return closed && written;
}

} // namespace TelvaneTool

// The order in each answer: log entries first, then a change of the pace, then columns. Columns are replaceable: the
// newest one is sent again while samples are added to it, and a client that was away for a while gets the columns that
// have changed, not each state that they had.

#include "telvane-web/live/StreamClient.h"

#include <algorithm>
#include <cstdio>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kColumnsPerEvent = 128;
constexpr std::size_t kMaxAnswer = 16384;

void appendNumber(std::string& text, double value)
{
    char number[32];
    text.append(number, static_cast<std::size_t>(std::snprintf(number, sizeof number, "%.7g", value)));
}

/// Appends [samples, min, mean, max, min, mean, max, ...], or 0 for an empty column.
void appendColumn(std::string& text, const EnvelopeColumn& column)
{
    if (column.samples == 0) {
        text += '0';
        return;
    }
    text += '[';
    text += std::to_string(column.samples);
    for (std::size_t i = 0; i < kLiveQuantities; ++i) {
        for (const double value : {column.min[i], column.mean(i), column.max[i]}) {
            text += ',';
            appendNumber(text, value);
        }
    }
    text += ']';
}

} // namespace

std::string streamEvent(const char* type, const std::string& data, std::uint64_t id)
{
    std::string text = "event: ";
    text.append(type);
    if (id != 0) {
        text.append("\nid: ").append(std::to_string(id));
    }
    return text.append("\ndata: ").append(data).append("\n\n");
}

std::string StreamClient::begin(const LiveWeld& live)
{
    m_begun = true;
    std::string text = "retry: 1500\n\n" + streamEvent("hello", m_hello);
    const EventLog& log = live.log();
    if (!m_resumed || m_logged > log.newest() || log.lacks(m_logged)) {
        // A new page gets the errors of the log. Of the states only the present one matters.
        for (const EventLog::Entry& entry : log.entries()) {
            if (entry.type == std::string_view("fault") && text.size() < kMaxAnswer * 4) {
                text += streamEvent(entry.type, entry.data);
            }
        }
        m_logged = log.newest();
    }
    return text + streamEvent("state", live.stateJson());
}

bool StreamClient::hasColumns(const LiveWeld& live) const
{
    return m_moreColumns || m_weld != live.weld() || m_samples != live.samples();
}

std::string StreamClient::columns(const LiveWeld& live)
{
    const Envelope& envelope = live.envelope();
    const unsigned level = envelope.levelFor(m_columns);
    if (m_weld != live.weld() || m_revision != envelope.revision()) {
        m_weld = live.weld();
        m_revision = envelope.revision();
        m_sent = 0;
    } else {
        m_sent >>= level - m_level;
    }
    m_level = level;
    m_samples = live.samples();

    const std::size_t size = envelope.sizeAt(level);
    const std::size_t end = std::min(size, m_sent + kColumnsPerEvent);
    std::string text = "{\"weld\":" + std::to_string(m_weld) + ",\"level\":" + std::to_string(level) +
                       ",\"from\":" + std::to_string(m_sent) + ",\"columns\":[";
    for (std::size_t i = m_sent; i < end; ++i) {
        text += i == m_sent ? "" : ",";
        appendColumn(text, envelope.merged(i, level));
    }
    text += "],\"values\":" + live.valuesJson() + "}";
    m_moreColumns = end < size;
    m_sent = m_moreColumns ? end : end - std::min<std::size_t>(end, 1); // the newest column is not complete
    return streamEvent("columns", text);
}

std::string StreamClient::next(const LiveWeld& live, Nanoseconds now)
{
    std::string text;
    if (!m_begun) {
        text = begin(live);
    }
    while (text.size() < kMaxAnswer) {
        const EventLog::Entry* const entry = live.log().after(m_logged);
        if (entry == nullptr) {
            break;
        }
        m_logged = entry->id;
        text += streamEvent(entry->type, entry->data, entry->id);
    }
    if (m_toldPace != m_gate.pace()) {
        m_toldPace = m_gate.pace();
        text += streamEvent("pace", m_toldPace == StreamGate::Pace::Full ? "\"full\"" : "\"thinned\"");
    }
    const bool logIsSent = live.log().after(m_logged) == nullptr;
    if (logIsSent && hasColumns(live) && (m_moreColumns || now - m_lastColumns >= m_gate.interval())) {
        m_lastColumns = now;
        text += columns(live);
    }
    if (text.empty() && now - m_lastSent >= kHeartbeat) {
        text = streamEvent("beat", "0");
    }
    if (!text.empty()) {
        m_lastSent = now;
    }
    return text;
}

Nanoseconds StreamClient::due(const LiveWeld& live) const
{
    if (!m_begun || m_moreColumns || live.log().after(m_logged) != nullptr || m_toldPace != m_gate.pace()) {
        return 0;
    }
    const Nanoseconds beat = m_lastSent + kHeartbeat;
    return hasColumns(live) ? std::min(beat, m_lastColumns + m_gate.interval()) : beat;
}

} // namespace TelvaneTool

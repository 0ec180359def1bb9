// A sample has a hundred bytes, most of them keys. A batch has each key once, and what is the same in all records once
// as well: nested keys become paths ("data.volts"), so that every column is a plain list.

#include "telvane-mqtt/channels/ChannelFeed.h"

#include <algorithm>
#include <cmath>

namespace TelvaneTool::Mqtt
{

namespace
{

/// A reader that joins late knows everything after this time.
constexpr Nanoseconds kFullRecordInterval = 60 * kSecond;
constexpr std::size_t kBatchOverhead = 64;

std::string quoted(const std::string& text)
{
    const JsonTree value(cJSON_CreateString(text.c_str()));
    return printJson(value.get());
}

std::string numberText(double number)
{
    const JsonTree value(cJSON_CreateNumber(number));
    return printJson(value.get());
}

void flatten(const cJSON* value, const std::string& path,
             std::vector<std::pair<std::string, std::string>>& fields)
{
    if (cJSON_IsObject(value) == 0) {
        fields.emplace_back(path, printJson(value));
        return;
    }
    for (const cJSON* item = value->child; item != nullptr; item = item->next) {
        flatten(item, path.empty() ? item->string : path + "." + item->string, fields);
    }
}

} // namespace

void ChannelFeed::add(std::string text, Nanoseconds now, std::size_t sizeLimit)
{
    if (m_rule.mode == Mode::EachRecord) {
        text.insert(0, "\"record\":");
        m_sink(std::move(text), wallTimeNow());
        return;
    }
    std::string error;
    const JsonTree record = parseJson(text, error);
    if (record == nullptr) {
        return; // printed by our own code: cannot happen
    }
    closeIfDue(now);
    if (m_rule.mode == Mode::Summary) {
        begin(now);
        addToSummary(record.get());
        return;
    }
    Fields fields;
    flatten(record.get(), {}, fields);
    if (m_rule.mode == Mode::Batch) {
        addToBatch(fields, now, sizeLimit);
    } else {
        addChange(text, std::move(fields), now);
    }
}

void ChannelFeed::begin(Nanoseconds now)
{
    if (m_count == 0) {
        m_began = now;
        m_time = wallTimeNow();
        m_size = kBatchOverhead;
    }
}

void ChannelFeed::addToBatch(const Fields& fields, Nanoseconds now, std::size_t sizeLimit)
{
    // The same class has the same fields, except for optional ones and vectors of another size.
    const bool sameKeys =
        fields.size() == m_columns.size() &&
        std::equal(fields.begin(), fields.end(), m_columns.begin(),
                   [](const auto& field, const Column& column) { return field.first == column.path; });
    std::size_t added = 12;
    for (const auto& [path, value] : fields) {
        added += value.size() + 1;
    }
    if (m_count != 0 && (!sameKeys || m_size + added > sizeLimit)) {
        close();
    }
    begin(now);
    if (m_count == 0) {
        m_columns.clear();
        for (const auto& [path, value] : fields) {
            m_columns.push_back({path, value, {}, true});
            m_size += path.size() + 6;
        }
    }
    for (std::size_t i = 0; i < fields.size(); ++i) {
        Column& column = m_columns[i];
        column.constant = column.constant && column.first == fields[i].second;
        column.values += (m_count == 0 ? "" : ",") + fields[i].second;
    }
    m_offsets += (m_count == 0 ? "" : ",") + std::to_string((now - m_began) / kMicrosecond);
    m_size += added;
    ++m_count;
}

void ChannelFeed::addToSummary(const cJSON* record)
{
    std::size_t place = 0;
    addRange(record, {}, place);
    ++m_count;
}

void ChannelFeed::addRange(const cJSON* value, const std::string& path, std::size_t& place)
{
    if (cJSON_IsObject(value) != 0) {
        for (const cJSON* item = value->child; item != nullptr; item = item->next) {
            addRange(item, path.empty() ? item->string : path + "." + item->string, place);
        }
        return;
    }
    if (cJSON_IsNumber(value) == 0) {
        return;
    }
    // The keys nearly always come in the same order.
    if (place >= m_ranges.size() || m_ranges[place].path != path) {
        const auto found = std::find_if(m_ranges.begin(), m_ranges.end(),
                                        [&path](const Range& range) { return range.path == path; });
        place = static_cast<std::size_t>(found - m_ranges.begin());
        if (found == m_ranges.end()) {
            m_ranges.push_back({path, 0, value->valuedouble, value->valuedouble, 0});
        }
    }
    Range& range = m_ranges[place++];
    range.sum += value->valuedouble;
    range.min = std::min(range.min, value->valuedouble);
    range.max = std::max(range.max, value->valuedouble);
    ++range.count;
}

void ChannelFeed::addChange(const std::string& text, Fields fields, Nanoseconds now)
{
    if (m_last.empty() || now - m_lastFull >= kFullRecordInterval || fields.size() != m_last.size()) {
        m_lastFull = now;
        m_last = std::move(fields);
        m_sink("\"record\":" + text, wallTimeNow());
        return;
    }
    std::string changes;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i] != m_last[i]) {
            changes += (changes.empty() ? "" : ",") + quoted(fields[i].first) + ":" + fields[i].second;
        }
    }
    m_last = std::move(fields);
    if (!changes.empty()) {
        m_sink("\"changes\":{" + changes + "}", wallTimeNow());
    }
}

void ChannelFeed::closeIfDue(Nanoseconds now)
{
    if (m_count != 0 && now >= m_began + m_rule.interval) {
        close();
    }
}

void ChannelFeed::close()
{
    if (m_count == 0) {
        return;
    }
    std::string body = m_rule.mode == Mode::Batch ? "\"batch\":" : "\"summary\":";
    body += "{\"count\":" + std::to_string(m_count);
    if (m_rule.mode == Mode::Batch) {
        std::string same;
        std::string columns;
        for (const Column& column : m_columns) {
            std::string& target = column.constant ? same : columns;
            target += (target.empty() ? "" : ",") + quoted(column.path) + ":" +
                      (column.constant ? column.first : "[" + column.values + "]");
        }
        body += ",\"us\":[" + m_offsets + "],\"same\":{" + same + "},\"columns\":{" + columns + "}}";
    } else {
        body += ",\"ms\":" + std::to_string(m_rule.interval / kMillisecond) + ",\"fields\":{";
        bool first = true;
        for (const Range& range : m_ranges) {
            body += (first ? "" : ",") + quoted(range.path) +
                    ":{\"mean\":" + numberText(range.sum / static_cast<double>(range.count)) +
                    ",\"min\":" + numberText(range.min) + ",\"max\":" + numberText(range.max) + "}";
            first = false;
        }
        body += "}}";
    }
    m_count = 0;
    m_offsets.clear();
    m_columns.clear();
    m_ranges.clear();
    m_sink(std::move(body), m_time);
}

} // namespace TelvaneTool::Mqtt

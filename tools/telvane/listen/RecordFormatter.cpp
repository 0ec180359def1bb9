#include "listen/RecordFormatter.h"

#include "catalogue/ConsumableNames.h"
#include "common/support/HumanReadable.h"
#include "common/support/JsonPath.h"
#include "common/support/Saturating.h"

#include <algorithm>
#include <cstdlib>

namespace TelvaneTool
{

namespace
{

constexpr const char* kConversions = "tudDcnpl%";

std::string seconds(Nanoseconds time)
{
    return formatted("%.6f", inSeconds(time));
}

/// Exact to the microsecond, unlike a double.
std::string unixTime(Nanoseconds moment)
{
    const Nanoseconds fraction = moment % kSecond;
    return (moment < 0 ? "-" : "") + formatted("%lld.%06d", std::llabs(moment / kSecond),
                                               std::abs(static_cast<int>(fraction / kMicrosecond)));
}

/// \return the text as a CSV field, in quotes if necessary
std::string csvText(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char character : text) {
        quoted += character == '"' ? "\"\"" : std::string(1, character);
    }
    return quoted + "\"";
}

std::string csvStart(const std::string& channel, int sequence, Nanoseconds moment)
{
    return printMoment(moment) + "," + channel + "," + std::to_string(sequence);
}

/// One element of a format: a conversion, with its path if it is "%{path}", or a character.
struct Element
{
    char conversion = '\0';
    char character = '\0';
    std::string path;
};

/// Reads the element at \p at.
/// \return false if the conversion is unknown
bool takeElement(const std::string& format, std::size_t& at, Element& element)
{
    element = {};
    const char first = format[at++];
    if (at == format.size() || (first != '%' && first != '\\')) {
        element.character = first;
        return first != '%';
    }
    const char second = format[at++];
    if (first == '\\') {
        element.character = second == 'n' ? '\n' : second == 't' ? '\t' : second;
        return true;
    }
    if (second != '{') {
        element.conversion = second;
        return std::string(kConversions).find(second) != std::string::npos;
    }
    const std::size_t end = format.find('}', at);
    element.conversion = '{';
    element.path = format.substr(at, end - at);
    at = end == std::string::npos ? format.size() : end + 1;
    return end != std::string::npos && !element.path.empty();
}

} // namespace

const char* const kFormatHelp = "%t arrival (UTC), %u arrival in seconds since 1970, %d seconds since the "
                                "previous record, %D since the previous one on the same channel, %c channel, "
                                "%n sequence number, %p payload, %l length of the payload, %{key.key} a "
                                "field, %% a percent sign; \\t, \\n";

std::string checkFormat(const std::string& format)
{
    Element element;
    for (std::size_t at = 0; at < format.size();) {
        const std::size_t begin = at;
        if (!takeElement(format, at, element)) {
            return "\"" + format.substr(begin, at - begin) + "\" is not a conversion; use " + kFormatHelp;
        }
    }
    return {};
}

std::vector<std::string> fieldsOfFormat(const std::string& format)
{
    std::vector<std::string> paths;
    Element element;
    for (std::size_t at = 0; at < format.size();) {
        if (takeElement(format, at, element) && element.conversion == '{') {
            paths.push_back(element.path);
        }
    }
    return paths;
}

RecordFormatter::RecordFormatter(Settings settings) : m_settings(std::move(settings))
{
    m_printsSamples = !m_settings.csvFields.empty() && m_settings.filters.empty() && !m_settings.names &&
                      m_sampleColumns.choose(m_settings.csvFields);
}

std::string RecordFormatter::print(const Arrival& arrival)
{
    const bool wantsFields = m_settings.format.find("%{") != std::string::npos;
    const bool wantsNames = m_settings.names && arrival.recordClass != nullptr;
    JsonTree tree;
    std::string error;
    if (wantsFields || wantsNames || !m_settings.filters.empty() || !m_settings.csvFields.empty()) {
        tree = parseJson(arrival.payload, error);
    }
    if (!std::all_of(m_settings.filters.begin(), m_settings.filters.end(),
                     [&tree](const FieldFilter& filter) { return filter.accepts(tree.get()); })) {
        return {};
    }
    if (!m_settings.csvFields.empty()) {
        return printCsv(arrival, tree.get());
    }
    if (wantsNames) {
        addConsumableNames(tree.get(), arrival.recordClass->table());
    }
    const Nanoseconds delta = subtractSaturated(arrival.time, m_last.value_or(arrival.time));
    m_last = arrival.time;
    const auto [last, isFirst] = m_lastOfChannel.try_emplace(arrival.channel, arrival.time);
    const Nanoseconds channelDelta = subtractSaturated(arrival.time, last->second);
    last->second = arrival.time;
    const std::string& payload = wantsNames ? printJson(tree.get()) : arrival.payload;
    return m_settings.format.empty() ? printJsonLine(arrival, payload, delta)
                                     : printFormat(arrival, payload, tree.get(), delta, channelDelta);
}

std::string RecordFormatter::heading() const
{
    if (m_settings.csvFields.empty()) {
        return {};
    }
    std::string line = "time,channel,sequence";
    for (const std::string& field : m_settings.csvFields) {
        line += "," + csvText(field);
    }
    return line + "\n";
}

std::string RecordFormatter::printCsv(const Arrival& arrival, const cJSON* tree) const
{
    std::string line = csvStart(arrival.channel, arrival.sequence, arrival.moment);
    for (const std::string& field : m_settings.csvFields) {
        line += "," + csvText(fieldText(findField(tree, field)));
    }
    return line + "\n";
}

bool RecordFormatter::printSample(const Telvane::WeldTraceData& sample, const std::string& channel,
                                  int sequence, Nanoseconds moment, std::string& line) const
{
    line = csvStart(channel, sequence, moment);
    if (!m_sampleColumns.print(sample, line)) {
        return false;
    }
    line += '\n';
    return true;
}

std::string RecordFormatter::printJsonLine(const Arrival& arrival, const std::string& payload,
                                           Nanoseconds delta) const
{
    std::string line = R"({"time":")" + printMoment(arrival.moment) + '"';
    if (m_settings.delta) {
        line += R"(,"delta":)" + seconds(delta);
    }
    line += R"(,"channel":")" + arrival.channel + R"(","sequence":)" + std::to_string(arrival.sequence) +
            R"(,"payload":)" + payload + "}";
    if (m_settings.pretty) {
        std::string error;
        line = printJson(parseJson(line, error).get(), true);
    }
    return line + '\n';
}

std::string RecordFormatter::printFormat(const Arrival& arrival, const std::string& payload,
                                         const cJSON* tree, Nanoseconds delta, Nanoseconds channelDelta) const
{
    std::string line;
    Element element;
    for (std::size_t at = 0; at < m_settings.format.size();) {
        takeElement(m_settings.format, at, element);
        switch (element.conversion) {
        case '\0':
            line += element.character;
            break;
        case 't':
            line += printMoment(arrival.moment);
            break;
        case 'u':
            line += unixTime(arrival.moment);
            break;
        case 'd':
            line += seconds(delta);
            break;
        case 'D':
            line += seconds(channelDelta);
            break;
        case 'c':
            line += arrival.channel;
            break;
        case 'n':
            line += std::to_string(arrival.sequence);
            break;
        case 'p':
            line += payload;
            break;
        case 'l':
            line += std::to_string(payload.size());
            break;
        case '{':
            line += fieldText(findField(tree, element.path));
            break;
        default:
            line += element.conversion;
        }
    }
    return line + '\n';
}

} // namespace TelvaneTool

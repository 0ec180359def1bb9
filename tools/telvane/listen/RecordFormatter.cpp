#include "listen/RecordFormatter.h"

#include "catalogue/ConsumableNames.h"
#include "common/support/HumanReadable.h"
#include "common/support/JsonPath.h"

#include <algorithm>
#include <cstdio>

namespace TelvaneTool
{

namespace
{

constexpr const char* kConversions = "tudDcnpl%";

std::string seconds(Nanoseconds time)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.6f", inSeconds(time));
    return text;
}

/// Exact in its microseconds, which a double is no more for times since the epoch.
std::string unixTime(Nanoseconds moment)
{
    char text[40];
    std::snprintf(text, sizeof text, "%lld.%06d", static_cast<long long>(moment / kSecond),
                  static_cast<int>(moment % kSecond / kMicrosecond));
    return text;
}

/// One step of a format: a conversion, its path if it is "%{path}", or a character.
struct Step
{
    char conversion = '\0';
    char character = '\0';
    std::string path;
};

/// Takes the step at \p at.
/// \return false when there is no such conversion
bool takeStep(const std::string& format, std::size_t& at, Step& step)
{
    step = {};
    const char first = format[at++];
    if (at == format.size() || (first != '%' && first != '\\')) {
        step.character = first;
        return first != '%';
    }
    const char second = format[at++];
    if (first == '\\') {
        step.character = second == 'n' ? '\n' : second == 't' ? '\t' : second;
        return true;
    }
    if (second != '{') {
        step.conversion = second;
        return std::string(kConversions).find(second) != std::string::npos;
    }
    const std::size_t end = format.find('}', at);
    step.conversion = '{';
    step.path = format.substr(at, end - at);
    at = end == std::string::npos ? format.size() : end + 1;
    return end != std::string::npos && !step.path.empty();
}

} // namespace

const char* const kFormatHelp = "%t arrival in UTC, %u the same in seconds since 1970, %d seconds since the "
                                "record before, %D since that on the same channel, %c channel, %n sequence, "
                                "%p payload, %l its length, %{key.key} a field of it, %% a percent sign; "
                                "\\t, \\n";

std::string checkFormat(const std::string& format)
{
    Step step;
    for (std::size_t at = 0; at < format.size();) {
        const std::size_t begin = at;
        if (!takeStep(format, at, step)) {
            return "\"" + format.substr(begin, at - begin) + "\" is no conversion; there are " + kFormatHelp;
        }
    }
    return {};
}

std::string RecordFormatter::print(const Arrival& arrival)
{
    const bool wantsFields = m_settings.format.find("%{") != std::string::npos;
    const bool wantsNames = m_settings.names && arrival.recordClass != nullptr;
    JsonTree tree;
    std::string error;
    if (wantsFields || wantsNames || !m_settings.filters.empty()) {
        tree = parseJson(arrival.record.text(), error);
    }
    if (!std::all_of(m_settings.filters.begin(), m_settings.filters.end(),
                     [&tree](const FieldFilter& filter) { return filter.accepts(tree.get()); })) {
        return {};
    }
    if (wantsNames) {
        addConsumableNames(tree.get(), arrival.recordClass->table());
    }
    const Nanoseconds delta = m_last < 0 ? 0 : arrival.time - m_last;
    m_last = arrival.time;
    const auto [last, isFirst] = m_lastOfChannel.try_emplace(arrival.channel, arrival.time);
    const Nanoseconds channelDelta = arrival.time - last->second;
    last->second = arrival.time;
    const std::string& payload = wantsNames ? printJson(tree.get()) : arrival.record.text();
    return m_settings.format.empty() ? printJsonLine(arrival, payload, delta)
                                     : printFormat(arrival, payload, tree.get(), delta, channelDelta);
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
    Step step;
    for (std::size_t at = 0; at < m_settings.format.size();) {
        takeStep(m_settings.format, at, step);
        switch (step.conversion) {
        case '\0':
            line += step.character;
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
            line += fieldText(findField(tree, step.path));
            break;
        default:
            line += step.conversion;
        }
    }
    return line + '\n';
}

} // namespace TelvaneTool

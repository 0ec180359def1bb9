// A recording can hold 50,000 lines per second, so lines in the tool's own form are parsed by hand: keys in
// their fixed order, the payload last. Lines that another program has rewritten go through the JSON library.

#include "recording/RecordingLine.h"

#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/TimestampParser.h"

#include <charconv>
#include <cmath>

namespace TelvaneTool
{

namespace
{

constexpr int kVersion = 1;
constexpr const char* kFormatKey = "telvaneRecording";

constexpr std::string_view kTime = R"({"ns":)";
constexpr std::string_view kChannel = R"(,"channel":")";
constexpr std::string_view kSequence = R"(","sequence":)";
constexpr std::string_view kGroup = R"(,"group":)";
constexpr std::string_view kPayload = R"(,"payload":)";
constexpr std::string_view kMissed = R"(","missed":)";
constexpr std::string_view kOutage = R"(,"outage":true)";
constexpr std::string_view kMissedFrom = R"(,"from":)";
constexpr std::string_view kMissedTo = R"(,"to":)";
/// Times that leave room to add any two of them.
constexpr Nanoseconds kMaxTime = 4'000'000'000'000'000'000;

bool take(std::string_view& line, std::string_view text)
{
    if (line.substr(0, text.size()) != text) {
        return false;
    }
    line.remove_prefix(text.size());
    return true;
}

template <class Number>
bool take(std::string_view& line, Number& number)
{
    const auto result = std::from_chars(line.data(), line.data() + line.size(), number);
    if (result.ec != std::errc()) {
        return false;
    }
    line.remove_prefix(static_cast<std::size_t>(result.ptr - line.data()));
    return true;
}

template <class Number>
void append(std::string& text, Number number)
{
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, number);
    text.append(digits, result.ptr);
}

/// \return true if brackets and quotes are balanced, which they are not in a truncated object
bool isWholeObject(std::string_view text)
{
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char character = text[i];
        if (static_cast<unsigned char>(character) < ' ') {
            return false;
        }
        if (inString) {
            if (character == '\\') {
                ++i;
            } else if (character == '"') {
                inString = false;
            }
        } else if (character == '"') {
            inString = true;
        } else if (character == '{' || character == '[') {
            ++depth;
        } else if ((character == '}' || character == ']') && --depth < 0) {
            return false;
        }
    }
    return depth == 0 && !inString && !text.empty();
}

bool isTime(Nanoseconds time)
{
    return time >= -kMaxTime && time <= kMaxTime;
}

/// Takes the optional group, unless it has escaped characters.
bool takeGroup(std::string_view& line, std::string_view& group)
{
    if (!take(line, kGroup)) {
        return true;
    }
    const std::size_t end = line.find_first_of("\"\\", 1);
    if (end == std::string_view::npos || line[0] != '"' || line[end] != '"') {
        return false;
    }
    group = line.substr(1, end - 1);
    line.remove_prefix(end + 1);
    return true;
}

/// \return the number of an object's key if it is in range
template <class Number>
bool numberOf(const cJSON* object, const char* key, double min, Number& number)
{
    const cJSON* const item = cJSON_GetObjectItemCaseSensitive(object, key);
    const double value = cJSON_IsNumber(item) ? item->valuedouble : std::nan("");
    if (!(value >= min && value <= static_cast<double>(kMaxTime))) {
        return false;
    }
    number = static_cast<Number>(value);
    return true;
}

} // namespace

std::string printHeader(const RecordingHeader& header)
{
    const JsonTree tree(cJSON_CreateObject());
    cJSON_AddNumberToObject(tree.get(), kFormatKey, kVersion);
    cJSON_AddStringToObject(tree.get(), "started", printMoment(header.started).c_str());
    cJSON_AddStringToObject(tree.get(), "server", header.server.c_str());
    cJSON* const channels = cJSON_AddArrayToObject(tree.get(), "channels");
    for (const std::string& channel : header.channels) {
        cJSON_AddItemToArray(channels, cJSON_CreateString(channel.c_str()));
    }
    cJSON_AddNumberToObject(tree.get(), "part", header.part);
    return printJson(tree.get()) + "\n";
}

bool readHeader(const std::string& line, RecordingHeader& header, std::string& error)
{
    const JsonTree tree = parseJson(line, error);
    const cJSON* const format = cJSON_GetObjectItemCaseSensitive(tree.get(), kFormatKey);
    if (!cJSON_IsNumber(format)) {
        error = "not a recording: the first line has no telvaneRecording key";
        return false;
    }
    if (format->valueint != kVersion) {
        error = "recording format " + std::to_string(format->valueint) + " is not supported, only format " +
                std::to_string(kVersion);
        return false;
    }
    const char* const started = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(tree.get(), "started"));
    TimestampParser clock;
    if (started == nullptr || !clock.read(started, header.started)) {
        error = "the first line has no valid start time";
        return false;
    }
    const char* const server = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(tree.get(), "server"));
    header.server = server != nullptr ? server : "";
    const cJSON* channel = nullptr;
    header.channels.clear();
    cJSON_ArrayForEach(channel, cJSON_GetObjectItemCaseSensitive(tree.get(), "channels"))
    {
        if (cJSON_IsString(channel)) {
            header.channels.emplace_back(channel->valuestring);
        }
    }
    const cJSON* const part = cJSON_GetObjectItemCaseSensitive(tree.get(), "part");
    header.part = cJSON_IsNumber(part) ? part->valueint : 1;
    return true;
}

void appendMessage(std::string& text, const RecordedMessage& message)
{
    text.append(kTime);
    append(text, message.time);
    if (message.outage) {
        text.append(kOutage);
    } else {
        text.append(kChannel).append(message.channel);
    }
    if (message.isNote()) {
        if (!message.outage) {
            text.append(kMissed);
            append(text, message.missed);
        }
        text.append(kMissedFrom);
        append(text, message.missedFrom);
        text.append(kMissedTo);
        append(text, message.missedTo);
        text.append("}\n");
        return;
    }
    text.append(kSequence);
    append(text, message.sequence);
    if (!message.group.empty()) {
        const JsonTree group(cJSON_CreateString(std::string(message.group).c_str()));
        text.append(kGroup).append(printJson(group.get()));
    }
    text.append(kPayload).append(message.payload).append("}\n");
}

bool RecordingLineReader::read(std::string_view line, RecordedMessage& message)
{
    std::string_view rest = line;
    message = {};
    if (take(rest, kTime) && take(rest, message.time) && isTime(message.time) && take(rest, kChannel)) {
        const std::size_t end = rest.find_first_of("\"\\");
        message.channel = rest.substr(0, end);
        rest.remove_prefix(message.channel.size());
        if (take(rest, kSequence) && take(rest, message.sequence) && takeGroup(rest, message.group) &&
            take(rest, kPayload) && !rest.empty() && rest.back() == '}') {
            message.payload = rest.substr(0, rest.size() - 1);
            if (isWholeObject(message.payload)) {
                return true;
            }
        }
    }
    return readOtherForm(line, message);
}

bool RecordingLineReader::readOtherForm(std::string_view line, RecordedMessage& message)
{
    constexpr auto kMinTime = -static_cast<double>(kMaxTime);
    std::string error;
    message = {};
    const JsonTree tree = parseJson(std::string(line), error);
    const cJSON* const channel = cJSON_GetObjectItemCaseSensitive(tree.get(), "channel");
    if (!numberOf(tree.get(), "ns", kMinTime, message.time)) {
        return false;
    }
    message.outage = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(tree.get(), "outage")) != 0;
    if (message.outage) {
        return numberOf(tree.get(), "from", kMinTime, message.missedFrom) &&
               numberOf(tree.get(), "to", kMinTime, message.missedTo);
    }
    if (!cJSON_IsString(channel)) {
        return false;
    }
    m_channel = channel->valuestring;
    message.channel = m_channel;
    if (numberOf(tree.get(), "missed", 1.0, message.missed)) {
        return numberOf(tree.get(), "from", kMinTime, message.missedFrom) &&
               numberOf(tree.get(), "to", kMinTime, message.missedTo);
    }
    const cJSON* const sequence = cJSON_GetObjectItemCaseSensitive(tree.get(), "sequence");
    const cJSON* const group = cJSON_GetObjectItemCaseSensitive(tree.get(), "group");
    const cJSON* const payload = cJSON_GetObjectItemCaseSensitive(tree.get(), "payload");
    if (!cJSON_IsNumber(sequence) || payload == nullptr) {
        return false;
    }
    m_payload = printJson(payload);
    m_group = cJSON_IsString(group) ? group->valuestring : "";
    message.sequence = sequence->valueint;
    message.payload = m_payload;
    message.group = m_group;
    return true;
}

} // namespace TelvaneTool

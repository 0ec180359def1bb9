// Many consumers cannot read the properties of MQTT 5, and messages on different topics can overtake each other. So
// everything that is needed to understand a record is in its own payload.

#include "telvane-mqtt/channels/Payload.h"

#include "common/bus/RecordBuilder.h"
#include "common/bus/RecordCheck.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"

#include <charconv>
#include <cstring>
#include <sys/timex.h>

namespace TelvaneTool::Mqtt
{

namespace
{

/// A clock that starts in the past after a power cut.
constexpr std::int64_t kEarliestPlausible = 1'600'000'000; // 2020

bool hasKey(const Telvane::RecordClass& recordClass, const char* key)
{
    for (const Telvane::RecordField& field : recordClass.table().fields()) {
        if (std::strcmp(field.key, key) == 0) {
            return true;
        }
    }
    return false;
}

void appendInteger(std::string& text, std::uint64_t number)
{
    char digits[20];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

} // namespace

WallTime wallTimeNow()
{
    // Many messages have the same millisecond.
    thread_local WallTime last;
    const std::int64_t milliseconds = realTimeNow() / kMillisecond;
    if (milliseconds != last.milliseconds) {
        timex state = {};
        const bool synchronized = adjtimex(&state) != TIME_ERROR;
        last = {printMoment(milliseconds * kMillisecond, 3),
                synchronized && milliseconds / 1000 > kEarliestPlausible, milliseconds};
    }
    return last;
}

Session startSession()
{
    return sessionWithNumber(
        static_cast<std::uint64_t>(std::max<std::int64_t>(realTimeNow() / kMillisecond, 1)));
}

Session sessionWithNumber(std::uint64_t number)
{
    return {number, printMoment(multiplySaturated(static_cast<Nanoseconds>(number), kMillisecond), 3)};
}

std::string payloadOf(const OutgoingMessage& message, const Session& session)
{
    std::string text;
    setToPayload(text, message, session);
    return text;
}

void setToPayload(std::string& text, const OutgoingMessage& message, const Session& session)
{
    if (!message.text.empty()) {
        text = message.text;
        return;
    }
    text.clear();
    text.reserve(message.body.size() + message.className.size() + 160);
    text.append("{\"class\":\"").append(message.className).append("\",\"session\":");
    appendInteger(text, message.session != 0 ? message.session : session.number);
    if (message.number != 0) {
        appendInteger(text.append(",\"n\":"), message.number);
    }
    text.append(",\"time\":\"").append(message.time.text);
    text.append("\",\"clockSet\":").append(message.time.isSet ? "true" : "false");
    if (message.dropped != 0) {
        appendInteger(text.append(",\"dropped\":"), message.dropped);
    }
    text.append(",").append(message.body).append("}");
}

std::string barePayloadOf(const OutgoingMessage& message)
{
    return message.text.empty() ? message.body.substr(message.body.find(':') + 1) : message.text;
}

bool readRepeatRequest(const std::string& payload, RepeatRequest& request)
{
    std::string error;
    const JsonTree tree = parseJson(payload, error);
    const auto read = [&tree](const char* key, std::uint64_t& number) {
        constexpr double kExact = 9007199254740992.0; // integers above are not exact in JSON
        const cJSON* const item = cJSON_GetObjectItemCaseSensitive(tree.get(), key);
        if (cJSON_IsNumber(item) == 0 || !(item->valuedouble >= 1) || item->valuedouble > kExact) {
            return false;
        }
        number = static_cast<std::uint64_t>(item->valuedouble);
        return true;
    };
    RepeatRequest wanted;
    if (!read("session", wanted.session) || !read("from", wanted.from) || !read("to", wanted.to)) {
        return false;
    }
    request = wanted;
    return true;
}

std::unique_ptr<Telvane::TelvaneDataTypeBase>
readRecord(const std::string& payload, const Telvane::RecordClass& recordClass, std::string& error)
{
    const JsonTree tree = parseJson(payload, error);
    if (tree == nullptr) {
        return nullptr;
    }
    std::string text = payload;
    const cJSON* const record = cJSON_GetObjectItemCaseSensitive(tree.get(), "record");
    const bool isRecord =
        cJSON_IsObject(record) != 0 || (cJSON_IsString(record) != 0 && isTimeStamp(recordClass.table()));
    if (isRecord && !hasKey(recordClass, "record")) {
        const cJSON* const name = cJSON_GetObjectItemCaseSensitive(tree.get(), "class");
        if (cJSON_IsString(name) != 0 && std::strcmp(name->valuestring, recordClass.name) != 0) {
            error = std::string("class: expected ") + recordClass.name + ", got " + name->valuestring;
            return nullptr;
        }
        text = printJson(record);
    }
    RecordRequest request;
    request.recordClass = &recordClass;
    return buildRecord(request, &text, error);
}

} // namespace TelvaneTool::Mqtt

// Trees refer to keys and texts without copying them, because keys and texts exist longer than the tree.

#include "transport/Envelope.h"

#include "support/JsonScanner.h"
#include "support/JsonWriter.h"
#include "transport/PrintedJson.h"

#include <charconv>
#include <cstring>
#include <new>
#include <strings.h>
#include <utility>

namespace Telvane
{

namespace
{

bool add(const JsonTree& object, const char* key, cJSON* item)
{
    JsonTree owned(item);
    if (item == nullptr || cJSON_AddItemToObjectCS(object.get(), key, item) == 0) {
        return false;
    }
    owned.release();
    return true;
}

bool addText(const JsonTree& object, const char* key, const char* text)
{
    return add(object, key, cJSON_CreateStringReference(text));
}

JsonTree complete(JsonTree tree, bool everythingAdded)
{
    return everythingAdded ? std::move(tree) : nullptr;
}

JsonTree makeChannelPayload(const std::string& channel)
{
    JsonTree payload(cJSON_CreateObject());
    const bool added = addText(payload, "channel", channel.c_str());
    return complete(std::move(payload), added);
}

} // namespace

namespace
{

// Parts of a printed publication and its relay, around the name of the channel and the sequence number.
constexpr std::string_view kBeforeHeader = "{\n\t\"header\":\t\"";
constexpr std::string_view kAfterHeader = "\",\n\t";
constexpr std::string_view kSequenceKey = "\"sequence\":\t";
constexpr std::string_view kAfterSequence = ",\n\t";
constexpr std::string_view kPayloadKey = "\"payload\":\t";
constexpr std::string_view kEnd = "\n}";

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Skips what the library's parser takes for white space.
const char* skipSpace(const char* text)
{
    while (*text > '\0' && *text <= ' ') {
        ++text;
    }
    return text;
}

/// \return whether \p text, which is terminated, starts with this
bool beginsWith(const char* text, std::string_view beginning)
{
    return std::strncmp(text, beginning.data(), beginning.size()) == 0;
}

} // namespace

void beginPublication(JsonWriter& text, const std::string& channel)
{
    text.clear();
    text.put("{\n\t\"header\":\t");
    text.string(channel.c_str());
    text.put(",\n\t\"payload\":\t");
}

void endPublication(JsonWriter& text)
{
    text.put("\n}");
}

void writeRelay(JsonWriter& text, const std::string& channel, int sequence, const cJSON* payload)
{
    text.clear();
    text.put("{\n\t\"header\":\t");
    text.string(channel.c_str());
    text.put(",\n\t\"sequence\":\t");
    text.integer(sequence);
    text.put(",\n\t\"payload\":\t");
    text.tree(payload, 1);
    text.put("\n}");
}

void writeResponse(JsonWriter& text, const char* header, bool success, const char* channel)
{
    text.clear();
    text.put("{\"header\":");
    text.string(header);
    text.put(",\"success\":");
    text.flag(success);
    text.put(",\"channel\":");
    text.string(channel);
    text.put("}");
}

bool PrintedPublication::read(char* text)
{
    m_begin = text;
    if (!beginsWith(text, kBeforeHeader)) {
        return false;
    }
    m_header = text + kBeforeHeader.size();
    // A name with an escape stands for another one, and a name with a dot is a request to the server.
    const char* const headerEnd = skipPrintedString(m_header - 1);
    if (headerEnd == nullptr || *m_header == '.') {
        return false;
    }
    m_headerLength = static_cast<std::size_t>(headerEnd - 1 - m_header);
    if (std::memchr(m_header, '\\', m_headerLength) != nullptr) {
        return false;
    }
    text = m_header + m_headerLength;
    if (!beginsWith(text, kAfterHeader) || !beginsWith(text + kAfterHeader.size(), kPayloadKey)) {
        return false;
    }
    const char* const payloadEnd = skipPrintedValue(text + kAfterHeader.size() + kPayloadKey.size(), 1);
    if (payloadEnd == nullptr || !beginsWith(payloadEnd, kEnd)) {
        return false;
    }
    m_end = payloadEnd + kEnd.size();
    return true;
}

std::string_view PrintedPublication::makeRelay(int sequence)
{
    char number[kMaxAdded];
    const auto digits =
        static_cast<std::size_t>(std::to_chars(number, number + sizeof number, sequence).ptr - number);
    const std::size_t added = kSequenceKey.size() + digits + kAfterSequence.size();
    const std::size_t moved = kBeforeHeader.size() + m_headerLength + kAfterHeader.size();
    char* const relay = m_begin - added;
    std::memmove(relay, m_begin, moved);
    char* text = relay + moved;
    for (const std::string_view part : {kSequenceKey, std::string_view(number, digits), kAfterSequence}) {
        std::memcpy(text, part.data(), part.size());
        text += part.size();
    }
    return {relay, static_cast<std::size_t>(m_end - relay)};
}

JsonTree makeSubscribeRequest(const std::string& channel)
{
    JsonTree message(cJSON_CreateObject());
    const bool added = addText(message, "header", kSubscribeHeader) &&
                       add(message, "payload", makeChannelPayload(channel).release());
    return complete(std::move(message), added);
}

JsonTree makeUnsubscribeRequest(const std::string& channel)
{
    // The order of the keys is the reverse of that in all other messages with a payload.
    JsonTree message(cJSON_CreateObject());
    const bool added = add(message, "payload", makeChannelPayload(channel).release()) &&
                       addText(message, "header", kUnsubscribeHeader);
    return complete(std::move(message), added);
}

const char* headerOf(const cJSON* message)
{
    const char* const header = cJSON_GetStringValue(cJSON_GetObjectItem(message, "header"));
    return header != nullptr ? header : "";
}

cJSON* payloadOf(const cJSON* message)
{
    return cJSON_GetObjectItem(message, "payload");
}

int sequenceOf(const cJSON* message)
{
    const cJSON* const sequence = cJSON_GetObjectItem(message, "sequence");
    return cJSON_IsNumber(sequence) != 0 ? sequence->valueint : 0;
}

const char* channelOf(const cJSON* object)
{
    return cJSON_GetStringValue(cJSON_GetObjectItem(object, "channel"));
}

bool isSuccess(const cJSON* response)
{
    return cJSON_IsTrue(cJSON_GetObjectItem(response, "success")) != 0;
}

bool beginRelay(JsonScanner& relay, std::string_view& channel, int& sequence)
{
    return relay.skip("{\n\t\"header\":\t") && relay.plainString(channel) &&
           relay.skip(",\n\t\"sequence\":\t") && relay.integer(sequence) && relay.skip(",\n\t\"payload\":\t");
}

bool endRelay(JsonScanner& relay)
{
    return relay.skip("\n}");
}

std::string_view printedPayload(const JsonScanner& payload)
{
    const char* const begin = payload.position();
    const char* const end = skipPrintedValue(begin, 1);
    return end != nullptr && beginsWith(end, kEnd)
               ? std::string_view(begin, static_cast<std::size_t>(end - begin))
               : std::string_view();
}

std::string_view payloadTextIn(const char* message)
{
    // The library's parser finds the ends of the members. It has accepted the text, so it fails only without memory.
    const char* end = nullptr;
    const auto parse = [&end](const char* text) {
        JsonTree value(cJSON_ParseWithOpts(text, &end, 0));
        if (value == nullptr) {
            throw std::bad_alloc();
        }
        return value;
    };
    const char* at =
        skipSpace(beginsWith(message, kByteOrderMark) ? message + kByteOrderMark.size() : message);
    for (;; at = skipSpace(end)) { // at the brace, then at commas
        const JsonTree key = parse(skipSpace(at + 1));
        const char* const begin = skipSpace(skipSpace(end) + 1);
        parse(begin);
        if (strcasecmp(cJSON_GetStringValue(key.get()), "payload") == 0) {
            return {begin, static_cast<std::size_t>(end - begin)};
        }
    }
}

} // namespace Telvane

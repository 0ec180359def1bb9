// Keys and borrowed texts are referenced, not copied: a message's tree lives shorter than they do. A message
// is printed into a buffer that stays, since an allocation that grows with the text costs more than the text.

#include "Envelope.h"

#include <climits>
#include <cstring>
#include <new>

namespace Telvane
{

namespace
{

// Enough for nearly every message; the largest buffer that is kept is large enough for any that arrives.
constexpr int kFirstBuffer = 4096;
constexpr int kLargestBuffer = 65536;

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

JsonTree makePublication(const char* channel, JsonTree payload)
{
    JsonTree message(cJSON_CreateObject());
    const bool added =
        addText(message, "header", channel) && add(message, "payload", payload.release());
    return complete(std::move(message), added);
}

JsonTree makeRelay(const std::string& channel, int sequence, cJSON* payload)
{
    JsonTree message(cJSON_CreateObject());
    const bool added = addText(message, "header", channel.c_str()) &&
                       add(message, "sequence", cJSON_CreateNumber(sequence)) &&
                       cJSON_AddItemReferenceToObject(message.get(), "payload", payload) != 0;
    return complete(std::move(message), added);
}

JsonTree makeSubscribeRequest(const std::string& channel)
{
    return makePublication(kSubscribeHeader, makeChannelPayload(channel));
}

JsonTree makeUnsubscribeRequest(const std::string& channel)
{
    // The keys stand the other way round from every other message with a payload.
    JsonTree message(cJSON_CreateObject());
    const bool added = add(message, "payload", makeChannelPayload(channel).release()) &&
                       addText(message, "header", kUnsubscribeHeader);
    return complete(std::move(message), added);
}

JsonTree makeResponse(const char* header, bool success, const char* channel)
{
    JsonTree message(cJSON_CreateObject());
    const bool added = addText(message, "header", header) &&
                       add(message, "success", cJSON_CreateBool(success ? 1 : 0)) &&
                       addText(message, "channel", channel);
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

const char* MessagePrinter::print(const cJSON* message, Form form)
{
    const cJSON_bool formatted = form == Form::Formatted ? 1 : 0;
    m_large.reset();
    if (m_size == 0) {
        m_buffer.reset(new (std::nothrow) char[kFirstBuffer]);
        m_size = m_buffer != nullptr ? kFirstBuffer : 0;
    }
    for (;;) {
        // The printer takes the tree without const but does not change it.
        if (m_size != 0 &&
            cJSON_PrintPreallocated(const_cast<cJSON*>(message), m_buffer.get(), m_size, formatted) != 0) {
            m_length = static_cast<int>(std::strlen(m_buffer.get()));
            return m_buffer.get();
        }
        const int larger = m_size * 4;
        std::unique_ptr<char[]> buffer(
            larger != 0 && larger <= kLargestBuffer ? new (std::nothrow) char[larger] : nullptr);
        if (buffer == nullptr) {
            break;
        }
        m_buffer = std::move(buffer);
        m_size = larger;
    }
    m_large.reset(formatted != 0 ? cJSON_Print(message) : cJSON_PrintUnformatted(message));
    if (m_large == nullptr) {
        return nullptr;
    }
    const std::size_t length = std::strlen(m_large.get());
    m_length = length < INT_MAX ? static_cast<int>(length) : INT_MAX;
    return m_large.get();
}

} // namespace Telvane

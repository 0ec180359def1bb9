// Keys and borrowed texts are referenced, not copied: a message's tree lives shorter than they do.

#include "Envelope.h"

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

JsonTree makePublication(const char* channel, JsonTree payload)
{
    JsonTree message(cJSON_CreateObject());
    const bool added = addText(message, "header", channel) && add(message, "payload", payload.release());
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

} // namespace Telvane

#pragma once

// Publications and relays that are written and read with the JSON library's trees only. What is done without trees is
// compared with these.

#include "support/JsonTree.h"
#include "transport/SeqpacketSocket.h"

#include <Telvane/TelvaneDataTypeBase.h>

#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

namespace Telvane::Testing
{

/// \return the publication as far as it travels; nothing when the record cannot be packaged
inline std::optional<std::string> publicationByTree(const std::string& channel, TelvaneDataTypeBase& record)
{
    cJSON* packaged = nullptr;
    const int result = record.Package(&packaged);
    JsonTree payload(packaged);
    if (result != 0) {
        return std::nullopt;
    }
    const JsonTree message(cJSON_CreateObject());
    cJSON_AddStringToObject(message.get(), "header", channel.c_str());
    cJSON_AddItemToObject(message.get(), "payload", payload.release());
    const JsonText text(cJSON_Print(message.get()));
    return std::string(text.get()).substr(0, kMessageLimit);
}

/// What a client makes of a packet.
struct ReadRelay
{
    bool isJson = false;
    std::string channel;
    int sequence = 0;
    std::unique_ptr<TelvaneDataTypeBase> record; ///< null when there is none that can be read
};

inline ReadRelay relayByTree(const std::string& text, const TelvaneDataTypeBase& prototype)
{
    ReadRelay relay;
    const JsonTree message(cJSON_Parse(text.c_str()));
    relay.isJson = message != nullptr;
    if (const char* const header = cJSON_GetStringValue(cJSON_GetObjectItem(message.get(), "header"))) {
        relay.channel = header;
    }
    if (const cJSON* const sequence = cJSON_GetObjectItem(message.get(), "sequence");
        cJSON_IsNumber(sequence) != 0) {
        relay.sequence = sequence->valueint;
    }
    cJSON* const payload = cJSON_GetObjectItem(message.get(), "payload");
    std::unique_ptr<TelvaneDataTypeBase> record(prototype.BuildNewDataType());
    try {
        if (payload != nullptr && record->Unpackage(payload) == 0) {
            relay.record = std::move(record);
        }
    } catch (const std::out_of_range&) {
        // A time without digits.
    }
    return relay;
}

} // namespace Telvane::Testing

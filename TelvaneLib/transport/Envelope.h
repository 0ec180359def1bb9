#pragma once

// The six messages of the bus: their keys, the order of the keys, how they are printed, and how they are
// read. Server and client share this; nothing else knows an envelope.

#include "support/JsonTree.h"

#include <string>

namespace Telvane
{

constexpr const char* kSubscribeHeader = ".subscribe";
constexpr const char* kUnsubscribeHeader = ".unsubscribe";

/// \name Building
/// Texts are borrowed: channel and header must outlive the tree. Null when memory runs out.
/// @{
/// \param payload owned by the tree from here on
JsonTree makePublication(const char* channel, JsonTree payload);
JsonTree makeSubscribeRequest(const std::string& channel);
JsonTree makeUnsubscribeRequest(const std::string& channel);
JsonTree makeResponse(const char* header, bool success, const char* channel);
/// @}

/// The envelope of relays, used again from one to the next.
class RelayEnvelope
{
public:
    /// \param channel, payload borrowed, not copied, until the next call
    /// \return the relay, owned by this; null when memory runs out
    cJSON* wrap(const std::string& channel, int sequence, cJSON* payload);

private:
    bool build();

    JsonTree m_message;
    cJSON* m_header = nullptr;
    cJSON* m_sequence = nullptr;
    cJSON* m_payload = nullptr;
};

/// \name Reading
/// @{
/// \return "header", or the empty text when it is missing or not a string
const char* headerOf(const cJSON* message);
cJSON* payloadOf(const cJSON* message);
/// \return "sequence" as an integer, or 0 when it is missing or not a number
int sequenceOf(const cJSON* message);
/// \return "channel" of a meta request's payload or of a response; null when it is missing or not a string
const char* channelOf(const cJSON* object);
bool isSuccess(const cJSON* response);
/// @}

} // namespace Telvane

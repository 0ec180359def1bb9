#pragma once

// The six messages of the bus: their keys, the order of the keys, how they are printed, and how they are
// read. Server and client share this; nothing else knows an envelope.

#include "support/JsonTree.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace Telvane
{

class JsonScanner;

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

/// A publication in the form in which the JSON library prints it. Its payload stands in the relay as it is: the
/// relay differs from it by the sequence number alone, for which the part before the number moves forward.
class PrintedPublication
{
public:
    /// The bytes that a relay has more than its publication.
    static constexpr int kMostAdded = 20;

    /// \param text the packet, with kMostAdded bytes that may be overwritten in front of it
    /// \return false when the text is anything else, or may be; then it is unchanged, and to be parsed
    bool read(char* text);

    /// The channel, as it stands in the text.
    std::string_view header() const { return {m_header, m_headerLength}; }

    /// Turns the text into the relay.
    std::string_view makeRelay(int sequence);

private:
    char* m_begin = nullptr;
    char* m_header = nullptr;
    std::size_t m_headerLength = 0;
    const char* m_end = nullptr;
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

/// \name Reading relays without a tree
/// Both return false when the text has to be parsed.
/// @{
/// Reads a relay up to its payload.
bool beginRelay(JsonScanner& relay, std::string_view& channel, int& sequence);
/// Reads what follows the payload.
bool endRelay(JsonScanner& relay);
/// @}

} // namespace Telvane

#pragma once

// The six messages of the protocol: their keys, the order of the keys, writing and reading. Only this file
// and its source know them.

#include "support/JsonTree.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace Telvane
{

class JsonScanner;
class JsonWriter;

constexpr const char* kSubscribeHeader = ".subscribe";
constexpr const char* kUnsubscribeHeader = ".unsubscribe";

/// \name Building
/// The trees refer to the texts, which must exist longer. Null if memory runs out.
/// @{
JsonTree makeSubscribeRequest(const std::string& channel);
JsonTree makeUnsubscribeRequest(const std::string& channel);
/// @}

/// \name Writing
/// @{
/// Writes a publication up to its payload.
void beginPublication(JsonWriter& text, const std::string& channel);
/// Writes what follows the payload.
void endPublication(JsonWriter& text);
/// Writes a relay as a new text.
void writeRelay(JsonWriter& text, const std::string& channel, int sequence, const cJSON* payload);
/// Writes a response to a request to the server as a new text, on one line.
void writeResponse(JsonWriter& text, const char* header, bool success, const char* channel);
/// @}

/// A publication in the form in which the JSON library prints it. Its relay differs only by the sequence
/// number: the text before the number is moved forward, and the payload stays in place.
class PrintedPublication
{
public:
    /// Maximum of bytes that a relay is longer than its publication.
    static constexpr int kMaxAdded = 20;

    /// \param text the packet, with kMaxAdded writable bytes in front of it
    /// \return false if the text is, or may be, anything else; it is then unchanged and must be parsed
    bool read(char* text);

    /// \return the channel, in the text
    std::string_view header() const { return {m_header, m_headerLength}; }

    std::string_view text() const { return {m_begin, static_cast<std::size_t>(m_end - m_begin)}; }

    /// Changes the text to the relay.
    std::string_view makeRelay(int sequence);

private:
    char* m_begin = nullptr;
    char* m_header = nullptr;
    std::size_t m_headerLength = 0;
    const char* m_end = nullptr;
};

/// \name Reading
/// @{
/// \return "header"; an empty text if it is missing or not a string
const char* headerOf(const cJSON* message);
cJSON* payloadOf(const cJSON* message);
/// \return "sequence" as an integer; 0 if it is missing or not a number
int sequenceOf(const cJSON* message);
/// \return "channel" of a response or of the payload of a request to the server; null if missing or not a
///         string
const char* channelOf(const cJSON* object);
bool isSuccess(const cJSON* response);
/// @}

/// \param message a text that was parsed to a tree with a payload
/// \return the payload's part of the text; throws `std::bad_alloc`
std::string_view payloadTextIn(const char* message);

/// \name Reading relays without a tree
/// Both return false when the text has to be parsed.
/// @{
/// Reads a relay up to its payload.
bool beginRelay(JsonScanner& relay, std::string_view& channel, int& sequence);
/// Reads what follows the payload.
bool endRelay(JsonScanner& relay);
/// \param payload the position after beginRelay()
/// \return the payload's part of the text, which is JSON; empty when the text has to be parsed
std::string_view printedPayload(const JsonScanner& payload);
/// @}

} // namespace Telvane

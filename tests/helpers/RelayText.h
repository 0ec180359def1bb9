#pragma once

// What a subscription to texts gets of a packet, and what it must get.

#include "client/Relay.h"
#include "helpers/JsonTestSupport.h"
#include "support/JsonWriter.h"

#include <memory>
#include <optional>
#include <string>

namespace Telvane::Testing
{

/// \param onlyPrinted whether to take only what is found without parsing
/// \return nothing if there is no text
inline std::optional<std::string> relayText(const std::string& packet, bool onlyPrinted = false)
{
    Detail::EndpointSettings settings;
    settings.run = Run::Direct;
    Detail::Endpoint endpoint(nullptr, settings, "channel");
    endpoint.takesText = true;
    Detail::Relay relay;
    std::unique_ptr<TelvaneDataTypeBase> record;
    if (relay.begin(packet.c_str())) {
        record = onlyPrinted ? relay.readPrintedFor(endpoint) : relay.readFor(endpoint);
    } else if (JsonTree message{cJSON_Parse(packet.c_str())}; message != nullptr && !onlyPrinted) {
        relay.begin(std::move(message), packet.c_str());
        record = relay.readFor(endpoint);
    }
    return record != nullptr
               ? std::optional<std::string>(static_cast<const Detail::PayloadText&>(*record).text())
               : std::nullopt;
}

/// \return the value as a server prints it in a relay; empty if it is too long
inline std::string printedInRelay(const cJSON* value)
{
    JsonWriter writer(1'000'000);
    writer.clear();
    writer.tree(value, 1);
    const char* const text = writer.finish();
    return text != nullptr ? text : "";
}

/// \return what is wrong with the text that a subscription gets of \p packet; empty if nothing is
inline std::string errorInRelayText(const std::string& packet)
{
    const JsonTree message(cJSON_Parse(packet.c_str()));
    const cJSON* const payload = cJSON_GetObjectItem(message.get(), "payload");
    const std::optional<std::string> text = relayText(packet);
    if (text.has_value() != (payload != nullptr)) {
        return text ? "a text without a payload" : "a payload without a text";
    }
    const std::optional<std::string> printed = relayText(packet, true);
    if (printed && printed != text) {
        return "another text when it is not parsed";
    }
    if (!text) {
        return {};
    }
    if (packet.find(*text) == std::string::npos) {
        return "a text that is not in the packet";
    }
    const JsonTree parsed(cJSON_Parse(text->c_str()));
    const std::string expected = printedInRelay(payload);
    if (parsed == nullptr || printedInRelay(parsed.get()) != expected) {
        return "a text with another value";
    }
    return printed && *printed != expected ? "a text that is not as printed" : "";
}

} // namespace Telvane::Testing

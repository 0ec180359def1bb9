// Relaying without parsing, against parsing and printing. A text that is taken for a printed publication must be
// one: the relay made of it is, byte for byte, what the JSON library parses and prints. And what the library prints
// is taken, or relaying would be right but slow.
//
// The input is a conversation of packets. Each is tried as it is, as the publication that it would be in printed
// form, and as that with single bytes changed.

#include "FuzzSupport.h"
#include "support/JsonTree.h"
#include "transport/Envelope.h"
#include "transport/PrintedJson.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

namespace Telvane
{
namespace
{

constexpr int kMaxLevels = 63;
constexpr std::size_t kMaxBytes = 16383; // that a packet holds beside its terminator
constexpr std::size_t kChanges = 24;

/// A packet as a receiver has it, on the heap, where a sanitizer guards its ends.
class ReceivedPacket
{
public:
    explicit ReceivedPacket(const std::string& text)
        : m_bytes(new char[PrintedPublication::kMaxAdded + text.size() + 1])
    {
        std::copy_n(text.c_str(), text.size() + 1, this->text());
    }
    char* text() { return m_bytes.get() + PrintedPublication::kMaxAdded; }

private:
    std::unique_ptr<char[]> m_bytes;
};

int levelsOf(const cJSON* value)
{
    const bool holdsNothing = cJSON_IsObject(value) == 0 && cJSON_IsArray(value) == 0;
    int inside = 0;
    for (const cJSON* item = value->child; item != nullptr; item = item->next) {
        inside = std::max(inside, levelsOf(item));
    }
    return holdsNothing ? 0 : inside + 1;
}

/// \return what the server sends for a publication that it parses
std::string parsedRelay(const std::string& text, int sequence)
{
    const JsonTree message(cJSON_Parse(text.c_str()));
    require(message != nullptr, "a printed publication is JSON");
    const cJSON* const header = cJSON_GetObjectItem(message.get(), "header");
    cJSON* const payload = cJSON_DetachItemFromObject(message.get(), "payload");
    require(cJSON_IsString(header) != 0 && payload != nullptr, "a printed publication has both its members");
    const JsonTree relay(cJSON_CreateObject());
    cJSON_AddStringToObject(relay.get(), "header", header->valuestring);
    cJSON_AddNumberToObject(relay.get(), "sequence", sequence);
    cJSON_AddItemToObject(relay.get(), "payload", payload);
    return JsonText(cJSON_Print(relay.get())).get();
}

/// \return whether \p text is taken for a printed publication
bool check(const std::string& text)
{
    const std::string packet = text.substr(0, std::min(text.find('\0'), kMaxBytes));
    bool taken = false;
    for (const int sequence : {0, 47, 65535}) {
        ReceivedPacket received(packet);
        PrintedPublication publication;
        taken = publication.read(received.text());
        if (!taken) {
            requireSame(received.text(), packet, "a packet that has to be parsed stays as it is");
            return false;
        }
        const std::string header(publication.header());
        const std::string relay(publication.makeRelay(sequence));
        requireSame(relay, parsedRelay(packet, sequence), "a payload is relayed as it would be printed");
        const JsonTree message(cJSON_Parse(packet.c_str()));
        requireSame(header, cJSON_GetObjectItem(message.get(), "header")->valuestring,
                    "a header is the channel's name");
    }
    return taken;
}

/// \return \p text as a client of the bus would have printed it; empty when it is no publication
std::string printedPublication(const std::string& text)
{
    const JsonTree message(cJSON_Parse(text.c_str()));
    const cJSON* const header = cJSON_GetObjectItem(message.get(), "header");
    cJSON* const payload = cJSON_DetachItemFromObject(message.get(), "payload");
    const JsonTree owned(payload);
    if (cJSON_IsString(header) == 0 || payload == nullptr || levelsOf(payload) >= kMaxLevels) {
        return {};
    }
    const JsonTree publication(cJSON_CreateObject());
    cJSON_AddStringToObject(publication.get(), "header", header->valuestring);
    cJSON_AddItemReferenceToObject(publication.get(), "payload", payload);
    return JsonText(cJSON_Print(publication.get())).get();
}

bool isPlainName(const std::string& name)
{
    return name.find('.') != 0 && std::all_of(name.begin(), name.end(), [](char c) {
               return static_cast<unsigned char>(c) >= ' ' && c != '"' && c != '\\';
           });
}

void checkPacket(const std::string& packet)
{
    check(packet);
    const std::string printed = printedPublication(packet.substr(0, kMaxBytes));
    if (printed.empty() || printed.size() > kMaxBytes) {
        return;
    }
    const JsonTree message(cJSON_Parse(packet.c_str()));
    // A number near the largest double prints as one beyond it, which then prints as null.
    const bool printsAgain = printedPublication(printed) == printed;
    require(check(printed) ==
                (printsAgain && isPlainName(cJSON_GetObjectItem(message.get(), "header")->valuestring)),
            "what a client prints is relayed without being parsed");
    // The changes are drawn from the text itself, so that one input stands for many and always for the same.
    std::uint64_t random = std::hash<std::string>()(printed);
    std::string changed = printed;
    for (std::size_t i = 0; i < kChanges; ++i) {
        random = random * 6364136223846793005U + 1442695040888963407U;
        const auto position = static_cast<std::size_t>((random >> 16) % printed.size());
        const char other = printed[static_cast<std::size_t>((random >> 3) % printed.size())];
        switch (random >> 8 & 3) {
        case 0:
            changed[position] = other;
            break;
        case 1:
            changed.insert(position, 1, other);
            break;
        case 2:
            changed.erase(position, 1);
            break;
        default:
            changed.resize(position);
        }
        check(changed);
        changed = printed;
    }
}

} // namespace
} // namespace Telvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    for (const std::string_view packet : Telvane::packetsOf(Telvane::textOf(data, size))) {
        Telvane::checkPacket(std::string(packet));
    }
    return 0;
}

// docs/protocol.md shows packets. Here its conversations are played to a server of ours, and the parts of the clients
// are said by clients of ours, so that the page cannot say anything else than what travels.

#include "helpers/BusTestSupport.h"
#include "helpers/TestPaths.h"

#include <Telvane/WeldRecords.h>

#include <fstream>
#include <future>
#include <map>
#include <sstream>

namespace Telvane
{
namespace
{

using namespace Testing;

struct WrittenPacket
{
    std::string who;
    bool sent = false; ///< by that program, not to it
    std::string text;
};

/// \return the packets of the page, in their order: each a block of code below a line like
///         `<!-- listener sends -->`
std::vector<WrittenPacket> writtenPackets()
{
    std::ifstream page(sourceDirectory() + "/docs/protocol.md");
    std::vector<WrittenPacket> packets;
    for (std::string line; std::getline(page, line);) {
        std::istringstream words(line);
        std::string begin;
        WrittenPacket packet;
        std::string verb;
        if (!(words >> begin >> packet.who >> verb) || begin != "<!--" ||
            (verb != "sends" && verb != "receives")) {
            continue;
        }
        packet.sent = verb == "sends";
        std::getline(page, line); // begins the block
        while (std::getline(page, line) && line != "```") {
            packet.text += (packet.text.empty() ? "" : "\n") + line;
        }
        packets.push_back(packet);
    }
    return packets;
}

TEST(ProtocolDocument, ShowsWhatAServerSends)
{
    const RunningServer running;
    std::map<std::string, RawPeer> peers;
    int received = 0;
    for (const WrittenPacket& packet : writtenPackets()) {
        const RawPeer& peer = peers.try_emplace(packet.who, running.connect()).first->second;
        if (packet.sent) {
            peer.send(packet.text);
        } else {
            EXPECT_EQ(peer.receive(), packet.text) << "to the " << packet.who;
            ++received;
        }
    }
    EXPECT_EQ(received, 9);
}

/// Has a client do what makes it send the packet.
void provoke(EventClient& client, const std::string& text)
{
    const cJSON* const message = cJSON_Parse(text.c_str());
    const std::unique_ptr<const cJSON, void (*)(const cJSON*)> owner(
        message, [](const cJSON* tree) { cJSON_Delete(const_cast<cJSON*>(tree)); });
    const std::string header = cJSON_GetStringValue(cJSON_GetObjectItem(message, "header"));
    const cJSON* const payload = cJSON_GetObjectItem(message, "payload");
    if (header == ".subscribe" || header == ".unsubscribe") {
        const std::string channel = cJSON_GetStringValue(cJSON_GetObjectItem(payload, "channel"));
        if (header == ".subscribe") {
            client.Subscribe(
                channel, [](void*, TelvaneDataTypeBase*, int, void*) {}, LogData(), nullptr);
        } else {
            client.unsubscribeFromServer(channel); // asks, whether it has subscribed or not
        }
    } else if (header.rfind("req_", 0) == 0) {
        RequestType request;
        client.Publish(header, request);
    } else {
        LogData record;
        record.log = cJSON_GetStringValue(cJSON_GetObjectItem(payload, "log"));
        client.Publish(header, record);
    }
}

TEST(ProtocolDocument, ShowsWhatAClientSends)
{
    const TemporaryDirectory directory;
    const RawServer server(directory.path("bus"));
    const std::vector<WrittenPacket> packets = writtenPackets();
    std::map<std::string, std::vector<WrittenPacket>> parts;
    for (const WrittenPacket& packet : packets) {
        parts[packet.who].push_back(packet);
    }
    EXPECT_EQ(parts.size(), 4U);
    for (const auto& [who, part] : parts) {
        SCOPED_TRACE(who);
        EventClient client;
        ASSERT_EQ(client.Connect(server.path()), 0);
        const RawPeer peer = server.accept();
        std::future<void> provoked; // waits for what is under way when it is replaced or left
        for (const WrittenPacket& packet : part) {
            if (packet.sent) {
                provoked =
                    std::async(std::launch::async, [&client, text = packet.text] { provoke(client, text); });
                EXPECT_EQ(peer.receive(), packet.text);
            } else {
                peer.send(packet.text);
            }
        }
        provoked.get();
        EXPECT_EQ(client.Disconnect(), 0);
    }
}

} // namespace
} // namespace Telvane

// The server against whatever a client can send.
//
// An input is a conversation: its packets, parted by the byte 0x1E, are sent on a real connection to a server
// in this process. Everything the server sends back, to the sender and to a observer that has subscribed to
// one channel, is held byte for byte against a model of the bus that knows only the JSON library; and so are
// the server's counters. At the end of a conversation the observer publishes on every channel, and both
// clients make a request: the server must still be there, and have nothing else to say.

#include <Telvane/EventServer.h>

#include "FuzzSocket.h"
#include "support/JsonTree.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace Telvane
{
namespace
{

constexpr std::size_t kMaxBytes = 16384;  // that travel in a message
constexpr std::size_t kMaxPackets = 256;  // of one conversation
constexpr std::size_t kPacketsAtOnce = 4; // before the answers are read: no buffer may overflow
constexpr const char* kBystanderChannel = "weld";
const std::string kLastRequest = R"({"header":".subscribe","payload":{"channel":"the last, refused"}})";

enum Client
{
    Sender,
    Observer,
};

std::string textOf(const cJSON* item)
{
    const char* const text = cJSON_GetStringValue(item);
    return text != nullptr ? text : "";
}

/// What the server owes to its clients.
class BusModel
{
public:
    void receive(Client client, std::string_view packet)
    {
        ++counters.received;
        const JsonTree message(cJSON_Parse(std::string(packet.substr(0, kMaxBytes - 1)).c_str()));
        if (message == nullptr) {
            ++(packet.size() < kMaxBytes ? counters.notJson : counters.tooLarge);
            return;
        }
        cJSON* const payload = cJSON_GetObjectItem(message.get(), "payload");
        if (payload == nullptr) {
            ++counters.withoutPayload;
            return;
        }
        const std::string header = textOf(cJSON_GetObjectItem(message.get(), "header"));
        if (header == ".subscribe" || header == ".unsubscribe") {
            ++counters.dispatched;
            ++m_sequence;
            answer(client, header, cJSON_GetObjectItem(payload, "channel"));
        } else if (m_channels.count(header) != 0) {
            ++counters.dispatched;
            relay(header, m_sequence++, payload);
        } else {
            ++counters.unknownChannel;
        }
    }

    void leave(Client client)
    {
        for (auto& channel : m_channels) {
            channel.second.erase(client);
        }
    }

    /// \return whether a conversation has left its mark
    bool isMarked() const
    {
        return m_channels.size() != 1 || m_channels.begin()->first != kBystanderChannel ||
               m_channels.begin()->second != std::set<Client>{Observer};
    }

    std::vector<std::string> channels() const
    {
        std::vector<std::string> names;
        for (const auto& channel : m_channels) {
            names.push_back(channel.first);
        }
        return names;
    }

    std::array<std::deque<std::string>, 2> expected;
    EventServerStatistics counters;

private:
    void answer(Client client, const std::string& header, const cJSON* channelItem)
    {
        if (cJSON_IsString(channelItem) == 0) {
            return;
        }
        const std::string channel = textOf(channelItem);
        bool accepted = std::all_of(channel.begin(), channel.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
        });
        if (accepted && header == ".subscribe") {
            m_channels[channel].insert(client);
        } else if (accepted) {
            accepted = m_channels.count(channel) != 0;
            if (accepted) {
                m_channels[channel].erase(client);
            }
        }
        const JsonTree response(cJSON_CreateObject());
        cJSON_AddStringToObject(response.get(), "header", header.c_str());
        cJSON_AddBoolToObject(response.get(), "success", accepted ? 1 : 0);
        cJSON_AddStringToObject(response.get(), "channel", channel.c_str());
        owe(client, JsonText(cJSON_PrintUnformatted(response.get())).get());
    }

    void relay(const std::string& channel, int sequence, const cJSON* payload)
    {
        const JsonTree message(cJSON_CreateObject());
        cJSON_AddStringToObject(message.get(), "header", channel.c_str());
        cJSON_AddNumberToObject(message.get(), "sequence", sequence);
        cJSON_AddItemToObject(message.get(), "payload", cJSON_Duplicate(payload, 1));
        const std::string text = JsonText(cJSON_Print(message.get())).get();
        if (text.size() >= kMaxBytes) {
            ++counters.relaysTooLarge;
        }
        for (const Client subscriber : m_channels[channel]) {
            owe(subscriber, text);
            ++counters.relayed;
        }
    }

    void owe(Client client, const std::string& text)
    {
        expected[client].push_back(text.substr(0, kMaxBytes));
    }

    std::map<std::string, std::set<Client>> m_channels;
    std::uint16_t m_sequence = 0;
};

/// A server with its two clients and the model that it has to keep up with.
class Bus
{
public:
    Bus()
    {
        const SocketPlace place;
#ifdef __SANITIZE_THREAD__ // keeps records of its own on every stack, larger than the stack's usual size
        m_server.SetThreadStackSize(4 << 20);
#endif
        require(m_server.Start(place.path()) == 0, "the server starts");
        m_sockets[Sender] = PacketSocket::connectedTo(place.path());
        m_sockets[Observer] = PacketSocket::connectedTo(place.path());
        send(Observer,
             R"({"header":".subscribe","payload":{"channel":")" + std::string(kBystanderChannel) + "\"}}");
        collect();
    }
    ~Bus()
    {
        require(m_server.Stop() == 0, "the server stops");
    }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    /// \return whether the next conversation may be held on the same bus
    bool exchange(std::string_view input)
    {
        const bool ended = !sendAll(packetsOf(input));
        if (!ended) {
            send(Sender, kLastRequest);
            collect(); // or the observer's request could overtake packets that are still on their way
        }
        publishEverywhere();
        send(Observer, kLastRequest);
        collect();
        if (!ended) {
            send(Sender, kSweep);
        }
        send(Observer, kSweep);
        checkCounters();
        return !ended && !m_model.isMarked();
    }

private:
    /// \return false when the sender has ended its connection
    bool sendAll(const std::vector<std::string_view>& packets)
    {
        const std::size_t count = std::min(packets.size(), kMaxPackets);
        for (std::size_t i = 0; i < count; ++i) {
            if (packets[i].empty()) {
                // A receiver cannot tell a packet without a byte from the end of the stream.
                m_sockets[Sender].send("");
                collect();
                require(m_sockets[Sender].receive().empty(), "an empty packet ends the connection");
                m_model.leave(Sender);
                return false;
            }
            send(Sender, packets[i]);
            if (i % kPacketsAtOnce == kPacketsAtOnce - 1) {
                collect();
            }
        }
        return true;
    }

    /// Shows who is subscribed to what: above all, that whoever has left is not.
    void publishEverywhere()
    {
        for (const std::string& channel : m_model.channels()) {
            send(Observer, R"({"header":")" + channel + R"(","payload":{}})");
            collect();
        }
    }

    void send(Client client, std::string_view packet)
    {
        m_sockets[client].send(packet);
        m_model.receive(client, packet);
    }

    void collect()
    {
        for (const Client client : {Sender, Observer}) {
            auto& expected = m_model.expected[client];
            for (; !expected.empty(); expected.pop_front()) {
                requireSame(m_sockets[client].receive(), expected.front(), "the server sends what it owes");
            }
        }
    }

    void checkCounters() const
    {
        requireSoon([this] { return m_server.Statistics().notJson >= m_model.counters.notJson; },
                    "packets that are not JSON are counted");
        const EventServerStatistics actual = m_server.Statistics();
        const EventServerStatistics& expected = m_model.counters;
        for (const auto& counter : kServerCounters) {
            require(actual.*counter.member == expected.*counter.member, counter.name);
        }
    }

    EventServer m_server;
    std::array<PacketSocket, 2> m_sockets;
    BusModel m_model;
};

} // namespace
} // namespace Telvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace Telvane;
    silenceDiagnostics();
    // Kept while nobody can tell that there was a conversation before: an input must fail by itself, too.
    static std::unique_ptr<Bus> bus;
    if (bus == nullptr) {
        bus = std::make_unique<Bus>();
    }
    if (!bus->exchange(Telvane::textOf(data, size))) {
        bus.reset();
    }
    return 0;
}

// The client against whatever a server can send.
//
// The input's packets, parted by the byte 0x1E, are sent by a bare socket to a client that has subscribed to
// one channel for each record class, named as the class. Which callbacks run, with what record and sequence
// number, and what the client counts, must be what the packets say when they are read by hand; and the client
// must go on receiving.

#include <Telvane/EventClient.h>
#include <Telvane/RecordCatalogue.h>
#include <Telvane/RequestType.h>

#include "FuzzSocket.h"
#include "support/JsonTree.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace Telvane
{
namespace
{

constexpr std::size_t kMaxMessageSize = 16383;

/// One call of a callback.
struct Delivery
{
    const RecordClass* recordClass;
    int sequence;
    std::string record;
};

/// What packets lead to.
struct Expectation
{
    EventClientStatistics counters;
    std::vector<Delivery> deliveries;
};

/// The client under test, connected to a socket of ours.
class Connection
{
public:
    Connection()
    {
        const SocketPlace place;
        const FileDescriptor listener = openSocket();
        require(bindSocket(listener.get(), place.path()) == 0 && listen(listener.get(), 1) == 0,
                "a server's socket can be had");
        require(m_client.Connect(place.path()) == 0, "the client connects");
        m_server = PacketSocket(FileDescriptor(acceptClient(listener.get())));

        const auto& classes = RecordCatalogue::classes();
        std::thread answers([this] { acceptSubscriptions(); });
        for (const RecordClass& recordClass : classes) {
            subscribe(recordClass);
        }
        RequestType end;
        require(m_client.Publish("End", end) == 0, "the client publishes");
        answers.join();
        requireSoon([this] { return m_client.Statistics().received == m_answers; }, "the answers arrive");
    }
    ~Connection() { require(m_client.Disconnect() == 0, "the client disconnects"); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void exchange(const std::vector<std::string_view>& packets)
    {
        const EventClientStatistics before = m_client.Statistics();
        Expectation expected;
        for (const std::string_view packet : packets) {
            m_server.send(packet);
            expect(packet, expected);
        }
        m_server.send(kSweep);
        expect(kSweep, expected);

        requireSoon(
            [&] { return m_client.Statistics().notJson - before.notJson >= expected.counters.notJson; },
            "the client goes on receiving and counts what is not JSON");
        checkCounters(m_client.Statistics(), before, expected.counters);
        checkDeliveries(takeDeliveries(), expected.deliveries);
    }

private:
    static void checkCounters(const EventClientStatistics& now, const EventClientStatistics& before,
                              const EventClientStatistics& expected)
    {
        for (const auto& counter : kClientCounters) {
            require(now.*counter.member - before.*counter.member == expected.*counter.member, counter.name);
        }
    }

    static void checkDeliveries(const std::vector<Delivery>& actual, const std::vector<Delivery>& expected)
    {
        require(actual.size() == expected.size(), "each readable record is delivered once");
        for (std::size_t i = 0; i < actual.size(); ++i) {
            require(actual[i].recordClass == expected[i].recordClass,
                    "a record goes to its channel's callback");
            require(actual[i].sequence == expected[i].sequence, "a delivery has its sequence");
            requireSame(actual[i].record, expected[i].record, "a record arrives as it was sent");
        }
    }

    void subscribe(const RecordClass& recordClass)
    {
        const auto deliver = [this](void*, TelvaneDataTypeBase* record, int sequence, void* user) {
            std::string text = record->GetString();
            const std::lock_guard<std::mutex> guard(m_lock);
            m_deliveries.push_back({static_cast<const RecordClass*>(user), sequence, std::move(text)});
        };
        const std::unique_ptr<TelvaneDataTypeBase> prototype(recordClass.build());
        // On a busy machine, an answer may come too late for its exchange and disturb the next one.
        requireSoon(
            [&] {
                return m_client.Subscribe(recordClass.name, deliver, *prototype,
                                          const_cast<RecordClass*>(&recordClass)) == 0;
            },
            "the client subscribes");
    }

    /// Answers until the client publishes.
    void acceptSubscriptions()
    {
        for (;; ++m_answers) {
            const JsonTree request(cJSON_Parse(m_server.receive().c_str()));
            const char* const header = cJSON_GetStringValue(cJSON_GetObjectItem(request.get(), "header"));
            if (header == nullptr || std::string_view(header) != ".subscribe") {
                return;
            }
            const cJSON* const payload = cJSON_GetObjectItem(request.get(), "payload");
            const char* const channel = cJSON_GetStringValue(cJSON_GetObjectItem(payload, "channel"));
            require(channel != nullptr, "a subscribe request names its channel");
            m_server.send(R"({"header":".subscribe","success":true,"channel":")" + std::string(channel) +
                          "\"}");
        }
    }

    std::vector<Delivery> takeDeliveries()
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        return std::exchange(m_deliveries, {});
    }

    static void expect(std::string_view packet, Expectation& expected)
    {
        ++expected.counters.received;
        const JsonTree message(cJSON_Parse(std::string(packet.substr(0, kMaxMessageSize)).c_str()));
        if (message == nullptr) {
            ++expected.counters.notJson;
            return;
        }
        const char* const headerText = cJSON_GetStringValue(cJSON_GetObjectItem(message.get(), "header"));
        const std::string header = headerText != nullptr ? headerText : "";
        if (header == ".subscribe" || header == ".unsubscribe") {
            return; // the client's own, of which nothing is to be seen
        }
        const RecordClass* const recordClass = RecordCatalogue::find(header);
        cJSON* const payload = cJSON_GetObjectItem(message.get(), "payload");
        if (recordClass == nullptr) {
            ++expected.counters.notSubscribed;
        } else if (const auto record = read(*recordClass, payload); record == nullptr) {
            ++expected.counters.undecodable;
        } else {
            expected.deliveries.push_back({recordClass,
                                           integerOf(cJSON_GetObjectItem(message.get(), "sequence")),
                                           record->GetString()});
        }
    }

    static std::unique_ptr<TelvaneDataTypeBase> read(const RecordClass& recordClass, cJSON* payload)
    {
        std::unique_ptr<TelvaneDataTypeBase> record(recordClass.build());
        try {
            return payload != nullptr && record->Unpackage(payload) == 0 ? std::move(record) : nullptr;
        } catch (const std::out_of_range&) {
            return nullptr; // a time without digits must not end the client
        }
    }

    static int integerOf(const cJSON* item)
    {
        const double number = cJSON_IsNumber(item) != 0 ? item->valuedouble : 0.0;
        return static_cast<int>(std::clamp<double>(number, INT_MIN, INT_MAX));
    }

    EventClient m_client;
    PacketSocket m_server;
    std::uint64_t m_answers = 0;

    std::mutex m_lock; ///< guards the deliveries, which come on the client's receiver thread
    std::vector<Delivery> m_deliveries;
};

} // namespace
} // namespace Telvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace Telvane;
    silenceDiagnostics();
    // What arrives leaves no mark on a client, so one serves for all inputs.
    static Connection connection;
    std::vector<std::string_view> packets = packetsOf(textOf(data, size));
    // A packet without a byte is the end of the stream to a receiver.
    packets.erase(std::remove(packets.begin(), packets.end(), std::string_view()), packets.end());
    connection.exchange(packets);
    return 0;
}

// Subscriptions to payloads as text: what arrives of any packet, and that everything else is as for records.

#include "helpers/BusClientTestSupport.h"
#include "helpers/RelayText.h"
#include "helpers/TestPaths.h"

#include <Telvane/RecordCatalogue.h>

#include <fstream>
#include <iterator>

namespace Telvane::Testing
{

namespace
{

struct Text
{
    std::string payload;
    Delivery delivery;
};

auto putInto(Mailbox<Text>& texts)
{
    return [&texts](std::string_view payload, const Delivery& delivery) {
        texts.put({std::string(payload), delivery});
    };
}

std::string printedLog(const std::string& text)
{
    return "{\n\t\t\"log\":\t\"" + text + "\"\n\t}";
}

using TextSubscription = BusInEachPlace;

INSTANTIATE_TEST_SUITE_P(Everywhere, TextSubscription,
                         ::testing::Values(Run::Queued, Run::Direct, Run::Dispatch), nameOfPlace);

TEST_P(TextSubscription, GetsPayloadsInOrderAsTheServerPrintsThem)
{
    Mailbox<Text> texts;
    const auto subscription = bus->subscribeText("LogData", putInto(texts));
    const auto before = std::chrono::steady_clock::now();
    for (const char* const text : {"one", "two", "three", "four"}) { // the last ones without the lock
        publish(text);
    }
    const Text one = texts.take();
    EXPECT_EQ(one.payload, printedLog("one"));
    EXPECT_EQ(one.delivery.epoch, 1U);
    EXPECT_GE(one.delivery.arrival, before);
    int sequence = one.delivery.sequence;
    for (const char* const text : {"two", "three", "four"}) {
        const Text next = texts.take();
        EXPECT_EQ(next.payload, printedLog(text));
        EXPECT_EQ(next.delivery.sequence, ++sequence);
        EXPECT_EQ(next.delivery.skippedNumbers, 0U);
    }
    EXPECT_EQ(subscription.statistics().undecodable, 0U);
}

TEST_P(TextSubscription, WorksBesideRecordsAndForAnyClass)
{
    Mailbox<Text> texts;
    Mailbox<std::string> records;
    const StreamCapture lines(STDERR_FILENO);
    const auto text = bus->subscribeText("LogData", putInto(texts));
    const auto record = bus->subscribe<LogData>([&](const LogData& received) { records.put(received.log); });
    bus->publish("LogData", RequestType());
    publish("x");
    EXPECT_EQ(texts.take().payload, "{\n\t}");
    EXPECT_EQ(texts.take().payload, printedLog("x"));
    EXPECT_EQ(records.take(), "x");
    EXPECT_EQ(record.statistics().undecodable, 1U);
    EXPECT_EQ(text.statistics().undecodable, 0U);
}

TEST_P(TextSubscription, GoesOnAfterARestartOfTheServerAndAfterItsCallbackHasThrown)
{
    Mailbox<Text> texts;
    const StreamCapture lines(STDERR_FILENO);
    const auto subscription =
        bus->subscribeText("LogData", [&](std::string_view payload, const Delivery& delivery) {
            if (payload == printedLog("bad")) {
                throw std::runtime_error("what went wrong");
            }
            texts.put({std::string(payload), delivery});
        });
    publish("bad");
    publish("before");
    EXPECT_EQ(texts.take().payload, printedLog("before"));
    EXPECT_EQ(subscription.statistics().threw, 1U);
    restartServer();
    publish("after");
    EXPECT_EQ(texts.take().payload, printedLog("after"));
}

TEST_P(TextSubscription, WithoutACallableCountsEachMessageAsThrown)
{
    const StreamCapture lines(STDERR_FILENO);
    const auto subscription = bus->subscribeText("LogData", nullptr);
    publish("x");
    EXPECT_TRUE(eventually([&] { return subscription.statistics().threw == 1; }));
}

/// A text subscription at a server that sends what the test says.
class TextOfRawServer : public ::testing::TestWithParam<Run>
{
protected:
    TextOfRawServer()
    {
        if (GetParam() == Run::Dispatch) {
            dispatcher.emplace(bus);
        }
        subscription = bus.subscribeText("Text", putInto(texts));
        peer = raw.accept();
        std::string request = peer.receive();
        if (request == printedUnsubscribeRequest("TelvaneBus")) { // connected before there was a subscription
            peer.send(response(".unsubscribe", false, "TelvaneBus"));
            request = peer.receive();
        }
        EXPECT_EQ(request, printedSubscribeRequest("Text"));
        peer.send(response(".subscribe", true, "Text"));
        EXPECT_EQ(subscription.waitActive(kTimeout), std::error_code());
    }
    ~TextOfRawServer() override { dispatcher.reset(); }

    /// Sends a packet, and a second one that shows that the first has been handled.
    /// \return the texts of the first packet
    std::vector<std::string> textsOf(const std::string& packet)
    {
        EXPECT_EQ(errorInRelayText(packet.substr(0, std::min(packet.find('\0'), kMessageLimit - 1))), "")
            << packet;
        peer.send(packet);
        peer.send(relay("Text", 2, "\"marker\""));
        std::vector<std::string> payloads;
        for (Text text = texts.take(); text.payload != "\"marker\""; text = texts.take()) {
            payloads.push_back(text.payload);
        }
        return payloads;
    }

    using Payloads = std::vector<std::string>;

    TemporaryDirectory directory;
    const RawServer raw{directory.path("bus")};
    Mailbox<Text> texts;
    Bus bus{raw.path(), impatient(GetParam())};
    std::optional<Dispatcher> dispatcher;
    Subscription subscription;
    RawPeer peer{FileDescriptor()};
};

INSTANTIATE_TEST_SUITE_P(Everywhere, TextOfRawServer,
                         ::testing::Values(Run::Queued, Run::Direct, Run::Dispatch), nameOfPlace);

TEST_P(TextOfRawServer, IsThePayloadsBytesInAnyLayout)
{
    for (const char* const payload :
         {"null", "0", "-0", "1.50", "1e400", "true", "\"\"", "{}", "[]", "{\"a\" : 1 ,\"A\":[ 1,2 ]}",
          "\"\\u0041\\/\\u0000x\"", "\"\xFF\x80\"", "[{\"payload\":1},\"}\",\"]\",\"\\\"\"]", "\"a\tb\""}) {
        EXPECT_EQ(textsOf(relay("Text", 1, payload)), Payloads{payload});
        EXPECT_EQ(textsOf(relay("Text", 1, "\n" + std::string(payload) + "\r\t ")), Payloads{payload});
    }
    const std::string printed = "{\n\t\"header\":\t\"Text\",\n\t\"sequence\":\t7,\n\t\"payload\":\t";
    EXPECT_EQ(textsOf(printed + "{\n\t\t\"a\":\t1\n\t}\n}"), Payloads{"{\n\t\t\"a\":\t1\n\t}"});
    EXPECT_EQ(textsOf(printed + "{\n\t\t\"a\":\t1.0\n\t}\n}"), Payloads{"{\n\t\t\"a\":\t1.0\n\t}"});
    EXPECT_EQ(textsOf(printed + "1\n}more"), Payloads{"1"});
    EXPECT_EQ(textsOf(printed + "1 }"), Payloads{"1"});
    EXPECT_EQ(textsOf(printed + "1,\n\t\"payload\":\t2\n}"), Payloads{"1"});
    const std::string levels(70, '[');
    const std::string ends(70, ']');
    EXPECT_EQ(textsOf(printed + levels + ends + "\n}"), Payloads{levels + ends});
}

TEST_P(TextOfRawServer, IsThatOfTheFirstKeyThatTheLibraryTakesForThePayload)
{
    EXPECT_EQ(textsOf(R"({"Payload":1,"payload":2,"sequence":3,"header":"Text"})"), Payloads{"1"});
    EXPECT_EQ(textsOf(R"({ "\u0070ayload" : [1 ] ,"header":"Text"})"), Payloads{"[1 ]"});
    EXPECT_EQ(textsOf(R"({"header":"Text","pay":{"payload":1},"payload":{"payload":2}})"),
              Payloads{"{\"payload\":2}"});
    EXPECT_EQ(textsOf(R"({"payload\u0000x":1,"header":"Text","payload":2})"), Payloads{"1"});
    EXPECT_EQ(textsOf("\xEF\xBB\xBF \x01{\x02\"payload\"\x03:\x04\"x\"\x05,\"header\":\"Text\"}"),
              Payloads{"\"x\""});
}

TEST_P(TextOfRawServer, IsNotThereWithoutAPayloadOrJson)
{
    EXPECT_EQ(textsOf(R"({"header":"Text","sequence":1})"), Payloads{});
    EXPECT_EQ(textsOf(R"({"header":"Text","sequence":1,"payloads":1})"), Payloads{});
    EXPECT_EQ(bus.statistics().withoutPayload, 2U);
    EXPECT_EQ(textsOf(R"(["payload"])"), Payloads{});
    EXPECT_EQ(textsOf("{}"), Payloads{});
    EXPECT_EQ(textsOf("1"), Payloads{});
    EXPECT_EQ(bus.statistics().withoutPayload, 5U);
    const std::string printed = "{\n\t\"header\":\t\"Text\",\n\t\"sequence\":\t7,\n\t\"payload\":\t";
    std::uint64_t invalid = 0;
    for (const std::string packet : {"", "{\n\t\t\"a\":\t1\n\t", "{\n\t\t\"a\":\t\n\t}\n}", "1\n,", "tru\n}",
                                     "\"\n}", "\"\\x\"\n}", "]\n}"}) {
        EXPECT_EQ(textsOf(printed + packet), Payloads{}) << packet;
        ++invalid;
    }
    EXPECT_EQ(bus.statistics().notJson, invalid);
    EXPECT_EQ(textsOf("x"), Payloads{});
    EXPECT_EQ(bus.statistics().notJson, invalid + 1);
    EXPECT_EQ(subscription.statistics().undecodable, 0U);
}

TEST_P(TextOfRawServer, EndsAtAZeroByteAndIsCutWithItsPacket)
{
    using namespace std::string_literals;
    EXPECT_EQ(textsOf(relay("Text", 1, "\"a\0b\""s)), Payloads{});
    EXPECT_EQ(textsOf(printedRelay("Text", 1, "\"a\":\t\"b\0c\""s)), Payloads{});
    EXPECT_EQ(bus.statistics().notJson, 2U);
    EXPECT_EQ(textsOf(relay("Text", 1, "1") + "\0x"s), Payloads{"1"});
    const std::size_t around = relay("Text", 1, "").size();
    const std::string longest = '"' + std::string(kMessageLimit - 1 - around - 2, 'x') + '"';
    EXPECT_EQ(textsOf(relay("Text", 1, longest)), Payloads{longest});
    EXPECT_EQ(textsOf(relay("Text", 1, "\"x" + longest.substr(1))), Payloads{});
    EXPECT_EQ(bus.statistics().notJson, 3U);
}

TEST_P(TextOfRawServer, HasTheSameCircumstancesAsARecord)
{
    Mailbox<unsigned> skipped;
    const auto records = bus.subscribe<RequestType>(
        "Text", [&](const RequestType&, const Delivery& delivery) { skipped.put(delivery.skippedNumbers); });
    const std::string id = R"({"_id":"request:1"})";
    for (const auto& [sequence, payload] : std::vector<std::pair<int, std::string>>{{10, "{}"},
                                                                                    {12, "{}"},
                                                                                    {5, id},
                                                                                    {13, "{}"},
                                                                                    {13, id},
                                                                                    {14, "{}"},
                                                                                    {14, "{}"},
                                                                                    {3, "{}"},
                                                                                    {4, id}}) {
        for (const std::string& packet :
             {relay("Text", sequence, payload),
              printedRelay("Text", sequence, payload == id ? "\"_id\":\t\"request:1\"" : "")}) {
            peer.send(packet);
            EXPECT_EQ(texts.take().delivery.skippedNumbers, skipped.take()) << packet;
        }
    }
}

TEST(TextOfEachClass, IsFoundWithoutParsingAsInTheTree)
{
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        for (const char* const form : {"default", "filled"}) {
            std::ifstream file(sourceDirectory() + "/tests/golden/records/" + recordClass.name + "." + form +
                               ".json");
            const std::string golden{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            const JsonTree tree(cJSON_Parse(golden.c_str()));
            ASSERT_NE(tree, nullptr) << recordClass.name;
            const std::string packet =
                "{\n\t\"header\":\t\"Channel\",\n\t\"sequence\":\t65535,\n\t\"payload\":\t" +
                printedInRelay(tree.get()) + "\n}";
            EXPECT_EQ(relayText(packet, true), printedInRelay(tree.get()));
            for (std::size_t i = 0; i < packet.size(); i += 7) {
                ASSERT_EQ(errorInRelayText(packet.substr(0, i)), "") << i << packet;
                std::string changed = packet;
                changed[i] = packet[packet.size() - 1 - i];
                ASSERT_EQ(errorInRelayText(changed), "") << changed;
                ASSERT_EQ(errorInRelayText(changed.erase(i, 1)), "") << changed;
            }
        }
    }
}

} // namespace
} // namespace Telvane::Testing

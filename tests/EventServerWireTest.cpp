// The server to the byte, spoken to by a bare socket: what it answers, what it relays, what it drops, and
// that nothing a peer sends brings it down.

#include "BusTestSupport.h"
#include "JsonTestSupport.h"

#include <cerrno>

namespace Telvane
{
namespace
{

using namespace Testing;

TEST(SubscribeResponse, IsCompactAndEchoesTheName)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    peer.send(
        "{\n\t\"header\":\t\".subscribe\",\n\t\"payload\":\t{\n\t\t\"channel\":\t\"Weld_Start\"\n\t}\n}");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":true,"channel":"Weld_Start"})");
}

TEST(SubscribeResponse, RefusesOtherNamesAndEchoesThem)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    peer.send(R"({"header":".subscribe","payload":{"channel":"C1"}})");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":false,"channel":"C1"})");
    peer.send(R"({"header":".subscribe","payload":{"channel":"a.b"}})");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":false,"channel":"a.b"})");
    peer.send(R"({"header":".subscribe","payload":{"channel":"a-b"}})");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":false,"channel":"a-b"})");
    peer.send(R"({"header":".subscribe","payload":{"channel":"\"q\"\n"}})");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":false,"channel":"\"q\"\n"})");
    peer.send(R"({"header":".subscribe","payload":{"channel":".subscribe"}})");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":false,"channel":".subscribe"})");
}

TEST(SubscribeResponse, AcceptsTheEmptyName)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    peer.send(R"({"header":".subscribe","payload":{"channel":""}})");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":true,"channel":""})");
}

TEST(SubscribeResponse, GoesToTheRequestingClientOnly)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    const RawPeer other = running.connect();
    subscribe(other, "C");
    subscribe(peer, "C");
    expectNothingElse(other);
}

TEST(UnsubscribeResponse, IsCompactAndEchoesTheName)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    peer.send("{\n\t\"payload\":\t{\n\t\t\"channel\":\t\"C\"\n\t},\n\t\"header\":\t\".unsubscribe\"\n}");
    EXPECT_EQ(peer.receive(), R"({"header":".unsubscribe","success":true,"channel":"C"})");
    peer.send(R"({"payload":{"channel":"D"},"header":".unsubscribe"})");
    EXPECT_EQ(peer.receive(), R"({"header":".unsubscribe","success":false,"channel":"D"})");
    peer.send(R"({"payload":{"channel":"C-1"},"header":".unsubscribe"})");
    EXPECT_EQ(peer.receive(), R"({"header":".unsubscribe","success":false,"channel":"C-1"})");
    peer.send(R"({"payload":{"channel":""},"header":".unsubscribe"})");
    EXPECT_EQ(peer.receive(), R"({"header":".unsubscribe","success":false,"channel":""})");
}

TEST(MetaRequest, IsReadWhateverTheOrderOfItsKeysAndWhatElseItHolds)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    peer.send(R"({"x":[1],"payload":{"y":2,"channel":"C"},"header":".subscribe","sequence":9})");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":true,"channel":"C"})");
    peer.send(R"({"header":".unsubscribe","payload":{"channel":"C"}})");
    EXPECT_EQ(peer.receive(), R"({"header":".unsubscribe","success":true,"channel":"C"})");
}

TEST(MetaRequest, HasKeysInAnyLetterCase)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    peer.send(R"({"HEADER":".subscribe","Payload":{"CHANNEL":"C"}})");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":true,"channel":"C"})");
}

TEST(MetaRequest, WithoutAUsableChannelGetsNoReplyAndTheClientStays)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    for (const char* const header : {".subscribe", ".unsubscribe"}) {
        for (const char* const payload :
             {"{}", R"({"channels":"C"})", R"({"channel":5})", R"({"channel":null})", R"({"channel":true})",
              R"({"channel":["C"]})", R"({"channel":{"channel":"C"}})", "5", "\"C\"", "[\"C\"]", "null",
              "true", "[]"}) {
            peer.send(publication(header, payload));
        }
    }
    expectNothingElse(peer);
}

/// The handlers themselves, with a socket pair instead of a client, so that their results can be seen.
class Handlers : public ::testing::Test
{
protected:
    Handlers()
    {
        int ends[2] = {};
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            throwSystemError("socketpair");
        }
        ours = Descriptor(ends[0]);
        theirs = RawPeer(Descriptor(ends[1]));
    }

    int call(EventHandler handler, const std::string& header, const std::string& payload)
    {
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree(cJSON_Parse(payload.c_str()),
                                                                   &cJSON_Delete);
        return handler(&server, ours.get(), header, 7, tree.get(), nullptr);
    }

    EventServer server;
    Descriptor ours;
    RawPeer theirs{Descriptor()};
};

TEST_F(Handlers, RefuseRequestsWithoutAUsableChannel)
{
    for (const char* const payload : {"{}", R"({"channel":5})", "5", "null", R"({"channel":[]})"}) {
        EXPECT_EQ(call(EventServer::meta_subscribeHandler, ".subscribe", payload), -EINVAL) << payload;
        EXPECT_EQ(call(EventServer::meta_unsubscribeHandler, ".unsubscribe", payload), -EINVAL) << payload;
    }
    EXPECT_TRUE(theirs.isSilent());
}

TEST_F(Handlers, ReturnTheResultOfSendingTheResponse)
{
    EXPECT_EQ(call(EventServer::meta_subscribeHandler, ".subscribe", R"({"channel":"C"})"), 0);
    EXPECT_EQ(theirs.receive(), response(".subscribe", true, "C"));
    EXPECT_EQ(call(EventServer::meta_unsubscribeHandler, ".unsubscribe", R"({"channel":"C"})"), 0);
    EXPECT_EQ(theirs.receive(), response(".unsubscribe", true, "C"));
    theirs.close();
    EXPECT_EQ(call(EventServer::meta_subscribeHandler, ".subscribe", R"({"channel":"C"})"), -EPIPE);
    EXPECT_EQ(call(EventServer::meta_unsubscribeHandler, ".unsubscribe", R"({"channel":"C"})"), -EPIPE);
}

TEST_F(Handlers, ReturnZeroFromTheRelayWhateverBecomesOfIt)
{
    EXPECT_EQ(call(EventServer::subscriptionHandler, "Nobodys", "{}"), 0);
    call(EventServer::meta_subscribeHandler, ".subscribe", R"({"channel":"C"})");
    theirs.receive();
    EXPECT_EQ(call(EventServer::subscriptionHandler, "C", R"({"n":1})"), 0);
    EXPECT_EQ(theirs.receive(), printedRelay("C", 7, "\"n\":\t1"));
    theirs.close();
    diagnosticsOf([&] { EXPECT_EQ(call(EventServer::subscriptionHandler, "C", "{}"), 0); });
}

TEST_F(Handlers, SendAtMostTheLimitAndCallThatComplete)
{
    std::string text(kMessageLimit + 100, 'x');
    EXPECT_EQ(server.writeDataToSocket(ours.get(), text.data(), static_cast<int>(text.size())), 0);
    EXPECT_EQ(theirs.receive(), text.substr(0, kMessageLimit));
    EXPECT_EQ(server.writeDataToSocket(ours.get(), text.data(), 5), 0);
    EXPECT_EQ(theirs.receive(), "xxxxx");
}

TEST_F(Handlers, SendNothingForANegativeLength)
{
    std::string text = "text";
    EXPECT_EQ(server.writeDataToSocket(ours.get(), text.data(), -3), 0);
    EXPECT_EQ(server.writeDataToSocket(ours.get(), text.data(), 4), 0);
    char received[8] = {};
    ssize_t length = 0;
    while (length == 0) { // an empty packet may come first
        length = ::recv(theirs.descriptor(), received, sizeof received, 0);
    }
    EXPECT_EQ(std::string(received, static_cast<std::size_t>(length)), "text");
}

TEST_F(Handlers, NeverWaitForRoomInTheSocket)
{
    std::string text(1000, 'x');
    int result = 0;
    for (int i = 0; i < 100'000 && result == 0; ++i) {
        result = server.writeDataToSocket(ours.get(), text.data(), static_cast<int>(text.size()));
    }
    EXPECT_EQ(result, -EAGAIN);
    EXPECT_EQ(server.writeDataToSocket(-1, text.data(), 5), -EBADF);
}

TEST(RelayOnTheWire, IsPrintedFormattedWithTheSequenceBeforeThePayload)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "Weld");
    peer.send(R"({"header":"Weld","payload":{"tag":12,"volts":24.75,"unit":"V","on":true,"none":null,)"
              R"("list":[1,2.5,"x"],"nested":{"a":{}},"empty":[]}})");
    EXPECT_EQ(peer.receive(), "{\n"
                              "\t\"header\":\t\"Weld\",\n"
                              "\t\"sequence\":\t1,\n"
                              "\t\"payload\":\t{\n"
                              "\t\t\"tag\":\t12,\n"
                              "\t\t\"volts\":\t24.75,\n"
                              "\t\t\"unit\":\t\"V\",\n"
                              "\t\t\"on\":\ttrue,\n"
                              "\t\t\"none\":\tnull,\n"
                              "\t\t\"list\":\t[1, 2.5, \"x\"],\n"
                              "\t\t\"nested\":\t{\n"
                              "\t\t\t\"a\":\t{\n"
                              "\t\t\t}\n"
                              "\t\t},\n"
                              "\t\t\"empty\":\t[]\n"
                              "\t}\n"
                              "}");
}

TEST(RelayOnTheWire, OfAnEmptyRecord)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "req_C");
    peer.send("{\n\t\"header\":\t\"req_C\",\n\t\"payload\":\t{\n\t}\n}");
    EXPECT_EQ(peer.receive(), "{\n\t\"header\":\t\"req_C\",\n\t\"sequence\":\t1,\n\t\"payload\":\t{\n\t}\n}");
}

TEST(RelayOnTheWire, KeepsRepeatedKeysOrderAndEveryByteOfTexts)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    peer.send(
        "{\"header\":\"C\",\"payload\":{\"b\":1,\"a\":2,\"b\":3,\"t\":\"\\u00b5s \xE2\x82\xAC \xFF\\n\"}}");
    EXPECT_EQ(peer.receive(), "{\n\t\"header\":\t\"C\",\n\t\"sequence\":\t1,\n\t\"payload\":\t{\n"
                              "\t\t\"b\":\t1,\n\t\t\"a\":\t2,\n\t\t\"b\":\t3,\n"
                              "\t\t\"t\":\t\"\xC2\xB5s \xE2\x82\xAC \xFF\\n\"\n\t}\n}");
}

TEST(RelayOnTheWire, CarriesNothingOfTheEnvelopeBesidesHeaderAndPayload)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    peer.send(R"({"sequence":99,"extra":{"x":1},"payload":{"n":1},"success":true,"header":"C"})");
    EXPECT_EQ(peer.receive(), printedRelay("C", 1, "\"n\":\t1"));
}

TEST(RelayOnTheWire, CarriesPayloadsThatAreNoObjects)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    int sequence = 1;
    for (const char* const payload : {"5", "\"text\"", "true", "null", "[1, 2]"}) {
        peer.send(publication("C", payload));
        EXPECT_EQ(peer.receive(), "{\n\t\"header\":\t\"C\",\n\t\"sequence\":\t" + std::to_string(sequence++) +
                                      ",\n\t\"payload\":\t" + payload + "\n}");
    }
}

TEST(RelayOnTheWire, PrintsNumbersAndTextsAsTheJsonLibraryDoes)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    int sequence = 1;
    for (const char* const value : {"0",
                                    "-0",
                                    "0.1",
                                    "-0.1",
                                    "0.333333333333333314829616256247390992939472198486328125",
                                    "5e-324",
                                    "1e-7",
                                    "1.7976931348623157e308",
                                    "1e999",
                                    "-1e999",
                                    "2147483647",
                                    "2147483648",
                                    "-2147483649",
                                    "1e15",
                                    "1e16",
                                    "123456789012345678",
                                    "100000000000000000000",
                                    "1.5e300",
                                    "24.750000000000004",
                                    "1E+2",
                                    R"("\u0000\u0001\u001f\u007f\u0080\u20ac\ud83d\ude00")",
                                    R"("\"\\\/\b\f\n\r\t")",
                                    R"({"k\u0001\"":{"":{}}})",
                                    "[[],[[]],[{}],{}]"}) {
        const std::string payload = R"({"v":)" + std::string(value) + "}";
        peer.send(publication("C", payload));
        const Tree expected = emptyObject();
        cJSON_AddStringToObject(expected.get(), "header", "C");
        cJSON_AddNumberToObject(expected.get(), "sequence", sequence++);
        cJSON_AddItemToObject(expected.get(), "payload", parse(payload).release());
        EXPECT_EQ(peer.receive(), printed(expected)) << value;
    }
}

TEST(RelayOnTheWire, TakesTheFirstOfRepeatedEnvelopeKeys)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    subscribe(peer, "D");
    peer.send(R"({"header":"C","header":"D","payload":{"n":1},"payload":{"n":2}})");
    EXPECT_EQ(peer.receive(), printedRelay("C", 2, "\"n\":\t1"));
    expectNothingElse(peer);
}

TEST(RelayOnTheWire, IsCutToTheLimitHoweverMuchPrintingAddsToIt)
{
    RunningServer running([]([[maybe_unused]] EventServer& server) {
#ifdef __SANITIZE_THREAD__ // keeps records of its own on every stack, larger than the stack's usual size
        server.SetThreadStackSize(4 << 20);
#endif
    });
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    std::string nest;
    for (int depth = 0; depth < 900; ++depth) {
        nest += R"({"a":)";
    }
    nest += "1" + std::string(900, '}');
    for (int sequence = 1; sequence < 4; ++sequence) {
        peer.send(publication("C", nest));
        const std::string cut = peer.receive();
        EXPECT_EQ(cut.size(), kMessageLimit);
        const std::string begin = "{\n\t\"header\":\t\"C\",\n\t\"sequence\":\t" + std::to_string(sequence) +
                                  ",\n\t\"payload\":\t{\n\t\t\"a\":\t{\n\t\t\t\"a\":\t{\n";
        EXPECT_EQ(cut.substr(0, begin.size()), begin);
    }
    peer.send(publication("C", R"({"n":1})"));
    EXPECT_EQ(peer.receive(), printedRelay("C", 4, "\"n\":\t1"));
}

TEST(RelayOnTheWire, IsCutToTheLimit)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    const std::string frame = printedRelay("C", 1, "\"t\":\t\"\"");
    const StreamCapture error(STDERR_FILENO);
    int sequence = 1;
    for (const std::size_t relayed :
         {kMessageLimit - 1, kMessageLimit, kMessageLimit + 1, kMessageLimit + 5}) {
        const std::string text(relayed - frame.size(), 'x');
        const std::string whole = printedRelay("C", sequence++, "\"t\":\t\"" + text + "\"");
        ASSERT_EQ(whole.size(), relayed);
        peer.send(publication("C", R"({"t":")" + text + "\"}"));
        EXPECT_EQ(peer.receive(), whole.substr(0, kMessageLimit));
    }
    EXPECT_EQ(error.text(), "");
}

TEST(Rubbish, IsDroppedWithoutAWordAndTheClientStays)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    const Diagnostics told = diagnosticsOf([&] {
        for (const std::string& packet : {std::string("rubbish"),
                                          std::string("{"),
                                          std::string("}"),
                                          std::string("\0", 1),
                                          std::string(" "),
                                          std::string("\xFF\xFE\x00\x01", 4),
                                          std::string("5"),
                                          std::string("\"header\""),
                                          std::string("null"),
                                          std::string("[]"),
                                          std::string("{}"),
                                          std::string(R"(["header","C"])"),
                                          std::string(R"({"header":"C")"),
                                          std::string(R"({"header":"C","payload":)"),
                                          std::string(R"({"header":"C","payload":{})"),
                                          std::string(R"({"header":"C","payload":{"n":}})"),
                                          std::string(R"({'header':'C','payload':{}})"),
                                          std::string(R"({"header":"C","payload":NaN})"),
                                          std::string(kMessageLimit - 1, '['),
                                          std::string(kMessageLimit, '{'),
                                          std::string(kMessageLimit, '"'),
                                          std::string(100'000, 'x')}) {
            peer.send(packet);
        }
        expectNothingElse(peer);
    });
    EXPECT_EQ(told.output + told.error, "");
}

TEST(Rubbish, OfOneClientDoesNotTouchOthers)
{
    RunningServer running;
    const RawPeer vandal = running.connect();
    const RawPeer subscriber = running.connect();
    subscribe(subscriber, "C");
    for (int i = 1; i < 20; ++i) {
        vandal.send(std::string(static_cast<std::size_t>(i) * 1000, '{'));
        vandal.send(publication("C"));
        EXPECT_EQ(subscriber.receive(), printedRelay("C", i, ""));
    }
}

TEST(HalfValidMessage, WithoutPayloadIsDropped)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    peer.send(R"({"header":"C"})");
    peer.send(R"({"header":".subscribe","channel":"D"})");
    expectNothingElse(peer);
}

TEST(HalfValidMessage, WithoutHeaderHasTheEmptyHeader)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    peer.send(R"({"payload":{"n":1}})");
    expectNothingElse(peer);
}

TEST(HalfValidMessage, WhoseHeaderIsNoStringReachesNoChannel)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    for (const char* const header : {"5", "true", "null", "[\"C\"]", "{\"C\":1}"}) {
        peer.send("{\"header\":" + std::string(header) + R"(,"payload":{"channel":"C"}})");
    }
    expectNothingElse(peer);
}

TEST(HalfValidMessage, IsReadUpToTheEndOfItsFirstValue)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    for (const std::string& rest : {std::string("rubbish"), std::string("\0\xFF", 2), std::string("\n\n"),
                                    publication("C", R"({"n":2})")}) {
        peer.send(publication("C", R"({"n":1})") + rest);
        EXPECT_NE(peer.receive().find("\"n\":\t1"), std::string::npos);
    }
    expectNothingElse(peer);
}

TEST(HalfValidMessage, IsNotCompletedByWhatAnEarlierOneLeftInTheBuffer)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C"); // 0
    const std::string whole = publication("C", R"({"n":1})");
    peer.send(whole); // 1
    peer.send(whole.substr(0, whole.size() - 1));
    peer.send(whole); // 2
    EXPECT_EQ(sequenceOf(peer.receive()), 1);
    EXPECT_EQ(sequenceOf(peer.receive()), 2);
}

/// A publication of exactly \p size bytes whose last byte is needed, and whose relay is short.
std::string paddedPublication(std::size_t size)
{
    const std::string head = R"({"header":"C",)";
    const std::string tail = R"("payload":{}})";
    return head + std::string(size - head.size() - tail.size(), ' ') + tail;
}

TEST(LargeMessage, OfOneByteLessThanTheLimitArrivesWhole)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    for (const std::size_t size : {kMessageLimit - 2, kMessageLimit - 1}) {
        peer.send(paddedPublication(size));
        EXPECT_NE(peer.receive().find("payload"), std::string::npos) << size;
    }
}

TEST(LargeMessage, OfTheLimitOrMoreIsDropped)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    for (const std::size_t size : {kMessageLimit, kMessageLimit + 1, kMessageLimit + 2, 4 * kMessageLimit}) {
        peer.send(paddedPublication(size));
    }
    expectNothingElse(peer);
}

TEST(LargeMessage, WhoseValueEndsInTimeIsRead)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C"); // 0
    int sequence = 0;
    for (const std::size_t size : {kMessageLimit - 1, kMessageLimit, kMessageLimit + 1, 2 * kMessageLimit}) {
        std::string packet = publication("C");
        packet.resize(size, ' ');
        peer.send(packet);
        EXPECT_EQ(sequenceOf(peer.receive()), ++sequence) << size;
    }
}

TEST(Connection, EndsWithAPacketWithoutBytes)
{
    RunningServer running;
    const RawPeer stays = running.connect();
    const RawPeer leaves = running.connect();
    subscribe(leaves, "C");
    leaves.send("");
    leaves.expectEnd();
    expectNothingElse(stays);
    expectNothingElse(running.connect());
}

TEST(Connection, EndsWhenThePeerShutsItsSendingSide)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    peer.shutdown(SHUT_WR);
    peer.expectEnd();
}

TEST(Connection, ThatEndsAtOnceLeavesTheServerServing)
{
    RunningServer running;
    for (int i = 0; i < 50; ++i) {
        running.connect().close();
        RawPeer hasty = running.connect();
        hasty.send(subscribeRequest("C"));
        hasty.close();
    }
    expectNothingElse(running.connect());
}

} // namespace
} // namespace Telvane

// The server to the byte, spoken to by a bare socket: what it answers and what it relays.

#include "helpers/BusTestSupport.h"
#include "helpers/JsonTestSupport.h"
#include "support/JsonTree.h"

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

std::string printedRefusal(const std::string& name)
{
    const JsonTree tree(cJSON_CreateObject());
    cJSON_AddStringToObject(tree.get(), "header", ".subscribe");
    cJSON_AddFalseToObject(tree.get(), "success");
    cJSON_AddStringToObject(tree.get(), "channel", name.c_str());
    return JsonText(cJSON_PrintUnformatted(tree.get())).get();
}

TEST(SubscribeResponse, EchoesUnusualCharactersAsTheLibraryPrintsThem)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    std::string name;
    for (int character = 1; character < 256; ++character) {
        if (character != '"' && character != '\\') {
            name += static_cast<char>(character);
        }
    }
    peer.send(R"({"header":".subscribe","payload":{"channel":")" + name + R"("}})");
    EXPECT_EQ(peer.receive(), printedRefusal(name));
}

TEST(SubscribeResponse, IsCutAtTheLimitOfMessages)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    const std::string name(16000, '\x01'); // six times as long with escapes
    peer.send(R"({"header":".subscribe","payload":{"channel":")" + name + R"("}})");
    EXPECT_EQ(peer.receive(), printedRefusal(name).substr(0, kMessageLimit));
}

TEST(SubscribeResponse, AcceptsTheEmptyName)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    peer.send(R"({"header":".subscribe","payload":{"channel":""}})");
    EXPECT_EQ(peer.receive(), R"({"header":".subscribe","success":true,"channel":""})");
}

TEST(SubscribeResponse, IsSentToTheRequestingClientOnly)
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

TEST(UnsubscribeResponse, RefusesTheMetaChannels)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    for (const char* const name : {".subscribe", ".unsubscribe"}) {
        peer.send(unsubscribeRequest(name));
        EXPECT_EQ(peer.receive(), response(".unsubscribe", false, name));
    }
}

TEST(MetaRequest, IsReadWithKeysInAnyOrderAndOtherKeys)
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

TEST(RelayOnTheWire, IsTheSameForAPrintedPublicationAndACompactOne)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C"); // 0
    int sequence = 0;
    for (const std::string payload :
         {R"({})", R"([])", R"({"a":1})",
          R"({"a":[1,2.5,-1e-7,1e300,0.30000000000000004,{"b":{}}],"c":null})",
          R"({"a":"\"\\\b\f\n\r\t\u0001/\u00e9","":[[],[[]]],"a":true,"A":false})"}) {
        const std::string compact = publication("C", payload);
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree(cJSON_Parse(compact.c_str()),
                                                                   &cJSON_Delete);
        const std::unique_ptr<char, decltype(&cJSON_free)> printed(cJSON_Print(tree.get()), &cJSON_free);
        std::string relays[2];
        for (std::size_t i = 0; i < 2; ++i) {
            peer.send(i == 0 ? compact : printed.get());
            relays[i] = peer.receive();
            const std::string number = "\"sequence\":\t" + std::to_string(++sequence);
            ASSERT_NE(relays[i].find(number), std::string::npos);
            relays[i].replace(relays[i].find(number), number.size(), "\"sequence\":\t?");
        }
        EXPECT_EQ(relays[0], relays[1]);
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

} // namespace
} // namespace Telvane

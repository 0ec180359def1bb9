// The client to the byte, served by a bare socket: what it sends, and what it makes of what it is sent.

#include <Telvane/PSPrimitives.h>
#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"
#include "helpers/CountedRecord.h"

#include <cerrno>

namespace Telvane
{
namespace
{

using namespace Testing;

class ClientSending : public ClientOfRawServer
{};

TEST_F(ClientSending, NothingUnasked)
{
    EXPECT_TRUE(peer.isSilent());
    EXPECT_EQ(client.Disconnect(), 0);
    peer.expectEnd();
}

TEST_F(ClientSending, APublication)
{
    UnitValuePair record;
    record.Unit = "A";
    record.Value = 176;
    record._sequence_tag = 3;
    EXPECT_EQ(client.Publish("Amps", record), 0);
    EXPECT_EQ(peer.receive(), "{\n"
                              "\t\"header\":\t\"Amps\",\n"
                              "\t\"payload\":\t{\n"
                              "\t\t\"Unit\":\t\"A\",\n"
                              "\t\t\"Value\":\t176,\n"
                              "\t\t\"_sequence_tag\":\t3\n"
                              "\t}\n"
                              "}");
}

TEST_F(ClientSending, APublicationOfAnEmptyRecord)
{
    RequestType record;
    EXPECT_EQ(client.Publish("req_Amps", record), 0);
    EXPECT_EQ(peer.receive(), "{\n\t\"header\":\t\"req_Amps\",\n\t\"payload\":\t{\n\t}\n}");
}

TEST_F(ClientSending, PublicationsOnAnyName)
{
    RequestType record;
    for (const char* const channel : {"", "digits123", "a.b-c d", ".subscribe", ".unsubscribe"}) {
        EXPECT_EQ(client.Publish(channel, record), 0);
        EXPECT_EQ(peer.receive(), printedPublication(channel));
    }
}

TEST_F(ClientSending, ASubscribeRequest)
{
    std::future<int> result = begin([&] { return client.Subscribe("Amps", {}, LogData(), nullptr); });
    EXPECT_EQ(peer.receive(), "{\n"
                              "\t\"header\":\t\".subscribe\",\n"
                              "\t\"payload\":\t{\n"
                              "\t\t\"channel\":\t\"Amps\"\n"
                              "\t}\n"
                              "}");
    peer.send(R"({"header":".subscribe","success":true,"channel":"Amps"})");
    EXPECT_EQ(result.get(), 0);
}

TEST_F(ClientSending, AnUnsubscribeRequestWithThePayloadFirst)
{
    subscribe("Amps", {}, LogData());
    std::future<int> result = begin([&] { return client.Unsubscribe("Amps"); });
    EXPECT_EQ(peer.receive(), "{\n"
                              "\t\"payload\":\t{\n"
                              "\t\t\"channel\":\t\"Amps\"\n"
                              "\t},\n"
                              "\t\"header\":\t\".unsubscribe\"\n"
                              "}");
    peer.send(R"({"header":".unsubscribe","success":true,"channel":"Amps"})");
    EXPECT_EQ(result.get(), 0);
}

TEST_F(ClientSending, NoUnsubscribeRequestForAChannelThatItDoesNotHave)
{
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
    expectNothingElseSent();
}

TEST_F(ClientSending, NoUnsubscribeRequestsWhenItDisconnects)
{
    subscribe("Amps", {}, LogData());
    EXPECT_EQ(client.Disconnect(), 0);
    peer.expectEnd();
}

TEST_F(ClientSending, TheFirst16384BytesOfALargerMessage)
{
    const std::size_t frame = printedPublication("C", "\"log\":\t\"\"").size();
    for (const std::size_t size : {kMessageLimit - 1, kMessageLimit, kMessageLimit + 1, 3 * kMessageLimit}) {
        LogData record;
        record.log.assign(size - frame, 'x');
        const std::string whole = printedPublication("C", "\"log\":\t\"" + record.log + "\"");
        ASSERT_EQ(whole.size(), size);
        EXPECT_EQ(client.Publish("C", record), 0);
        EXPECT_EQ(peer.receive(), whole.substr(0, kMessageLimit));
    }
}

TEST_F(ClientSending, RawMessagesUpToTheLimit)
{
    std::string text(kMessageLimit + 1, 'x');
    EXPECT_EQ(client.writeDataToSocket(text.data(), static_cast<int>(text.size())), 0);
    EXPECT_EQ(peer.receive(), text.substr(0, kMessageLimit));
    EXPECT_EQ(client.writeDataToSocket(text.data(), 3), 0);
    EXPECT_EQ(peer.receive(), "xxx");
}

TEST_F(ClientSending, WaitsForAServerThatIsBusy)
{
    constexpr int kMessages = 1000;
    std::future<int> sending = begin([&] {
        for (int i = 0; i < kMessages; ++i) {
            LogData record;
            record.log = std::string(1000, 'x');
            record._sequence_tag = i;
            if (const int result = client.Publish("C", record); result != 0) {
                return result;
            }
        }
        return 0;
    });
    for (int i = 0; i < kMessages; ++i) {
        EXPECT_NE(peer.receive().find("\"_sequence_tag\":\t" + std::to_string(i) + "\n"), std::string::npos);
    }
    EXPECT_EQ(sending.get(), 0);
}

TEST_F(ClientSending, StopsWaitingForABusyServerWhenDisconnected)
{
    std::future<int> sending = begin([&] {
        LogData record;
        record.log = std::string(1000, 'x');
        int result = 0;
        while (result == 0) {
            result = client.Publish("C", record);
        }
        return result;
    });
    EXPECT_EQ(sending.wait_for(4 * kQuietTime), std::future_status::timeout);
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_EQ(sending.get(), -ENOTCONN);
}

class ClientReceiving : public ClientOfRawServer
{
protected:
    /// Lets the client take everything sent so far.
    void expectNoOtherReception()
    {
        peer.send(relay("Amps", 4711, R"({"Unit":"last","Value":0})"));
        EXPECT_EQ(receptions.take().sequence, 4711);
    }
    void subscribeToAmps() { subscribe("Amps", recordingTo(receptions), UnitValuePair(), this); }

    Receptions receptions;
};

TEST_F(ClientReceiving, ARelayInPrintedForm)
{
    subscribeToAmps();
    peer.send("{\n\t\"header\":\t\"Amps\",\n\t\"sequence\":\t17,\n\t\"payload\":\t{\n"
              "\t\t\"Unit\":\t\"A\",\n\t\t\"Value\":\t176\n\t}\n}");
    const Reception reception = receptions.take();
    EXPECT_EQ(reception.client, &client);
    EXPECT_EQ(reception.record, printedAmps());
    EXPECT_EQ(reception.sequence, 17);
    EXPECT_EQ(reception.user, this);
}

TEST_F(ClientReceiving, OnOneThreadOfItsOwn)
{
    subscribeToAmps();
    peer.send(relay("Amps", 1, kAmps));
    peer.send(relay("Amps", 2, kAmps));
    const std::thread::id thread = receptions.take().thread;
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_EQ(receptions.take().thread, thread);
}

TEST_F(ClientReceiving, TheSequenceAsAnIntegerOrElseZero)
{
    subscribeToAmps();
    const std::vector<std::pair<std::string, int>> sequences = {
        {R"("sequence":65535,)", 65535},    {R"("sequence":0,)", 0},     {"", 0},
        {R"("sequence":"12",)", 0},         {R"("sequence":null,)", 0},  {R"("sequence":true,)", 0},
        {R"("sequence":[12],)", 0},         {R"("sequence":12.9,)", 12}, {R"("sequence":-3,)", -3},
        {R"("sequence":1e12,)", 2147483647}};
    for (const auto& [text, expected] : sequences) {
        peer.send(R"({"header":"Amps",)" + text + R"("payload":)" + kAmps + "}");
        EXPECT_EQ(receptions.take().sequence, expected) << text;
    }
}

TEST_F(ClientReceiving, NothingFromARelayWithoutPayload)
{
    subscribeToAmps();
    peer.send(R"({"header":"Amps","sequence":1})");
    expectNoOtherReception();
}

TEST_F(ClientReceiving, NothingFromAPayloadThatTheRecordCannotRead)
{
    subscribeToAmps();
    const StreamCapture error(STDERR_FILENO);
    for (const char* const payload : {"{}", R"({"Unit":"A"})", R"({"Unit":5,"Value":1})", "5", "null", "[]",
                                      R"({"Unit":"A","Value":"1"})", "\"text\""}) {
        peer.send(relay("Amps", 1, payload));
    }
    expectNoOtherReception();
}

TEST_F(ClientReceiving, NothingFromATimeWithoutDigits)
{
    Receptions samples;
    subscribe("Trace", recordingTo(samples), WeldTraceData());
    WeldTraceData sample;
    sample.sequence = 8;
    std::string text = sample.GetString();
    for (const char* const time : {"none", "/Date()/", "", "/Date(99999999999999999999)/"}) {
        std::string spoilt = text;
        spoilt.replace(spoilt.find("/Date(0)/"), std::strlen("/Date(0)/"), time);
        peer.send(relay("Trace", 1, spoilt));
    }
    peer.send(relay("Trace", 2, text));
    const Reception reception = samples.take();
    EXPECT_EQ(reception.sequence, 2);
    EXPECT_EQ(reception.record, text);
    EXPECT_EQ(client.Disconnect(), 0);
}

TEST_F(ClientReceiving, NothingOfOtherChannels)
{
    subscribeToAmps();
    for (const char* const channel : {"amps", "AMPS", "Amp", "Volts", "", ".other", "req_Amps"}) {
        peer.send(relay(channel, 1, kAmps));
    }
    expectNoOtherReception();
}

TEST_F(ClientReceiving, WithoutHeaderOnTheEmptyChannel)
{
    subscribe("", recordingTo(receptions), UnitValuePair());
    peer.send("{\"sequence\":3,\"payload\":" + std::string(kAmps) + "}");
    EXPECT_EQ(receptions.take().sequence, 3);
}

TEST_F(ClientReceiving, NothingFromRubbish)
{
    subscribeToAmps();
    for (const std::string& packet :
         {std::string("rubbish"), std::string("{"), std::string("\0", 1), std::string("\xFF\xFE"),
          std::string("5"), std::string("null"), std::string("[]"), std::string("{}"), std::string(" "),
          relay("Amps", 1, kAmps).substr(1), std::string(R"({"header":5,"payload":{}})"),
          std::string(R"({"header":"Amps","sequence":1,"payload":)"), std::string(kMessageLimit - 1, '['),
          std::string(kMessageLimit, '"'), std::string(5 * kMessageLimit, 'x')}) {
        peer.send(packet);
    }
    expectNoOtherReception();
}

TEST_F(ClientReceiving, NothingThatStaleBytesOfAnEarlierPacketWouldComplete)
{
    subscribeToAmps();
    const std::string whole = relay("Amps", 1, kAmps);
    peer.send(whole);
    peer.send(whole.substr(0, whole.size() - 1));
    EXPECT_EQ(receptions.take().sequence, 1);
    expectNoOtherReception();
}

TEST_F(ClientReceiving, TheFirstValueOfAPacket)
{
    subscribeToAmps();
    peer.send(relay("Amps", 1, kAmps) + "rubbish");
    peer.send(relay("Amps", 2, kAmps) + relay("Amps", 3, kAmps));
    EXPECT_EQ(receptions.take().sequence, 1);
    EXPECT_EQ(receptions.take().sequence, 2);
    expectNoOtherReception();
}

TEST_F(ClientReceiving, MessagesOfUpTo16383Bytes)
{
    subscribeToAmps();
    const auto padded = [](int sequence, std::size_t size) {
        std::string packet = relay("Amps", sequence, kAmps);
        packet.insert(1, size - packet.size(), ' ');
        return packet;
    };
    peer.send(padded(1, kMessageLimit - 1));
    peer.send(padded(2, kMessageLimit));
    peer.send(padded(3, kMessageLimit + 1));
    peer.send(padded(4, kMessageLimit - 2));
    EXPECT_EQ(receptions.take().sequence, 1);
    EXPECT_EQ(receptions.take().sequence, 4);
    expectNoOtherReception();
}

TEST_F(ClientReceiving, ByTheLatestCallbackOfAChannel)
{
    auto token = std::make_shared<int>(0);
    subscribe(
        "Amps", [token](void*, TelvaneDataTypeBase*, int, void*) { ADD_FAILURE() << "replaced"; },
        UnitValuePair());
    EXPECT_EQ(token.use_count(), 2);
    subscribeToAmps();
    EXPECT_EQ(token.use_count(), 1) << "the replaced callback is still held";
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(receptions.take().sequence, 1);
}

TEST_F(ClientReceiving, ByTheEarlierCallbackAsLongAsAReplacementIsNotGranted)
{
    subscribeToAmps();
    std::future<int> result = begin([&] { return client.Subscribe("Amps", {}, LogData(), nullptr); });
    peer.receive();
    peer.send(response(".subscribe", false, "Amps"));
    EXPECT_EQ(result.get(), -1);
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(receptions.take().record, printedAmps());
}

TEST_F(ClientReceiving, NothingOnceUnsubscribed)
{
    auto token = std::make_shared<int>(0);
    subscribe(
        "Volts", [token](void*, TelvaneDataTypeBase*, int, void*) { ADD_FAILURE() << "unsubscribed"; },
        UnitValuePair());
    subscribeToAmps();
    std::future<int> result = begin([&] { return client.Unsubscribe("Volts"); });
    acceptUnsubscription("Volts");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(token.use_count(), 1);
    peer.send(relay("Volts", 1, kAmps));
    expectNoOtherReception();
    EXPECT_EQ(client.Unsubscribe("Volts"), -EINVAL);
}

TEST_F(ClientReceiving, AllowsTheCallbackToPublish)
{
    subscribe(
        "Amps",
        [](void* self, TelvaneDataTypeBase* record, int, void*) {
            EXPECT_EQ(static_cast<EventClient*>(self)->Publish("Echo", *record), 0);
        },
        UnitValuePair());
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(peer.receive(), printedPublication("Echo", "\"Unit\":\t\"A\",\n\t\t\"Value\":\t176"));
}

TEST_F(ClientReceiving, WithTheClosureTableLockedAgainstAnUnsubscribingThread)
{
    Gate entered;
    Gate release;
    const GateOpener opener(release);
    subscribe(
        "Amps",
        [&](void*, TelvaneDataTypeBase*, int, void*) {
            entered.open();
            release.pass();
        },
        UnitValuePair());
    peer.send(relay("Amps", 1, kAmps));
    ASSERT_TRUE(entered.pass());
    std::future<int> result = begin([&] { return client.Unsubscribe("Volts"); });
    EXPECT_EQ(result.wait_for(kQuietTime), std::future_status::timeout);
    release.open();
    EXPECT_EQ(result.get(), -EINVAL);
}

TEST_F(ClientReceiving, IntoARecordThatLivesOnlyForTheCall)
{
    Mailbox<int> counts;
    subscribe(
        "C", [&](void*, TelvaneDataTypeBase*, int, void*) { counts.put(Counted::living); }, Counted());
    EXPECT_EQ(Counted::living, 1) << "the prototype of the subscription";
    peer.send(relay("C", 1, "{}"));
    peer.send(relay("C", 2, "{}"));
    EXPECT_EQ(counts.take(), 2);
    EXPECT_EQ(counts.take(), 2);
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_EQ(Counted::living, 0);
}

} // namespace
} // namespace Telvane

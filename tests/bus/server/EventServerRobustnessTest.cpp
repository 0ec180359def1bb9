// Nothing that a peer sends brings the server down, or another client's connection, or its own.

#include "helpers/BusTestSupport.h"

namespace Telvane
{
namespace
{

using namespace Testing;

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

TEST(Connection, ThatEndsAtOnceDoesNotDisturbTheServer)
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

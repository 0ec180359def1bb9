// A server that keeps last messages: what it keeps, within which bounds, and which requests it answers.

#include "helpers/BusClientTestSupport.h"

#include <gmock/gmock.h>

namespace Telvane
{
namespace
{

using namespace Testing;

std::function<void(EventServer&)> keeping(std::size_t channels = 1000, std::size_t bytes = 100'000)
{
    return [channels, bytes](EventServer& server) {
        EventServerMemory memory;
        memory.remembers = [](std::string_view channel) {
            return channel.substr(0, 4) == "Keep";
        };
        memory.channels = channels;
        memory.bytes = bytes;
        EXPECT_EQ(server.SetMemory(memory), 0);
    };
}

/// Publishes and waits until the server has taken it.
void publish(const RawPeer& peer, const std::string& channel, const std::string& members)
{
    peer.send(printedPublication(channel, members));
    expectNothingElse(peer);
}

void request(const RawPeer& peer, const std::string& channel, const std::string& members = "")
{
    peer.send(printedPublication("req_" + channel, members));
}

TEST(EventServerMemory, IsEmptyWithoutTheSetting)
{
    const RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "KeepA");
    const RawPeer other = running.connect();
    publish(other, "KeepA", "\"n\":\t1");
    EXPECT_EQ(sequenceOf(peer.receive()), 1);
    request(peer, "KeepA");
    expectNothingElse(peer);
}

TEST(EventServerMemory, AnswersWithTheLastMessageAndItsNumber)
{
    const RunningServer running(keeping());
    const RawPeer publisher = running.connect();
    const RawPeer listener = running.connect();
    subscribe(listener, "KeepA"); // number 0
    publish(publisher, "KeepA", "\"n\":\t1");
    publish(publisher, "KeepA", "\"n\":\t2");
    const std::string last = printedRelay("KeepA", 3, "\"n\":\t2");
    listener.receive();
    EXPECT_EQ(listener.receive(), last);

    const RawPeer late = running.connect();
    subscribe(late, "KeepA");
    request(late, "KeepA");
    EXPECT_EQ(late.receive(), last);
    expectNothingElse(listener);
}

TEST(EventServerMemory, AnswersMessagesInAnyLayout)
{
    const RunningServer running(keeping());
    const RawPeer peer = running.connect();
    subscribe(peer, "KeepA");
    peer.send(publication("KeepA", R"({"n":5})"));
    const std::string last = peer.receive();
    peer.send(publication("req_KeepA"));
    EXPECT_EQ(peer.receive(), last);
}

TEST(EventServerMemory, KeepsChannelsThatHaveNoSubscriber)
{
    const RunningServer running(keeping());
    const RawPeer publisher = running.connect();
    publish(publisher, "KeepA", "\"n\":\t1");
    publisher.send(publication("KeepB", R"({"n":2})"));
    const RawPeer late = running.connect();
    for (const char* const channel : {"KeepA", "KeepB"}) {
        subscribe(late, channel);
        request(late, channel);
        EXPECT_THAT(late.receive(), ::testing::HasSubstr(channel));
    }
}

TEST(EventServerMemory, EchoesTheIdentifierOfTheRequest)
{
    const RunningServer running(keeping());
    const RawPeer peer = running.connect();
    publish(peer, "KeepA", "\"n\":\t1,\n\t\t\"_id\":\t\"its own\"");
    subscribe(peer, "KeepA");
    request(peer, "KeepA", "\"_id\":\t\"asked\"");
    const std::string answer = peer.receive();
    EXPECT_EQ(answer, printedRelay("KeepA", sequenceOf(answer), "\"n\":\t1,\n\t\t\"_id\":\t\"asked\""));
}

TEST(EventServerMemory, LeavesRequestsToResponders)
{
    const RunningServer running(keeping());
    const RawPeer responder = running.connect();
    subscribe(responder, "req_KeepA");
    publish(responder, "KeepA", "\"n\":\t1");
    const RawPeer peer = running.connect();
    subscribe(peer, "KeepA");
    request(peer, "KeepA");
    EXPECT_THAT(responder.receive(), ::testing::HasSubstr("req_KeepA"));
    expectNothingElse(peer);
    unsubscribe(responder, "req_KeepA");
    request(peer, "KeepA");
    EXPECT_THAT(peer.receive(), ::testing::HasSubstr("\"n\":\t1"));
}

TEST(EventServerMemory, AnswersOnlySubscribersOfTheChannel)
{
    const RunningServer running(keeping());
    const RawPeer peer = running.connect();
    publish(peer, "KeepA", "\"n\":\t1");
    request(peer, "KeepA");
    expectNothingElse(peer);
    const RawPeer other = running.connect();
    subscribe(other, "KeepA");
    request(peer, "KeepA");
    expectNothingElse(peer);
    expectNothingElse(other);
}

TEST(EventServerMemory, KeepsOnlyWhatItIsAskedTo)
{
    const RunningServer running(keeping());
    const RawPeer peer = running.connect();
    for (const char* const channel : {"Other", "KeepB"}) {
        subscribe(peer, channel);
        request(peer, channel);
        expectNothingElse(peer);
    }
    publish(peer, "KeepNot.AName", "\"n\":\t1");
    peer.send(printedPublication("Other"));
    peer.receive();
    request(peer, "Other");
    expectNothingElse(peer);
}

TEST(EventServerMemory, DropsWhatWasPublishedLongestAgo)
{
    const RunningServer running(keeping(2));
    const RawPeer publisher = running.connect();
    for (const char* const channel : {"KeepA", "KeepB", "KeepA", "KeepC"}) {
        publish(publisher, channel, "\"n\":\t1");
    }
    const RawPeer late = running.connect();
    for (const char* const channel : {"KeepA", "KeepB", "KeepC"}) {
        subscribe(late, channel);
        request(late, channel);
        if (std::string(channel) == "KeepB") {
            expectNothingElse(late);
        } else {
            EXPECT_THAT(late.receive(), ::testing::HasSubstr(channel));
        }
    }
}

TEST(EventServerMemory, KeepsNoMoreBytesThanItMay)
{
    const RunningServer running(keeping(1000, 1000));
    const RawPeer publisher = running.connect();
    const std::string text(400, 'x');
    for (const char* const channel : {"KeepA", "KeepB", "KeepC"}) {
        publish(publisher, channel, "\"text\":\t\"" + text + "\"");
    }
    publish(publisher, "KeepC", "\"text\":\t\"" + text + text + text + "\"");
    const RawPeer late = running.connect();
    for (const char* const channel : {"KeepA", "KeepB", "KeepC"}) {
        subscribe(late, channel);
        request(late, channel);
        if (std::string(channel) == "KeepB") {
            EXPECT_THAT(late.receive(), ::testing::HasSubstr(channel));
        } else {
            expectNothingElse(late); // KeepC's old message would be wrong
        }
    }
}

TEST(EventServerMemory, CountsTheBytesOfARenewedMessageOnce)
{
    const RunningServer running(keeping(1000, 1000));
    const RawPeer peer = running.connect();
    for (int i = 0; i < 5; ++i) {
        publish(peer, "KeepA", "\"text\":\t\"" + std::string(400, 'x') + "\"");
    }
    subscribe(peer, "KeepA");
    request(peer, "KeepA");
    EXPECT_THAT(peer.receive(), ::testing::HasSubstr("KeepA"));
}

TEST(EventServerMemory, KeepsNoRequests)
{
    const RunningServer running([](EventServer& server) {
        EventServerMemory memory;
        memory.remembers = [](std::string_view) {
            return true;
        };
        memory.channels = 1;
        EXPECT_EQ(server.SetMemory(memory), 0);
    });
    const RawPeer peer = running.connect();
    publish(peer, "A", "\"n\":\t1");
    request(peer, "B"); // would displace the message
    subscribe(peer, "A");
    request(peer, "A");
    EXPECT_THAT(peer.receive(), ::testing::HasSubstr("\"n\":\t1"));
}

TEST(EventServerMemory, GivesAMessageWithoutARelayTheNumberOfTheLatestOne)
{
    const RunningServer running(keeping());
    const RawPeer peer = running.connect();
    subscribe(peer, "Other"); // number 0
    peer.send(printedPublication("KeepA"));
    peer.send(publication("KeepB"));
    subscribe(peer, "KeepA"); // number 1
    subscribe(peer, "KeepB");
    request(peer, "KeepA");
    EXPECT_EQ(sequenceOf(peer.receive()), 0);
    request(peer, "KeepB");
    EXPECT_EQ(sequenceOf(peer.receive()), 0);
}

TEST(EventServerMemory, CountsItsAnswersAsRelays)
{
    const RunningServer running(keeping());
    const RawPeer peer = running.connect();
    subscribe(peer, "KeepA");
    peer.send(printedPublication("KeepA", "\"n\":\t1"));
    peer.receive();
    request(peer, "KeepA");
    peer.receive();
    expectNothingElse(peer);
    const EventServerStatistics statistics = running.server.Statistics();
    EXPECT_EQ(statistics.relayed, 2U);
    EXPECT_EQ(statistics.dispatched, 4U) << "and so is the request, beside those to the server";
    EXPECT_EQ(statistics.unknownChannel, 0U);
}

TEST(LatestOfABus, IsNoGapForASubscriptionToTheSameChannel)
{
    RunningServer running([](EventServer& server) {
        EventServerMemory memory;
        memory.remembers = [](std::string_view channel) {
            return channel == "LogData";
        };
        server.SetMemory(memory);
    });
    Bus bus(running.path, impatient());
    ASSERT_EQ(bus.waitConnected(kTimeout), std::error_code());
    auto queue = bus.queue<LogData>();
    ASSERT_EQ(queue.waitActive(kTimeout), std::error_code());
    bus.publish(logOf("first"));
    ASSERT_TRUE(queue.next(kTimeout));
    ASSERT_TRUE(bus.latest<LogData>(kTimeout));
    const auto repeated = queue.next(kTimeout);
    ASSERT_TRUE(repeated);
    EXPECT_EQ(repeated->log, "first");
    EXPECT_EQ(repeated.delivery().skippedNumbers, 0U);
    bus.publish(logOf("second"));
    const auto second = queue.next(kTimeout);
    ASSERT_TRUE(second);
    EXPECT_EQ(second.delivery().skippedNumbers, 0U);
}

TEST(LatestOfABus, IsTheLastRecordOrAnError)
{
    RunningServer running([](EventServer& server) {
        EventServerMemory memory;
        memory.remembers = [](std::string_view channel) {
            return channel == "LogData";
        };
        server.SetMemory(memory);
    });
    Bus publisher(running.path, impatient());
    ASSERT_EQ(publisher.waitConnected(kTimeout), std::error_code());
    ASSERT_EQ(publisher.publish(logOf("first")).error, std::error_code());
    ASSERT_EQ(publisher.publish(logOf("last")).error, std::error_code());
    ASSERT_TRUE(eventually([&] { return running.server.Statistics().unknownChannel == 2; }));

    Bus late(running.path, impatient());
    ASSERT_EQ(late.waitConnected(kTimeout), std::error_code());
    const auto found = late.latest<LogData>(kTimeout);
    ASSERT_TRUE(found) << found.error.message();
    EXPECT_EQ(found->log, "last");
    EXPECT_EQ((*found)._id, "");
    const auto missing = late.latest<LogData>("NoSuchChannel", 10ms);
    EXPECT_FALSE(missing);
    EXPECT_EQ(missing.error, BusError::TimedOut);

    auto responder = publisher.respond<LogData>([] { return logOf("now"); });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    EXPECT_EQ(late.latest<LogData>(kTimeout)->log, "now");
}

} // namespace
} // namespace Telvane

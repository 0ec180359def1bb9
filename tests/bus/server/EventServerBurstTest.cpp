// What the server does when several packets of one client wait: it takes them together and sends each
// subscriber its share in one go. What arrives is the same as if it had taken them one by one.

#include "helpers/BusTestSupport.h"
#include "helpers/FaultInjection.h"

#include <cerrno>

namespace Telvane
{
namespace
{

using namespace Testing;

constexpr const char* kHolding = "holding";

/// A server that leaves a publisher's packets waiting until they are released.
class Burst : public ::testing::Test
{
protected:
    static int holdUp(void*, int, const std::string&, int, cJSON* payload, void* user)
    {
        const cJSON* const channel = cJSON_GetObjectItem(payload, "channel");
        if (std::string(channel->valuestring) == kHolding) {
            static_cast<Gate*>(user)->pass();
        }
        return 0;
    }

    RawPeer subscriberOf(std::initializer_list<std::string> channels)
    {
        RawPeer peer = running.connect();
        for (const std::string& channel : channels) {
            subscribe(peer, channel);
            ++sequence;
        }
        return peer;
    }

    /// From here on the publisher's packets wait, and no other client is served.
    void hold()
    {
        subscribe(publisher, kHolding); // its thread now runs the hook
        ++sequence;
    }
    void release() { gate.open(); }

    /// Publishes a payload that is relayed as it is.
    void publish(const std::string& channel, int number) const
    {
        publisher.send(printedPublication(channel, membersOf(number)));
    }
    static std::string membersOf(int number) { return "\"n\":\t" + std::to_string(number); }

    Gate gate;
    RunningServer running{[this](EventServer& server) {
        server.install_OnSubscribe(&holdUp, &gate);
    }};
    const GateOpener opener{gate};
    RawPeer publisher = running.connect();
    int sequence = 0; ///< the next to be drawn
};

TEST_F(Burst, ReachesEachSubscriberInOrder)
{
    constexpr int kMessages = 100;
    const RawPeer peers[] = {subscriberOf({"C"}), subscriberOf({"C"}), subscriberOf({"C"})};
    hold();
    for (int i = 0; i < kMessages; ++i) {
        publish("C", i);
    }
    release();
    for (const RawPeer& peer : peers) {
        for (int i = 0; i < kMessages; ++i) {
            ASSERT_EQ(peer.receive(), printedRelay("C", sequence + i, membersOf(i)));
        }
        expectNothingElse(peer);
    }
    const EventServerChannelStatus channel = running.server.Channels()[0];
    EXPECT_EQ(channel.name, "C");
    EXPECT_EQ(channel.publications, static_cast<std::uint64_t>(kMessages));
    EXPECT_EQ(channel.lastSequence, sequence + kMessages - 1);
    EXPECT_EQ(running.server.Statistics().relayed, 3U * kMessages);
    EXPECT_EQ(running.server.Statistics().received, kMessages + 7U) << "with the requests to the server";
    for (const EventServerClientStatus& client : running.server.Clients()) {
        if (!client.subscriptions.empty() && client.subscriptions[0].channel == "C") {
            EXPECT_EQ(client.subscriptions[0].relayed, static_cast<std::uint64_t>(kMessages));
        }
    }
}

TEST_F(Burst, CountsWhatASubscriberMissesForItsChannel)
{
    const RawPeer peer = subscriberOf({"A", "B"});
    hold();
    publish("A", 1);
    publish("B", 2);
    running.server.SetRelayErrorLines(false);
    const Fault fault({Call::Send, Caller::Receiver, EAGAIN, 1, 1}); // of B
    release();
    EXPECT_EQ(peer.receive(), printedRelay("A", sequence, membersOf(1)));
    expectNothingElse(publisher);
    const std::vector<EventServerChannelStatus> channels = running.server.Channels();
    ASSERT_EQ(channels.size(), 3U);
    EXPECT_EQ(channels[0].missed, 0U) << channels[0].name;
    EXPECT_EQ(channels[1].missed, 1U) << channels[1].name;
}

TEST_F(Burst, IsTakenInFewCalls)
{
    constexpr int kMessages = 64;
    const RawPeer peer = subscriberOf({"C"});
    hold();
    for (int i = 0; i < kMessages; ++i) {
        publish("C", i);
    }
    const Fault receives({Call::Receive, Caller::Receiver, 0, 0, 0});
    release();
    for (int i = 0; i < kMessages; ++i) {
        peer.receive();
    }
    expectNothingElse(publisher);
    // Two for each 16, two for the request at the end, and the one that then waits.
    EXPECT_LE(receives.calls(), 2 * kMessages / 16 + 3);
}

TEST_F(Burst, BringsASubscriberAllItsRelaysBeforeTheNextSubscriber)
{
    constexpr int kMessages = 16; // that are taken together
    const RawPeer peers[] = {subscriberOf({"C"}), subscriberOf({"C"})};
    hold();
    for (int i = 0; i < kMessages; ++i) {
        publish("C", i);
    }
    const Fault fault({Call::Send, Caller::Receiver, EAGAIN, 0, kMessages});
    const Diagnostics told = diagnosticsOf([&] {
        release();
        expectNothingElse(publisher);
    });
    EXPECT_EQ(std::count(told.error.begin(), told.error.end(), '\n'), kMessages);
    std::vector<std::uint64_t> missed;
    for (const EventServerClientStatus& client : running.server.Clients()) {
        for (const EventServerSubscriptionStatus& subscription : client.subscriptions) {
            if (subscription.channel == "C") {
                missed.push_back(subscription.missed);
                EXPECT_EQ(subscription.missed + subscription.relayed, static_cast<std::uint64_t>(kMessages));
            }
        }
    }
    std::sort(missed.begin(), missed.end());
    EXPECT_EQ(missed, (std::vector<std::uint64_t>{0, kMessages}));
    EXPECT_EQ(running.server.Statistics().relaysFailed, static_cast<std::uint64_t>(kMessages));
}

TEST_F(Burst, OnSeveralChannelsReachesEachSubscriberInOrder)
{
    const RawPeer both = subscriberOf({"A", "B"});
    const RawPeer first = subscriberOf({"A"});
    const RawPeer second = subscriberOf({"B"});
    const RawPeer third = subscriberOf({"C"});
    const std::string channels = "AABABBCAB";
    hold();
    for (int i = 0; i < 9; ++i) {
        publish(channels.substr(static_cast<std::size_t>(i), 1), i);
    }
    release();
    const std::pair<const RawPeer*, std::string> expectations[] = {
        {&both, "AB"}, {&first, "A"}, {&second, "B"}, {&third, "C"}};
    for (const auto& [peer, own] : expectations) {
        for (int i = 0; i < 9; ++i) {
            const std::string channel = channels.substr(static_cast<std::size_t>(i), 1);
            if (own.find(channel) != std::string::npos) {
                ASSERT_EQ(peer->receive(), printedRelay(channel, sequence + i, membersOf(i))) << own;
            }
        }
        expectNothingElse(*peer);
    }
}

TEST_F(Burst, HandlesRequestsInTheirPlaces)
{
    hold();
    publish("C", 1); // unknown yet: dropped without a number
    publisher.send(subscribeRequest("C"));
    publish("C", 2);
    publish("C", 3);
    publisher.send(unsubscribeRequest("C"));
    publish("C", 4); // takes a number and reaches nobody
    publisher.send(printedSubscribeRequest("C"));
    publish("C", 5);
    release();
    EXPECT_EQ(publisher.receive(), response(".subscribe", true, "C"));
    EXPECT_EQ(publisher.receive(), printedRelay("C", sequence + 1, membersOf(2)));
    EXPECT_EQ(publisher.receive(), printedRelay("C", sequence + 2, membersOf(3)));
    EXPECT_EQ(publisher.receive(), response(".unsubscribe", true, "C"));
    EXPECT_EQ(publisher.receive(), response(".subscribe", true, "C"));
    EXPECT_EQ(publisher.receive(), printedRelay("C", sequence + 6, membersOf(5)));
    expectNothingElse(publisher);
    EXPECT_EQ(running.server.Statistics().unknownChannel, 1U);
}

TEST_F(Burst, KeepsThePlacesOfWhatIsNotPrinted)
{
    const RawPeer peer = subscriberOf({"C"});
    hold();
    publish("C", 1);
    publisher.send("rubbish");
    publisher.send(publication("C", R"({"n":2})"));
    publish("C", 3);
    publisher.send(R"({"header":"C"})");
    publish("D", 4);
    publish("C", 5);
    release();
    int next = sequence;
    for (const int number : {1, 2, 3, 5}) {
        EXPECT_EQ(peer.receive(), printedRelay("C", next++, membersOf(number)));
    }
    expectNothingElse(peer);
    const EventServerStatistics counted = running.server.Statistics();
    EXPECT_EQ(counted.notJson, 1U);
    EXPECT_EQ(counted.withoutPayload, 1U);
    EXPECT_EQ(counted.unknownChannel, 1U);
    EXPECT_EQ(counted.relayed, 4U);
}

TEST_F(Burst, OfLargePacketsArrivesWhole)
{
    const RawPeer peer = subscriberOf({"C"});
    const std::string text(15000, 'x');
    hold();
    for (int i = 0; i < 10; ++i) {
        publisher.send(printedPublication("C", "\"" + text + "\":\t" + std::to_string(i)));
        publish("C", i); // small ones between
    }
    release();
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(peer.receive(),
                  printedRelay("C", sequence + 2 * i, "\"" + text + "\":\t" + std::to_string(i)));
        ASSERT_EQ(peer.receive(), printedRelay("C", sequence + 2 * i + 1, membersOf(i)));
    }
    expectNothingElse(peer);
}

TEST_F(Burst, EndsWithAPacketWithoutAByte)
{
    const RawPeer peer = subscriberOf({"C"});
    for (const int before : {0, 1, 2, 5}) {
        const RawPeer other = running.connect();
        const int first = sequence;
        for (int i = 0; i < before; ++i) {
            other.send(printedPublication("C", membersOf(i)));
        }
        other.send("");
        other.expectEnd();
        for (int i = 0; i < before; ++i) {
            EXPECT_EQ(peer.receive(), printedRelay("C", first + i, membersOf(i)));
        }
        sequence += before;
        expectNothingElse(peer);
        ++sequence;
    }
}

TEST_F(Burst, IsHandledAfterTheClientHasDisconnected)
{
    const RawPeer peer = subscriberOf({"C"});
    hold();
    for (int i = 0; i < 5; ++i) {
        publish("C", i);
    }
    publisher.send("");
    publish("C", 5); // comes too late
    release();
    publisher.expectEnd();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(peer.receive(), printedRelay("C", sequence + i, membersOf(i)));
    }
    expectNothingElse(peer);
}

TEST_F(Burst, OfMorePublishersThanThereAreBuffersReachesEverySubscriber)
{
    constexpr int kPublishers = 8;
    constexpr int kMessages = 15;
    const RawPeer peer = subscriberOf({"C"});
    std::vector<RawPeer> publishers;
    for (int i = 0; i < kPublishers; ++i) {
        publishers.push_back(running.connect());
        expectNothingElse(publishers.back());
    }
    hold();
    for (int i = 0; i < kMessages; ++i) {
        for (int from = 0; from < kPublishers; ++from) {
            publishers[static_cast<std::size_t>(from)].send(
                printedPublication("C", "\"from\":\t" + std::to_string(from) + ",\n\t\t" + membersOf(i)));
        }
    }
    release();
    std::vector<int> next(kPublishers, 0);
    for (int i = 0; i < kPublishers * kMessages; ++i) {
        const std::string relay = peer.receive();
        int from = -1;
        int number = -1;
        ASSERT_EQ(
            std::sscanf(relay.c_str() + relay.find("\"from\""), "\"from\": %d, \"n\": %d", &from, &number),
            2);
        ASSERT_EQ(number, next.at(static_cast<std::size_t>(from))++);
    }
    expectNothingElse(peer);
}

TEST(LoneMessage, IsReceivedByOneCallAndSentByOneMore)
{
    RunningServer running;
    const Fault receives({Call::Receive, Caller::Receiver, 0, 0, 0});
    const Fault sends({Call::Send, Caller::Receiver, 0, 0, 0});
    const RawPeer subscriber = running.connect();
    const RawPeer publisher = running.connect();
    subscribe(subscriber, "C");
    for (int i = 1; i <= 100; ++i) {
        publisher.send(printedPublication("C"));
        subscriber.receive();
        // Beside one for each packet there are those of two threads that wait.
        ASSERT_TRUE(eventually([&] { return receives.calls() == 1 + i + 2; }));
        ASSERT_EQ(sends.calls(), 1 + i);
    }
}

} // namespace
} // namespace Telvane

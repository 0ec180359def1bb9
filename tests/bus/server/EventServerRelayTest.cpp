// Who receives what: subscriptions, relays, sequence numbers, and subscribers that cannot keep up or go.

#include "helpers/BusTestSupport.h"

#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <vector>

namespace Telvane
{
namespace
{

using namespace Testing;

TEST(Subscription, BringsEveryPublicationOfItsChannel)
{
    RunningServer running;
    const RawPeer subscriber = running.connect();
    const RawPeer publisher = running.connect();
    subscribe(subscriber, "C");                     // 0
    publisher.send(publication("C", R"({"n":1})")); // 1
    publisher.send(publication("C", R"({"n":2})")); // 2
    EXPECT_EQ(subscriber.receive(), printedRelay("C", 1, "\"n\":\t1"));
    EXPECT_EQ(subscriber.receive(), printedRelay("C", 2, "\"n\":\t2"));
    expectNothingElse(publisher);
}

TEST(Subscription, DistinguishesLetterCase)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "Channel");        // 0
    subscribe(peer, "channel");        // 1
    unsubscribe(peer, "channel");      // 2
    peer.send(publication("channel")); // 3
    peer.send(publication("CHANNEL"));
    peer.send(publication("Channel")); // 4
    EXPECT_EQ(peer.receive(), printedRelay("Channel", 4, ""));
}

TEST(Subscription, IsNeededForTheChannelItself)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "Chan");
    for (const char* const other : {"Cha", "Channel", "Chan ", " Chan", "req_Chan"}) {
        peer.send(publication(other));
    }
    expectNothingElse(peer);
}

TEST(Subscription, TakenTwiceBringsEachRelayOnce)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    subscribe(peer, "C");
    peer.send(publication("C"));
    EXPECT_EQ(sequenceOf(peer.receive()), 2);
    expectNothingElse(peer);
    unsubscribe(peer, "C");
    peer.send(publication("C"));
    expectNothingElse(peer);
}

TEST(Subscription, OfThePublisherBringsItsOwnPublications)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    peer.send(publication("C", R"({"n":1})"));
    EXPECT_EQ(peer.receive(), printedRelay("C", 1, "\"n\":\t1"));
}

TEST(Subscription, ToTheEmptyNameBringsMessagesWithoutHeader)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "");                      // 0
    peer.send(publication("", R"({"n":1})")); // 1
    peer.send(R"({"payload":{"n":2}})");      // 2
    EXPECT_EQ(peer.receive(), printedRelay("", 1, "\"n\":\t1"));
    EXPECT_EQ(peer.receive(), printedRelay("", 2, "\"n\":\t2"));
}

TEST(Subscription, TakesEveryLetterAndTheUnderscore)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_");
}

TEST(Subscription, RefusesEveryOtherCharacter)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    for (int character = 1; character < 128; ++character) {
        const char letter = static_cast<char>(character);
        if (std::isalpha(character) != 0 || letter == '_' || letter == '"' || letter == '\\' ||
            character < 32) {
            continue; // allowed, or printed with an escape
        }
        const std::string name = std::string("a") + letter + "b";
        for (const bool subscribing : {true, false}) {
            peer.send(subscribing ? subscribeRequest(name) : unsubscribeRequest(name));
            EXPECT_EQ(peer.receive(), response(subscribing ? ".subscribe" : ".unsubscribe", false, name));
        }
        peer.send(publication(name));
    }
    expectNothingElse(peer);
}

TEST(Subscription, RefusesLettersBeyondAscii)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    peer.send(subscribeRequest("Gr\xC3\xBC\xC3\x9F"));
    EXPECT_EQ(peer.receive(), response(".subscribe", false, "Gr\xC3\xBC\xC3\x9F"));
}

TEST(Unsubscription, EndsTheRelays)
{
    RunningServer running;
    const RawPeer leaver = running.connect();
    const RawPeer stayer = running.connect();
    subscribe(leaver, "C");        // 0
    subscribe(stayer, "C");        // 1
    unsubscribe(leaver, "C");      // 2
    leaver.send(publication("C")); // 3
    EXPECT_EQ(sequenceOf(stayer.receive()), 3);
    expectNothingElse(leaver);
}

TEST(Unsubscription, SucceedsForAChannelThatOnlyOthersKnow)
{
    RunningServer running;
    const RawPeer subscriber = running.connect();
    const RawPeer other = running.connect();
    subscribe(subscriber, "C");
    unsubscribe(other, "C");
    unsubscribe(other, "C");
    other.send(publication("C"));
    EXPECT_EQ(sequenceOf(subscriber.receive()), 3);
}

TEST(Unsubscription, SucceedsForAChannelThatEverybodyLeft)
{
    RunningServer running;
    RawPeer leaver = running.connect();
    subscribe(leaver, "C");
    leaver.close();
    unsubscribe(running.connect(), "C");
}

TEST(Unsubscription, IsRefusedForAChannelThatNeverHadASubscriber)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    peer.send(publication("C"));
    peer.send(unsubscribeRequest("C"));
    EXPECT_EQ(peer.receive(), response(".unsubscribe", false, "C"));
}

TEST(SequenceNumber, IsTheSameForAllSubscribers)
{
    RunningServer running;
    const RawPeer peers[] = {running.connect(), running.connect(), running.connect()};
    for (const RawPeer& peer : peers) {
        subscribe(peer, "C");
    }
    for (int sequence = 3; sequence < 8; ++sequence) {
        peers[1].send(publication("C"));
        for (const RawPeer& peer : peers) {
            EXPECT_EQ(sequenceOf(peer.receive()), sequence);
        }
    }
}

TEST(SequenceNumber, IsSharedByAllChannels)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "A"); // 0
    subscribe(peer, "B"); // 1
    for (int sequence = 2; sequence < 8; sequence += 2) {
        peer.send(publication("A"));
        peer.send(publication("B"));
        EXPECT_EQ(sequenceOf(peer.receive()), sequence);
        EXPECT_EQ(sequenceOf(peer.receive()), sequence + 1);
    }
}

TEST(SequenceNumber, CountsMetaRequestsWhetherAcceptedRefusedOrUnusable)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");              // 0
    peer.send(subscribeRequest("C1")); // 1
    peer.receive();
    peer.send(unsubscribeRequest("D")); // 2
    peer.receive();
    peer.send(publication(".subscribe", R"({"name":"C"})"));    // 3
    peer.send(publication(".unsubscribe", R"({"channel":7})")); // 4
    peer.send(publication("C"));                                // 5
    EXPECT_EQ(sequenceOf(peer.receive()), 5);
}

TEST(SequenceNumber, DoesNotCountWhatIsDropped)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C"); // 0
    peer.send(publication("Unknown"));
    peer.send(R"({"header":"C"})");
    peer.send(R"({"header":".subscribe"})");
    peer.send(R"({"header":".other","payload":{}})");
    peer.send("rubbish");
    peer.send(publication("C")); // 1
    EXPECT_EQ(sequenceOf(peer.receive()), 1);
}

TEST(SequenceNumber, CountsPublicationsWithoutSubscribers)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");        // 0
    unsubscribe(peer, "C");      // 1
    peer.send(publication("C")); // 2
    peer.send(publication("C")); // 3
    subscribe(peer, "C");        // 4
    peer.send(publication("C")); // 5
    EXPECT_EQ(sequenceOf(peer.receive()), 5);
}

TEST(SequenceNumber, WrapsFrom65535ToZero)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");   // 0
    unsubscribe(peer, "C"); // 1
    const std::string packet = publication("C");
    for (int sequence = 2; sequence < 65533; ++sequence) {
        peer.send(packet);
    }
    subscribe(peer, "C"); // 65533
    for (const int sequence : {65534, 65535, 0, 1, 2}) {
        peer.send(packet);
        EXPECT_EQ(peer.receive(), printedRelay("C", sequence, ""));
    }
}

TEST(SequenceNumber, IsDrawnOnceForEachMessageOfManyClients)
{
    RunningServer running;
    const RawPeer subscriber = running.connect();
    subscribe(subscriber, "C"); // 0
    constexpr int kPublishers = 4;
    constexpr int kMessages = 25;
    std::vector<bool> seen(1 + kPublishers * kMessages);
    seen[0] = true;
    {
        JoiningThreads publishers;
        for (int i = 0; i < kPublishers; ++i) {
            publishers.start([peer = std::make_shared<RawPeer>(running.connect())] {
                for (int message = 0; message < kMessages; ++message) {
                    peer->send(publication("C"));
                }
            });
        }
        for (int i = 0; i < kPublishers * kMessages; ++i) {
            const auto sequence = static_cast<std::size_t>(sequenceOf(subscriber.receive()));
            ASSERT_LT(sequence, seen.size());
            EXPECT_FALSE(seen[sequence]) << sequence;
            seen[sequence] = true;
        }
    }
}

std::string relayError(int client, int result)
{
    return "RELAY ERROR to client " + std::to_string(client) + ": [" + std::to_string(result) +
           "]: " + std::strerror(-result) + "\n";
}

TEST(Relay, ToASubscriberThatDoesNotReadIsLoggedAndMissedByThatOneOnly)
{
    HookCalls connects;
    RunningServer running([&](EventServer& server) { server.install_OnConnect(recordHookCall, &connects); });
    const RawPeer sleeper = running.connect();
    const int sleepersDescriptor = connects.take().client;
    const RawPeer reader = running.connect();
    subscribe(sleeper, "C");
    subscribe(reader, "C");

    const StreamCapture error(STDERR_FILENO);
    const std::string line = relayError(sleepersDescriptor, -EAGAIN);
    int sequence = 1; // the last that was drawn
    const auto relay = [&] {
        reader.send(publication("C"));
        EXPECT_EQ(sequenceOf(reader.receive()), sequence + 1);
        expectNothingElse(reader);
        sequence += 2;
    };
    while (error.text().empty()) {
        relay();
        ASSERT_LT(sequence, 20'000) << "nothing was ever missed";
    }
    const int firstMissed = sequence - 1;
    relay();
    EXPECT_EQ(error.text(), line + line);

    // What was relayed before it fell behind is still there, and it can go on from here.
    for (int expected = 2; expected < firstMissed; expected += 2) {
        EXPECT_EQ(sequenceOf(sleeper.receive()), expected);
    }
    relay();
    EXPECT_EQ(sequenceOf(sleeper.receive()), sequence - 1);
    EXPECT_EQ(error.text(), line + line);
}

TEST(Relay, ToASubscriberThatShutItsReceivingSideIsLogged)
{
    HookCalls connects;
    RunningServer running([&](EventServer& server) { server.install_OnConnect(recordHookCall, &connects); });
    const RawPeer deaf = running.connect();
    const int deafDescriptor = connects.take().client;
    const RawPeer reader = running.connect();
    subscribe(deaf, "C");
    subscribe(reader, "C");
    deaf.shutdown(SHUT_RD);

    const StreamCapture error(STDERR_FILENO);
    reader.send(publication("C"));
    EXPECT_EQ(sequenceOf(reader.receive()), 2);
    expectNothingElse(reader);
    EXPECT_EQ(error.text(), relayError(deafDescriptor, -EPIPE));
}

TEST(Relay, EndsWithTheConnection)
{
    HookCalls departures;
    RunningServer running(
        [&](EventServer& server) { server.install_OnDisconnect(recordHookCall, &departures); });
    RawPeer leaver = running.connect();
    const RawPeer stayer = running.connect();
    subscribe(leaver, "C");
    subscribe(leaver, "D");
    subscribe(stayer, "C");
    leaver.close();
    departures.take();

    const StreamCapture error(STDERR_FILENO);
    stayer.send(publication("C")); // 3
    stayer.send(publication("D")); // 4, reaches nobody
    stayer.send(publication("C")); // 5
    EXPECT_EQ(sequenceOf(stayer.receive()), 3);
    EXPECT_EQ(sequenceOf(stayer.receive()), 5);
    EXPECT_EQ(error.text(), "");
}

/// A peer whose own descriptor is out of the way, so that the low numbers are the server's to use again.
RawPeer connectAside(const RunningServer& running)
{
    const RawPeer low = running.connect();
    return RawPeer(FileDescriptor(::fcntl(low.descriptor(), F_DUPFD_CLOEXEC, 500)));
}

TEST(Relay, NeverReachesAClientThatGotTheDescriptorOfASubscriber)
{
    HookCalls connects;
    HookCalls departures;
    RunningServer running([&](EventServer& server) {
        server.install_OnConnect(recordHookCall, &connects);
        server.install_OnDisconnect(recordHookCall, &departures);
    });
    const RawPeer publisher = running.connect();
    connects.take();
    subscribe(publisher, "C");
    for (int round = 0; round < 20; ++round) {
        RawPeer subscriber = connectAside(running);
        const int descriptor = connects.take().client;
        subscribe(subscriber, "C");
        subscriber.close();
        departures.take();

        // A listener that already waits for its next client may have set aside another number for it.
        std::vector<RawPeer> successors;
        do {
            successors.push_back(connectAside(running));
            ASSERT_LT(successors.size(), 100U);
        } while (connects.take().client != descriptor);
        publisher.send(publication("C"));
        publisher.receive();
        for (RawPeer& successor : successors) {
            expectNothingElse(successor);
            successor.close();
            departures.take();
        }
    }
}

} // namespace
} // namespace Telvane

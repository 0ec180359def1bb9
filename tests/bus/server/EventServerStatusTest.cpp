// What the server tells of its clients and channels while it goes on.

#include "helpers/BusTestSupport.h"

#include <atomic>

namespace Telvane
{
namespace
{

using namespace Testing;

std::string describe(const EventServerSubscriptionStatus& status)
{
    return status.channel + " " + std::to_string(status.relayed) + "/" + std::to_string(status.missed) + " " +
           std::to_string(status.lastError);
}

std::string describe(const EventServerChannelStatus& status)
{
    return status.name + " of " + std::to_string(status.subscribers) + ": " +
           std::to_string(status.publications) + " to #" + std::to_string(status.lastSequence);
}

template <class Status>
std::vector<std::string> describeAll(const std::vector<Status>& all)
{
    std::vector<std::string> texts(all.size());
    std::transform(all.begin(), all.end(), texts.begin(),
                   [](const Status& status) { return describe(status); });
    std::sort(texts.begin(), texts.end());
    return texts;
}

using Texts = std::vector<std::string>;

/// A server whose clients' descriptors are known.
class EventServerStatus : public ::testing::Test
{
protected:
    RawPeer connect()
    {
        RawPeer peer = running.connect();
        descriptor = connections.take().client;
        return peer;
    }

    EventServerClientStatus statusOf(int client) const
    {
        for (const EventServerClientStatus& status : running.server.Clients()) {
            if (status.descriptor == client) {
                return status;
            }
        }
        throw std::runtime_error("the server knows no such client");
    }

    HookCalls connections;
    RunningServer running{[this](EventServer& server) {
        server.install_OnConnect(&recordHookCall, &connections);
    }};
    int descriptor = -1; ///< of the client that connected last
};

TEST_F(EventServerStatus, ReportsConnectedClients)
{
    EXPECT_TRUE(running.server.Clients().empty());
    const RawPeer peer = connect();
    const EventServerClientStatus status = statusOf(descriptor);
    EXPECT_EQ(status.process, ::getpid());
    EXPECT_EQ(status.user, ::geteuid());
    EXPECT_EQ(status.group, ::getegid());
    EXPECT_EQ(status.bytesBehind, 0U);
    EXPECT_TRUE(status.subscriptions.empty());
    EXPECT_EQ(running.server.Clients().size(), 1U);
}

TEST_F(EventServerStatus, ForgetsWhoHasLeft)
{
    std::optional<RawPeer> leaving = connect();
    const RawPeer staying = connect();
    subscribe(*leaving, "C");
    subscribe(staying, "C");
    leaving.reset();
    EXPECT_TRUE(eventually([&] { return running.server.Clients().size() == 1; }));
    EXPECT_EQ(running.server.Clients()[0].descriptor, descriptor);
    EXPECT_EQ(describeAll(running.server.Channels()), Texts{"C of 1: 0 to #-1"});
}

TEST_F(EventServerStatus, CountsTheRelaysOfEachSubscription)
{
    const RawPeer first = connect();
    const int firstDescriptor = descriptor;
    const RawPeer second = connect();
    subscribe(first, "A");
    subscribe(first, "B");
    subscribe(second, "B");
    for (const char* const channel : {"A", "B", "B"}) {
        second.send(publication(channel));
    }
    EXPECT_TRUE(eventually([&] { return running.server.Statistics().relayed == 5; }));
    EXPECT_EQ(describeAll(statusOf(firstDescriptor).subscriptions), (Texts{"A 1/0 0", "B 2/0 0"}));
    EXPECT_EQ(describeAll(statusOf(descriptor).subscriptions), Texts{"B 2/0 0"});
}

TEST_F(EventServerStatus, KeepsCountsApartWhenASubscriptionEnds)
{
    const RawPeer peer = connect();
    const Texts names = {"A", "B", "C", "D"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        subscribe(peer, names[i]);
        for (std::size_t publications = 0; publications <= i; ++publications) {
            peer.send(publication(names[i]));
            peer.receive();
        }
    }
    unsubscribe(peer, "B");
    EXPECT_EQ(describeAll(statusOf(descriptor).subscriptions), (Texts{"A 1/0 0", "C 3/0 0", "D 4/0 0"}));
    unsubscribe(peer, "D");
    subscribe(peer, "B");
    peer.send(publication("B"));
    peer.receive();
    EXPECT_EQ(describeAll(statusOf(descriptor).subscriptions), (Texts{"A 1/0 0", "B 1/0 0", "C 3/0 0"}));
    for (const char* const channel : {"A", "C", "B"}) {
        unsubscribe(peer, channel);
    }
    EXPECT_TRUE(statusOf(descriptor).subscriptions.empty());
}

TEST_F(EventServerStatus, ReportsUnreadBytesAndMissedRelaysOfASubscriber)
{
    const RawPeer slow = connect();
    const int slowDescriptor = descriptor;
    const RawPeer publisher = connect();
    subscribe(slow, "C");
    std::uint64_t published = 0;
    const StreamCapture error(STDERR_FILENO);
    while (running.server.Statistics().relaysFailed < 3) {
        publisher.send(publication("C", "\"" + std::string(1000, 'x') + "\""));
        expectNothingElse(publisher);
        ++published;
    }
    EventServerClientStatus status = statusOf(slowDescriptor);
    EXPECT_GE(status.bytesBehind, 1000 * (published - 3));
    ASSERT_EQ(status.subscriptions.size(), 1U);
    EXPECT_EQ(status.subscriptions[0].relayed, published - 3);
    EXPECT_EQ(status.subscriptions[0].missed, 3U);
    EXPECT_EQ(status.subscriptions[0].lastError, -EAGAIN);
    EXPECT_EQ(running.server.Channels()[0].missed, 3U);

    for (std::uint64_t i = 0; i < published - 3; ++i) {
        slow.receive();
    }
    EXPECT_EQ(statusOf(slowDescriptor).bytesBehind, 0U);
}

TEST_F(EventServerStatus, CountsWhatIsPublishedOnEachChannel)
{
    const RawPeer peer = connect();
    subscribe(peer, "Second");
    subscribe(peer, "First");
    EXPECT_EQ(describeAll(running.server.Channels()),
              (Texts{"First of 1: 0 to #-1", "Second of 1: 0 to #-1"}));
    std::uint64_t bytes = 0;
    for (int i = 0; i < 3; ++i) {
        peer.send(publication("Second"));
        bytes += peer.receive().size();
    }
    unsubscribe(peer, "Second");
    peer.send(publication("Second"));
    bytes += printedRelay("Second", 6, "").size();
    expectNothingElse(peer);
    const std::vector<EventServerChannelStatus> channels = running.server.Channels();
    ASSERT_EQ(channels.size(), 2U);
    EXPECT_EQ(describe(channels[0]), "First of 1: 0 to #-1");
    EXPECT_EQ(describe(channels[1]), "Second of 0: 4 to #6");
    EXPECT_EQ(channels[1].bytes, bytes);
}

TEST_F(EventServerStatus, CountsWhatHasTheSizeOfTheLimitAsTooLarge)
{
    const RawPeer peer = connect();
    peer.send(std::string(kMessageLimit - 1, 'x'));
    expectNothingElse(peer);
    EXPECT_EQ(running.server.Statistics().notJson, 1U);
    EXPECT_EQ(running.server.Statistics().tooLarge, 0U);
    peer.send(std::string(kMessageLimit, 'x'));
    expectNothingElse(peer);
    EXPECT_EQ(running.server.Statistics().notJson, 1U);
    EXPECT_EQ(running.server.Statistics().tooLarge, 1U);

    subscribe(peer, "C"); // number 2
    const auto membersForRelayOf = [](std::size_t size) {
        const std::string empty = "\"a\":\t\"\"";
        const std::string padding(size - printedRelay("C", 3, empty).size(), 'x');
        return "\"a\":\t\"" + padding + "\"";
    };
    peer.send(printedPublication("C", membersForRelayOf(kMessageLimit - 1)));
    EXPECT_EQ(peer.receive().size(), kMessageLimit - 1);
    EXPECT_EQ(running.server.Statistics().relaysTooLarge, 0U);
    peer.send(printedPublication("C", membersForRelayOf(kMessageLimit)));
    EXPECT_EQ(peer.receive().size(), kMessageLimit);
    EXPECT_EQ(running.server.Statistics().relaysTooLarge, 1U);
}

TEST_F(EventServerStatus, KeepsTheChannelsWhenTheServerIsStartedAgain)
{
    {
        const RawPeer peer = connect();
        subscribe(peer, "C");
        peer.send(publication("C"));
        peer.receive();
    }
    ASSERT_EQ(running.server.Stop(), 0);
    EXPECT_TRUE(running.server.Clients().empty());
    EXPECT_EQ(describeAll(running.server.Channels()), Texts{"C of 0: 1 to #1"});
    running.start();
    EXPECT_EQ(describeAll(running.server.Channels()), Texts{"C of 0: 1 to #1"});
}

TEST_F(EventServerStatus, CanBeAskedForAtAnyTime)
{
    std::atomic<bool> done{false};
    JoiningThreads threads;
    threads.start([&] {
        std::size_t most = 0;
        while (!done) {
            for (const EventServerClientStatus& client : running.server.Clients()) {
                for (const EventServerSubscriptionStatus& subscription : client.subscriptions) {
                    EXPECT_EQ(subscription.missed, 0U);
                }
            }
            const std::size_t channels = running.server.Channels().size();
            EXPECT_GE(channels, most);
            most = channels;
        }
    });
    for (int round = 0; round < 20; ++round) {
        const RawPeer peer = running.connect();
        const std::string own = "own_" + std::string(static_cast<std::size_t>(round), 'x');
        for (const std::string& channel : {std::string("shared"), own}) {
            subscribe(peer, channel);
            peer.send(publication(channel));
            peer.receive();
        }
        unsubscribe(peer, "shared");
    }
    done = true;
    threads.join();
    EXPECT_EQ(running.server.Channels().size(), 21U);
}

constexpr std::uint64_t kUntouched = 77;

/// The counters that a program of an earlier version gets, which knew only the first few.
template <class Statistics, class Source, class Counters>
Statistics readFirst(const Source& source, const Counters& counters, std::size_t count)
{
    Statistics statistics;
    for (const auto& counter : counters) {
        statistics.*counter.member = kUntouched;
    }
    source.Statistics(statistics, count * sizeof(std::uint64_t));
    return statistics;
}

TEST(BusCounters, AreSetAsFarAsTheProgramKnowsThem)
{
    const auto ofServer = readFirst<EventServerStatistics>(EventServer(), kServerCounters, 2);
    EXPECT_EQ(ofServer.received, 0U);
    EXPECT_EQ(ofServer.dispatched, 0U);
    EXPECT_EQ(ofServer.tooLarge, kUntouched);
    const auto ofClient = readFirst<EventClientStatistics>(EventClient(), kClientCounters, 1);
    EXPECT_EQ(ofClient.received, 0U);
    EXPECT_EQ(ofClient.notJson, kUntouched);
}

TEST(BusCounters, AreLeftAsTheyAreWhereTheLibraryDoesNotKnowThem)
{
    struct
    {
        EventServerStatistics known;
        std::uint64_t unknown = kUntouched;
    } later;
    EventServer().Statistics(later.known, sizeof later);
    EXPECT_EQ(later.unknown, kUntouched);
}

TEST(BusCounters, DoNotChangeTheSizeOfWhatIsReturnedInVectors)
{
    constexpr std::size_t kCounters = 8 * sizeof(std::uint64_t);
    EXPECT_EQ(sizeof(EventServerChannelStatus),
              sizeof(std::string) + sizeof(std::size_t) + sizeof(std::size_t) + kCounters);
    EXPECT_EQ(sizeof(EventServerSubscriptionStatus), sizeof(std::string) + sizeof(std::uint64_t) + kCounters);
}

} // namespace
} // namespace Telvane

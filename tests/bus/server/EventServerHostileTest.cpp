// Clients that mean harm, or are broken enough to do it. Whatever one client does, the others are served
// on, everything is counted, and the server's memory stays within the bound that stands in the test: heap
// blocks of the C++ library and the JSON library, to which each client adds the stack of its thread.

#include "helpers/AllocationFaults.h"
#include "helpers/BusTestSupport.h"

#include <atomic>
#include <random>

namespace Telvane
{
namespace
{

using namespace Testing;

constexpr std::ptrdiff_t kKiB = 1024;

/// A server, and two clients that want nothing but to exchange their messages.
/// The thread sanitizer keeps its data of a thread on the thread's stack, which leaves too little of the default
/// size for the deepest payloads.
int provideStack([[maybe_unused]] EventServer& server)
{
#ifdef __SANITIZE_THREAD__
    return server.SetThreadStackSize(2048 * kKiB);
#else
    return 0;
#endif
}

class HostileClientOfEventServer : public ::testing::Test
{
protected:
    HostileClientOfEventServer()
    {
        subscribe(honestSubscriber, "honest");
        exchange(3); // what is kept from message to message is there before anything is measured
    }

    /// Publishes and receives \p count messages, one by one.
    void exchange(int count)
    {
        for (int i = 0; i < count; ++i) {
            honestPublisher.send(publication("honest"));
            EXPECT_NE(honestSubscriber.receive().find("\"honest\""), std::string::npos);
        }
    }

    /// Runs \p attack beside honest traffic, which goes on until it is over.
    template <class Attack>
    void exchangeDuring(Attack attack)
    {
        std::atomic<bool> over{false};
        JoiningThreads threads;
        threads.start([&] {
            attack();
            over = true;
        });
        do {
            exchange(10);
        } while (!over);
        threads.join();
        exchange(10);
    }

    EventServerStatistics statistics() const { return running.server.Statistics(); }

    /// Waits until all packets that have been sent have been handled.
    void settle(const RawPeer& peer) const
    {
        peer.send(unsubscribeRequest("nobody_ever"));
        while (peer.receive() != response(".unsubscribe", false, "nobody_ever")) {
        }
    }

    RunningServer running;
    const int stackProvided = provideStack(running.server);
    const RawPeer honestPublisher = running.connect();
    const RawPeer honestSubscriber = running.connect();
    const RawPeer hostile = running.connect();
};

std::string randomPacket(std::mt19937& random)
{
    const char* const texts[] = {"",
                                 "{",
                                 "[]",
                                 "null",
                                 "\"text\"",
                                 "1e999999",
                                 "{\"payload\":1}",
                                 "{\"header\":",
                                 "{}}",
                                 "\\u0000",
                                 "{\"header\":{},\"payload\":[]}",
                                 "{\"header\":\".subscribe\",\"payload\":{\"channel\":7}}",
                                 "{\"header\":\".unsubscribe\",\"payload\":\"channel\"}",
                                 "{\"header\":\"honest \",\"payload\":{}}",
                                 "\xff\xfe\x00"};
    std::string packet = texts[random() % std::size(texts)];
    const std::size_t noise = random() % 3 == 0 ? random() % 200 : 0;
    for (std::size_t i = 0; i < noise || packet.empty(); ++i) {
        packet.insert(packet.begin() + static_cast<std::ptrdiff_t>(random() % (packet.size() + 1)),
                      static_cast<char>(random()));
    }
    return packet;
}

TEST_F(HostileClientOfEventServer, SendsRubbish)
{
    constexpr int kPackets = 20000;
    const MemoryGauge memory;
    exchangeDuring([&] {
        std::mt19937 random(4711);
        for (int i = 0; i < kPackets; ++i) {
            hostile.send(randomPacket(random));
        }
        settle(hostile);
    });
    const EventServerStatistics counted = statistics();
    EXPECT_GE(counted.received, static_cast<std::uint64_t>(kPackets));
    EXPECT_EQ(counted.received,
              counted.notJson + counted.withoutPayload + counted.unknownChannel + counted.dispatched);
    EXPECT_GT(counted.notJson, static_cast<std::uint64_t>(kPackets / 4));
    EXPECT_LT(memory.growth(), 64 * kKiB);
    EXPECT_LT(memory.peak(), 256 * kKiB);
}

TEST_F(HostileClientOfEventServer, FloodsWithTheLargestPackets)
{
    constexpr int kPackets = 2000;
    const std::string tooLarge =
        publication("honest", "\"" + std::string(kMessageLimit, 'x') + "\"").substr(0, kMessageLimit);
    const std::string members = [] {
        std::string all;
        for (int i = 0; all.size() < 16000; ++i) {
            all += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":[{}]";
        }
        return all;
    }();
    const std::string manyNodes = publication("unheard_of", "{" + members + "}");
    ASSERT_LT(manyNodes.size(), kMessageLimit);
    const MemoryGauge memory;
    exchangeDuring([&] {
        for (int i = 0; i < kPackets; ++i) {
            hostile.send(i % 2 == 0 ? tooLarge : manyNodes);
        }
        settle(hostile);
    });
    EXPECT_EQ(statistics().tooLarge, static_cast<std::uint64_t>(kPackets / 2));
    EXPECT_EQ(statistics().unknownChannel, static_cast<std::uint64_t>(kPackets / 2));
    EXPECT_LT(memory.growth(), 64 * kKiB);
    EXPECT_LT(memory.peak(), 1024 * kKiB);
}

/// \return a payload of few bytes that prints to many: \p count members at the bottom of \p depth objects,
/// each
///         of which begins its line with as many tabs
std::string deepPayload(int depth, int count)
{
    std::string payload = "{";
    for (int i = 1; i < depth; ++i) {
        payload += "\"\":{";
    }
    for (int i = 0; i < count; ++i) {
        payload += i == 0 ? "\"\":0" : ",\"\":0";
    }
    return payload + std::string(static_cast<std::size_t>(depth), '}');
}

TEST_F(HostileClientOfEventServer, NestsPayloadsAThousandDeep)
{
    constexpr int kPackets = 300;
    subscribe(hostile, "deep");
    const std::string deep = publication("deep", deepPayload(990, 2200));
    ASSERT_LT(deep.size(), kMessageLimit);
    const MemoryGauge memory;
    exchangeDuring([&] {
        for (int i = 0; i < kPackets; ++i) {
            hostile.send(deep);
            EXPECT_EQ(hostile.receive().size(), kMessageLimit);
        }
        settle(hostile);
    });
    EXPECT_EQ(statistics().relaysTooLarge, static_cast<std::uint64_t>(kPackets));
    EXPECT_LT(memory.growth(), 128 * kKiB);
    EXPECT_LT(memory.peak(), 1024 * kKiB);

    hostile.send(publication("deep", deepPayload(1200, 1)));
    settle(hostile);
    EXPECT_EQ(statistics().notJson, 1U);
}

TEST_F(HostileClientOfEventServer, NestsPayloadsThatAreRelayedAsTheyWouldPrintUpToTheLimit)
{
    subscribe(hostile, "deep");
    const std::string payload = deepPayload(990, 2200);
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> whole(
        cJSON_Parse((R"({"header":"deep","sequence":5,"payload":)" + payload + "}").c_str()), &cJSON_Delete);
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(whole.get()), &cJSON_free);
    ASSERT_NE(text, nullptr);
    hostile.send(publication("deep", payload));
    EXPECT_TRUE(hostile.receive() == std::string(text.get(), kMessageLimit));
}

TEST_F(HostileClientOfEventServer, PublishesWhatOutgrowsTheLimitAsARelay)
{
    subscribe(hostile, "large");
    // As many bytes as arrive whole: the relay is longer by its number and its layout.
    const std::string empty = publication("large", "\"\"");
    const std::string text(kMessageLimit - 1 - empty.size(), 'x');
    hostile.send(publication("large", "\"" + text + "\""));
    const std::string begin = "{\n\t\"header\":\t\"large\",\n\t\"sequence\":\t5,\n\t\"payload\":\t\"";
    const std::string relayed = hostile.receive();
    EXPECT_EQ(relayed.size(), kMessageLimit);
    EXPECT_EQ(relayed, begin + std::string(kMessageLimit - begin.size(), 'x'));
    EXPECT_EQ(statistics().relaysTooLarge, 1U);
    EXPECT_EQ(statistics().relaysFailed, 0U);
    exchange(10);
}

TEST_F(HostileClientOfEventServer, PublishesOnChannelsNeverSeen)
{
    constexpr int kNames = 20000;
    const MemoryGauge memory;
    exchangeDuring([&] {
        for (int i = 0; i < kNames; ++i) {
            hostile.send(publication("channel " + std::to_string(i)));
        }
        settle(hostile);
    });
    EXPECT_EQ(statistics().unknownChannel, static_cast<std::uint64_t>(kNames));
    EXPECT_EQ(running.server.Channels().size(), 1U);
    EXPECT_LT(memory.growth(), 64 * kKiB);
    EXPECT_LT(memory.peak(), 256 * kKiB);
}

/// \return a name that may be subscribed to, of its own for each \p number
std::string nameOf(int number)
{
    std::string name = "hostile_";
    for (; number != 0; number /= 26) {
        name += static_cast<char>('a' + number % 26);
    }
    return name;
}

void subscribeToNames(const RawPeer& peer, int from, int to, bool granted)
{
    constexpr int kAtATime = 50; // as many answers as wait for a reader without being lost
    for (int first = from; first < to; first += kAtATime) {
        const int last = std::min(first + kAtATime, to);
        for (int i = first; i < last; ++i) {
            peer.send(subscribeRequest(nameOf(i)));
        }
        for (int i = first; i < last; ++i) {
            ASSERT_EQ(peer.receive(), response(".subscribe", granted, nameOf(i)));
        }
    }
}

TEST_F(HostileClientOfEventServer, SubscribesToNamesWithoutEndWhichCostWhatTheyHaveToCost)
{
    constexpr int kNames = 20000;
    const MemoryGauge memory;
    exchangeDuring([&] { subscribeToNames(hostile, 0, kNames, true); });
    EXPECT_EQ(running.server.Channels().size(), kNames + 1U);
    // Nothing in the bus bounds this, but a name and its subscription cost no more than half a KiB ...
    EXPECT_LT(memory.growth() / kNames, 512);
    // ... of which the name stays when its subscriber has gone.
    const std::ptrdiff_t subscribed = memory.growth();
    hostile.shutdown(SHUT_RDWR);
    EXPECT_TRUE(eventually([&] { return running.server.Clients().size() == 2; }));
    EXPECT_LT(memory.growth(), subscribed);
    exchange(10);
}

TEST_F(HostileClientOfEventServer, SubscribesToNamesWithoutEndAndIsHeldToALimit)
{
    constexpr int kNames = 20000;
    constexpr int kAllowed = 100;
    EventServerLimits limits;
    limits.channels = kAllowed + 1;
    running.server.SetLimits(limits);
    const StreamCapture error(STDERR_FILENO);
    subscribeToNames(hostile, 0, kAllowed, true);
    const MemoryGauge memory;
    exchangeDuring([&] { subscribeToNames(hostile, kAllowed, kNames, false); });
    EXPECT_EQ(statistics().subscriptionsRefused, static_cast<std::uint64_t>(kNames - kAllowed));
    EXPECT_EQ(running.server.Channels().size(), kAllowed + 1U);
    EXPECT_LT(memory.growth(), 64 * kKiB);
    EXPECT_LT(memory.peak(), 256 * kKiB);
}

TEST_F(HostileClientOfEventServer, ConnectsAndDisconnectsWithoutALeak)
{
    settle(hostile); // the server has accepted it
    const std::size_t descriptors = openDescriptors();
    const std::size_t threads = runningThreads();
    const MemoryGauge memory;
    exchangeDuring([&] {
        for (int i = 0; i < 500; ++i) {
            const RawPeer peer = running.connect();
            peer.send(subscribeRequest("honest"));
        }
    });
    EXPECT_TRUE(
        eventually([&] { return openDescriptors() == descriptors && running.server.Clients().size() == 3; }));
    exchange(10);
    // The listener joins threads that have ended when it has accepted the next client.
    expectNothingElse(running.connect());
    EXPECT_TRUE(eventually([&] { return runningThreads() <= threads + 2; }));
    EXPECT_LT(memory.growth(), 64 * kKiB);
}

TEST_F(HostileClientOfEventServer, SubscribesAndNeverReads)
{
    constexpr int kMessages = 5000;
    const StreamCapture error(STDERR_FILENO);
    subscribe(hostile, "honest");
    const std::uint64_t before = statistics().relayed + statistics().relaysFailed;
    const MemoryGauge memory;
    exchange(kMessages);
    settle(honestPublisher);
    const EventServerStatistics counted = statistics();
    EXPECT_EQ(counted.relayed + counted.relaysFailed - before, 2U * kMessages);
    EXPECT_GT(counted.relaysFailed, kMessages / 2U);
    std::uint64_t missed = 0;
    for (const EventServerClientStatus& client : running.server.Clients()) {
        for (const EventServerSubscriptionStatus& subscription : client.subscriptions) {
            missed += subscription.missed;
            EXPECT_TRUE(subscription.lastError == 0 || subscription.lastError == -EAGAIN);
        }
    }
    EXPECT_EQ(missed, counted.relaysFailed);
    EXPECT_LT(memory.growth(), 256 * kKiB); // what has been written to standard error is held by the test
}

TEST_F(HostileClientOfEventServer, AsksWithoutEndAndNeverReadsTheAnswers)
{
    const MemoryGauge memory;
    exchangeDuring([&] {
        for (int i = 0; i < 20000; ++i) {
            hostile.send(i % 2 == 0 ? subscribeRequest("honest") : unsubscribeRequest("honest"));
        }
    });
    EXPECT_LT(memory.peak(), 256 * kKiB);
}

} // namespace
} // namespace Telvane

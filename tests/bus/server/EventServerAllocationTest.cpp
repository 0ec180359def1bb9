// The server while memory runs out: every allocation of every operation fails once, alone and for good, on
// the thread that makes it. It does not die of it, what is lost is told or counted, and with memory back the
// next call does all that it should.

#include "helpers/BusMemorySupport.h"

#include <Telvane/EventServer.h>

#include <unistd.h>

namespace Telvane
{
namespace
{

using namespace Testing;

/// What the server does.
class ServerMemory : public UnderShortage
{
protected:
    /// Sends \p packet while the thread that handles it runs out of memory.
    static void sendDuring(AllocationFault& fault, Progress& receiving, const RawPeer& peer,
                           const std::string& packet)
    {
        fault.begin();
        EXPECT_TRUE(receiving.afterNextCallOf([&] { peer.send(packet); }));
        fault.end();
    }

    /// Connects a peer and waits until its thread has come to receive.
    static RawPeer connect(const RunningServer& running, Progress& receiving)
    {
        std::optional<RawPeer> peer;
        EXPECT_TRUE(receiving.afterNextCallOf([&] { peer.emplace(running.connect()); }));
        return std::move(*peer);
    }

    static void subscribeAndSettle(const RawPeer& peer, Progress& receiving, const std::string& channel)
    {
        EXPECT_TRUE(receiving.afterNextCallOf([&] { subscribe(peer, channel); }));
    }

    /// \return the answers that \p peer has got so far
    static std::vector<std::string> answers(const RawPeer& peer, Progress& receiving)
    {
        std::vector<std::string> all;
        const std::string last = response(".unsubscribe", false, "nobody_ever");
        EXPECT_TRUE(receiving.afterNextCallOf([&] { peer.send(unsubscribeRequest("nobody_ever")); }));
        for (std::string packet = peer.receive(); packet != last; packet = peer.receive()) {
            all.push_back(packet);
        }
        return all;
    }

    /// \return how many subscriptions the channels count; the clients' own lists hold as many
    static std::size_t subscriptions(const EventServer& server)
    {
        std::size_t counted = 0;
        for (const EventServerChannelStatus& channel : server.Channels()) {
            counted += channel.subscribers;
        }
        std::size_t listed = 0;
        for (const EventServerClientStatus& client : server.Clients()) {
            listed += client.subscriptions.size();
        }
        EXPECT_EQ(counted, listed);
        return counted;
    }
};

INSTANTIATE_TEST_SUITE_P(Memory, ServerMemory, ::testing::Values(Shortage::Once, Shortage::Persistent),
                         nameOfShortage);

TEST_P(ServerMemory, RunsOutInStart)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    EventServer server;
    const std::size_t descriptors = openDescriptors();
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const int result = fault.during([&] { return server.Start(path); });
        EXPECT_EQ(result, fault.triggered() ? -ENOMEM : 0);
        EXPECT_EQ(server.IsStarted(), result == 0);
        if (result != 0) {
            EXPECT_EQ(openDescriptors(), descriptors);
            ASSERT_EQ(server.Start(path), 0);
        }
        expectNothingElse(RawPeer::connectedTo(path));
        EXPECT_EQ(server.Stop(), 0);
    });
}

TEST_P(ServerMemory, IsNotNeededToReportWhyStartFailed)
{
    const TemporaryDirectory directory;
    EventServer server;
    const std::string path = directory.path("none/bus");
    std::string lines;
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const StreamCapture error(STDERR_FILENO);
        const int result = fault.during([&] { return server.Start(path); });
        EXPECT_TRUE(result == -1 || (fault.triggered() && result == -ENOMEM)) << result;
        EXPECT_EQ(error.text().empty(), result == -ENOMEM);
        lines += error.text();
    });
    EXPECT_NE(lines.find("An error occurred while binding the local socket: [2] No such file"),
              std::string::npos);
}

TEST_P(ServerMemory, RunsOutWhenAClientConnects)
{
    Progress accepting(Call::Accept, Caller::Listener);
    std::optional<RunningServer> running;
    EXPECT_TRUE(accepting.afterNextCallOf([&] { running.emplace(); }));
    failEach(Caller::Listener, [&](AllocationFault& fault) {
        fault.begin();
        std::optional<RawPeer> peer;
        EXPECT_TRUE(accepting.afterNextCallOf([&] { peer.emplace(running->connect()); }));
        fault.end();
        if (fault.triggered()) {
            peer->expectEnd();
        } else {
            expectNothingElse(*peer);
        }
        EXPECT_TRUE(accepting.afterNextCallOf([&] { expectNothingElse(running->connect()); }));
    });
}

TEST_P(ServerMemory, IsNotNeededWhenAClientDisconnectsOrTheServerStops)
{
    std::atomic<int> leaving{0};
    RunningServer running([&](EventServer& server) {
        server.install_OnDisconnect([](void*, int, const std::string&, int, cJSON*,
                                       void* user) { return ++*static_cast<std::atomic<int>*>(user); },
                                    &leaving);
    });
    RawPeer first = running.connect();
    const RawPeer second = running.connect();
    subscribe(first, kChannel);
    subscribe(second, kChannel);
    {
        AllocationFault fault(Caller::Receiver, 1, GetParam());
        fault.begin();
        first.close();
        EXPECT_TRUE(eventually([&] { return leaving == 1; }));
        fault.end();
        EXPECT_FALSE(fault.triggered());
    }
    AllocationFault fault(Caller::Application, 1, GetParam());
    EXPECT_EQ(fault.during([&] { return running.server.Stop(); }), 0);
    EXPECT_FALSE(fault.triggered());
    second.expectEnd();
}

TEST_P(ServerMemory, RunsOutInASubscription)
{
    int refused = 0;
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        const RawPeer peer = connect(running, receiving);
        const RawPeer publisher = connect(running, receiving);
        sendDuring(fault, receiving, peer, subscribeRequest(kChannel));
        const std::vector<std::string> told = answers(peer, receiving);
        const std::string granted = response(".subscribe", true, kChannel);
        if (!fault.triggered()) {
            EXPECT_EQ(told, std::vector<std::string>{granted});
        } else if (!told.empty()) {
            EXPECT_EQ(told.size(), 1U);
            EXPECT_TRUE(told[0] == granted || told[0] == response(".subscribe", false, kChannel)) << told[0];
            refused += told[0] != granted ? 1 : 0;
            EXPECT_EQ(subscriptions(running.server), told[0] == granted ? 1U : 0U);
        }
        if (told.empty() || told[0] != granted) {
            subscribeAndSettle(peer, receiving, kChannel);
        }
        EXPECT_EQ(subscriptions(running.server), 1U);
        publisher.send(publication(kChannel));
        EXPECT_NE(peer.receive().find(kChannel), std::string::npos);
        EXPECT_TRUE(answers(peer, receiving).empty());
    });
    // Whoever can be answered hears that there is no room for it.
    EXPECT_EQ(refused != 0, GetParam() == Shortage::Once);
}

TEST_P(ServerMemory, RunsOutInAnUnsubscription)
{
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        const RawPeer peer = connect(running, receiving);
        const RawPeer publisher = connect(running, receiving);
        subscribeAndSettle(peer, receiving, kChannel);
        sendDuring(fault, receiving, peer, unsubscribeRequest(kChannel));
        const std::vector<std::string> told = answers(peer, receiving);
        if (told.empty()) {
            EXPECT_TRUE(fault.triggered());
            unsubscribe(peer, kChannel);
        } else {
            EXPECT_EQ(told[0], response(".unsubscribe", true, kChannel));
        }
        EXPECT_TRUE(receiving.afterNextCallOf([&] { publisher.send(publication(kChannel)); }));
        expectNothingElse(peer);
    });
}

TEST_P(ServerMemory, RunsOutInARelayWhichIsThenCountedAsLost)
{
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        const RawPeer first = connect(running, receiving);
        const RawPeer second = connect(running, receiving);
        const RawPeer publisher = connect(running, receiving);
        subscribeAndSettle(first, receiving, kChannel);
        subscribeAndSettle(second, receiving, kChannel);
        sendDuring(
            fault, receiving, publisher,
            publication(kChannel, R"({"text":"more than sixteen characters","numbers":[1.5,-2,1e300]})"));
        const EventServerStatistics statistics = running.server.Statistics();
        const std::size_t got = answers(first, receiving).size();
        EXPECT_EQ(answers(second, receiving).size(), got);
        EXPECT_EQ(statistics.relayed, 2 * got);
        EXPECT_EQ(statistics.outOfMemory + statistics.notJson + got, 1U);
        EXPECT_TRUE(got == 1 || fault.triggered());

        EXPECT_TRUE(receiving.afterNextCallOf([&] { publisher.send(publication(kChannel)); }));
        EXPECT_EQ(answers(first, receiving).size(), 1U);
        EXPECT_EQ(answers(second, receiving).size(), 1U);
    });
}

TEST_P(ServerMemory, IsNotNeededToReportAFailedRelay)
{
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        const RawPeer first = connect(running, receiving);
        const RawPeer second = connect(running, receiving);
        const RawPeer publisher = connect(running, receiving);
        subscribeAndSettle(first, receiving, kChannel);
        subscribeAndSettle(second, receiving, kChannel);
        const StreamCapture error(STDERR_FILENO);
        std::size_t blocked = 0;
        {
            const Fault full({Call::Send, Caller::Receiver, EAGAIN});
            sendDuring(fault, receiving, publisher, publication(kChannel));
            blocked = static_cast<std::size_t>(full.failures());
        }
        const std::size_t got = answers(first, receiving).size() + answers(second, receiving).size();
        EXPECT_EQ(got, blocked);
        EXPECT_EQ(running.server.Statistics().relaysFailed, blocked);
        EXPECT_EQ(error.text().find("]: Resource temporarily unavailable\n") != std::string::npos,
                  blocked == 1)
            << error.text();
        EXPECT_TRUE(got == 1 || fault.triggered());
    });
}

TEST_P(ServerMemory, RunsOutWhileTheServerReportsItsStatus)
{
    RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, kChannel);
    subscribe(peer, "another_" + kChannel);
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const auto clients = fault.during([&] { return running.server.Clients(); });
        EXPECT_EQ(clients.size(), fault.triggered() ? 0U : 1U);
        ASSERT_EQ(running.server.Clients().size(), 1U);
        EXPECT_EQ(running.server.Clients()[0].subscriptions.size(), 2U);
    });
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const auto channels = fault.during([&] { return running.server.Channels(); });
        EXPECT_EQ(channels.size(), fault.triggered() ? 0U : 2U);
        EXPECT_EQ(running.server.Channels().size(), 2U);
    });
}

TEST_P(ServerMemory, IsNotNeededToRefuseAClient)
{
    Progress accepting(Call::Accept, Caller::Listener);
    std::optional<RunningServer> running;
    EXPECT_TRUE(accepting.afterNextCallOf([&] { running.emplace(); }));
    EventServerLimits limits;
    limits.groups = {::getegid() + 1};
    running->server.SetLimits(limits);
    std::uint64_t refused = 0;
    failEach(Caller::Listener, [&](AllocationFault& fault) {
        const StreamCapture error(STDERR_FILENO);
        fault.begin();
        std::optional<RawPeer> peer;
        EXPECT_TRUE(accepting.afterNextCallOf([&] { peer.emplace(running->connect()); }));
        fault.end();
        peer->expectEnd();
        EXPECT_EQ(running->server.Statistics().connectionsRefused, ++refused);
        EXPECT_EQ(error.text().rfind("REFUSED ", 0), 0U);
        EXPECT_NE(error.text().find("neither its user nor one of its groups is allowed\n"),
                  std::string::npos);
    });
}

TEST_P(ServerMemory, IsNotNeededToRefuseASubscription)
{
    failEach(Caller::Receiver, [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running;
        EventServerLimits limits;
        limits.channels = 1;
        running.server.SetLimits(limits);
        const RawPeer peer = connect(running, receiving);
        subscribeAndSettle(peer, receiving, kChannel);
        const StreamCapture error(STDERR_FILENO);
        sendDuring(fault, receiving, peer, subscribeRequest("another_" + kChannel));
        for (const std::string& told : answers(peer, receiving)) {
            EXPECT_EQ(told, response(".subscribe", false, "another_" + kChannel));
        }
        EXPECT_EQ(running.server.Channels().size(), 1U);
        EXPECT_EQ(error.text().empty(), running.server.Statistics().subscriptionsRefused == 0);
        EXPECT_TRUE(fault.triggered() || !error.text().empty());
    });
}

} // namespace
} // namespace Telvane

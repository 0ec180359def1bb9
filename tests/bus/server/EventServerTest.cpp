// Starting and stopping the server. Hooks, relays and the bytes on the wire have test files of their own.

#include "helpers/BusTestSupport.h"

#include <csignal>
#include <sys/stat.h>

namespace Telvane
{
namespace
{

using namespace Testing;

bool exists(const std::string& path)
{
    return std::filesystem::symlink_status(path).type() != std::filesystem::file_type::not_found;
}

ino_t inodeOf(const std::string& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

/// Leaves a socket file behind that nobody serves.
void leaveStaleSocket(const std::string& path)
{
    RawServer(path).close();
    ASSERT_TRUE(exists(path));
}

std::string bindingError(int result, int line, int code)
{
    return "ERROR (" + std::to_string(result) + ") @ TelvaneLib/EventServer." + std::to_string(line) +
           "-> An error occurred while binding the local socket: [" + std::to_string(code) + "] " +
           std::strerror(code) + "\n";
}

TEST(EventServerStart, MakesASocketThatClientsReach)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    EventServer server;
    EXPECT_FALSE(server.IsStarted());
    const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(path), 0); });
    EXPECT_EQ(told.output + told.error, "");
    EXPECT_TRUE(server.IsStarted());
    EXPECT_TRUE(std::filesystem::is_socket(path));
    const RawPeer peer = RawPeer::connectedTo(path);
    subscribe(peer, "C");
    EXPECT_EQ(server.Stop(), 0);
}

TEST(EventServerStart, ReturnsMinusOneIfStartedAndContinuesToServe)
{
    RunningServer running;
    const RawPeer early = running.connect();
    subscribe(early, "C");
    EXPECT_EQ(running.server.Start(running.path), -1);
    EXPECT_EQ(running.server.Start(running.directory.path("other")), -1);
    EXPECT_FALSE(exists(running.directory.path("other")));
    EXPECT_TRUE(running.server.IsStarted());
    expectNothingElse(early);
    expectNothingElse(running.connect());
}

TEST(EventServerStart, ReplacesAStaleSocketFile)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    leaveStaleSocket(path);
    EventServer server;
    const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(path), 0); });
    EXPECT_EQ(told.output + told.error, "");
    expectNothingElse(RawPeer::connectedTo(path));
    EXPECT_EQ(server.Stop(), 0);
}

TEST(EventServerStart, ReplacesAnyFileWithoutAServer)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    std::fclose(std::fopen(path.c_str(), "w"));
    EventServer server;
    EXPECT_EQ(server.Start(path), 0);
    EXPECT_TRUE(std::filesystem::is_socket(path));
    EXPECT_EQ(server.Stop(), 0);
}

TEST(EventServerStart, RefusesThePathOfARunningServerWithoutChangingIt)
{
    RunningServer running;
    const RawPeer early = running.connect();
    subscribe(early, "C");
    const ino_t inode = inodeOf(running.path);
    EventServer second;
    const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(second.Start(running.path), -EADDRINUSE); });
    EXPECT_EQ(told.output + told.error, "");
    EXPECT_FALSE(second.IsStarted());
    EXPECT_EQ(inodeOf(running.path), inode);
    expectNothingElse(early);
    expectNothingElse(running.connect());
    EXPECT_EQ(second.Stop(), -ENOTCONN);
    EXPECT_TRUE(exists(running.path));
}

TEST(EventServerStart, RefusesThePathOfALiveServerOfAnotherKind)
{
    const TemporaryDirectory directory;
    const RawServer other(directory.path("bus"));
    EventServer server;
    EXPECT_EQ(server.Start(other.path()), -EADDRINUSE);
    EXPECT_TRUE(exists(other.path()));
}

TEST(EventServerStart, RefusesThePathOfASuspendedServerWithAFullBacklogAtOnce)
{
    const TemporaryDirectory directory;
    const RawServer other(directory.path("bus"));
    std::vector<FileDescriptor> waiting;
    int connected = 0;
    while (connected == 0) {
        waiting.emplace_back(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const sockaddr_un address = addressOf(other.path());
        connected =
            ::connect(waiting.back().get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    ASSERT_EQ(errno, EAGAIN);
    EventServer server;
    EXPECT_EQ(server.Start(other.path()), -EADDRINUSE);
    EXPECT_TRUE(exists(other.path()));
}

TEST(EventServerStart, TakesOverAPathWhenItsServerHasStopped)
{
    RunningServer running;
    EventServer second;
    EXPECT_EQ(second.Start(running.path), -EADDRINUSE);
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_EQ(second.Start(running.path), 0);
    EXPECT_EQ(running.server.Start(running.path), -EADDRINUSE);
    expectNothingElse(RawPeer::connectedTo(running.path));
    EXPECT_EQ(second.Stop(), 0);
}

TEST(EventServerStart, ReportsAFailedBind)
{
    const TemporaryDirectory directory;
    EventServer server;
    const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(directory.path("none/bus")), -1); });
    EXPECT_EQ(told.error, bindingError(-1, 298, ENOENT));
    EXPECT_EQ(told.output, "");
    EXPECT_FALSE(server.IsStarted());
    EXPECT_EQ(server.Stop(), -ENOTCONN);
}

TEST(EventServerStart, ReportsABindToAPathThatCannotBeRemoved)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    std::filesystem::create_directory(path);
    EventServer server;
    const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(server.Start(path), -1); });
    EXPECT_EQ(told.error, bindingError(-1, 298, EADDRINUSE));
    EXPECT_TRUE(std::filesystem::is_directory(path));
}

TEST(EventServerStart, SucceedsAfterOneThatFailed)
{
    const TemporaryDirectory directory;
    EventServer server;
    const std::size_t before = openDescriptors();
    diagnosticsOf([&] { EXPECT_EQ(server.Start(directory.path("none/bus")), -1); });
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(server.Start(directory.path("bus")), 0);
    expectNothingElse(RawPeer::connectedTo(directory.path("bus")));
    EXPECT_EQ(server.Stop(), 0);
}

TEST(EventServerStart, TakesAPathOf107Characters)
{
    const TemporaryDirectory directory;
    std::string path = directory.path("bus");
    path.append(107 - path.size(), 'x');
    EventServer server;
    EXPECT_EQ(server.Start(path), 0);
    EXPECT_TRUE(exists(path));
    EXPECT_EQ(server.Stop(), 0);
    EXPECT_FALSE(exists(path));
}

TEST(EventServerStartDeathTest, EndsTheProcessForAPathThatDoesNotFit)
{
    const std::string path = "/tmp/" + std::string(103, 'x');
    ASSERT_EQ(path.size(), 108U);
    EXPECT_EXIT(EventServer().Start(path), ::testing::KilledBySignal(SIGABRT), "");
}

TEST(EventServerStop, ReturnsNotConnectedWhenNeverStarted)
{
    EventServer server;
    EXPECT_EQ(server.Stop(), -ENOTCONN);
}

TEST(EventServerStop, ReturnsNotConnectedTheSecondTime)
{
    RunningServer running;
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_FALSE(running.server.IsStarted());
    EXPECT_EQ(running.server.Stop(), -ENOTCONN);
}

TEST(EventServerStop, RemovesTheSocketFileAndEndsEveryConnection)
{
    RunningServer running;
    std::vector<RawPeer> peers;
    for (int i = 0; i < 5; ++i) {
        peers.push_back(running.connect());
        subscribe(peers.back(), "C");
    }
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_FALSE(exists(running.path));
    for (const RawPeer& peer : peers) {
        peer.expectEnd();
    }
}

TEST(EventServerStop, LeaksNoDescriptorAndNoThread)
{
    const TemporaryDirectory directory;
    const auto serveForAWhile = [&directory] {
        EventServer server;
        ASSERT_EQ(server.Start(directory.path("bus")), 0);
        const RawPeer stays = RawPeer::connectedTo(directory.path("bus"));
        RawPeer leaves = RawPeer::connectedTo(directory.path("bus"));
        subscribe(stays, "C");
        subscribe(leaves, "C");
        leaves.close();
        EXPECT_EQ(server.Stop(), 0);
    };
    serveForAWhile(); // sanitizers keep a thread of their own from the first thread on
    const std::size_t descriptors = openDescriptors();
    const std::size_t threads = runningThreads();
    serveForAWhile();
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(eventually([&] { return runningThreads() <= threads; }));
}

TEST(EventServerStop, EndsAServerThatIsBusyRelaying)
{
    const StreamCapture missedRelays(STDERR_FILENO);
    JoiningThreads publishers;
    RunningServer running;
    const RawPeer subscriber = running.connect();
    subscribe(subscriber, "C");
    for (int i = 0; i < 4; ++i) {
        publishers.start([peer = std::make_shared<RawPeer>(running.connect())] {
            const std::string packet = publication("C");
            while (::send(peer->descriptor(), packet.data(), packet.size(), MSG_EOR | MSG_NOSIGNAL) > 0) {
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        subscriber.receive();
    }
    EXPECT_EQ(running.server.Stop(), 0);
    publishers.join();
}

TEST(EventServerStartAndStop, WorkTwentyTimesOver)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    EventServer server;
    const std::size_t descriptors = openDescriptors();
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(server.Start(path), 0) << round;
        const RawPeer stays = RawPeer::connectedTo(path);
        const RawPeer publisher = RawPeer::connectedTo(path);
        subscribe(stays, "C");
        publisher.send(publication("C"));
        EXPECT_EQ(sequenceOf(stays.receive()), 2 * round + 1);
        ASSERT_EQ(server.Stop(), 0) << round;
        ASSERT_FALSE(server.IsStarted());
        ASSERT_FALSE(exists(path));
        stays.expectEnd();
        publisher.expectEnd();
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(EventServerStartAndStop, WorkOnAnotherPathEachTime)
{
    const TemporaryDirectory directory;
    EventServer server;
    for (const char* const name : {"one", "two", "three"}) {
        ASSERT_EQ(server.Start(directory.path(name)), 0);
        expectNothingElse(RawPeer::connectedTo(directory.path(name)));
        ASSERT_EQ(server.Stop(), 0);
        EXPECT_FALSE(exists(directory.path(name)));
    }
}

TEST(EventServerRestart, KeepsSequenceAndChannelsButNoSubscribers)
{
    RunningServer running;
    const RawPeer before = running.connect();
    subscribe(before, "C");        // 0
    before.send(publication("C")); // 1
    EXPECT_EQ(sequenceOf(before.receive()), 1);
    ASSERT_EQ(running.server.Stop(), 0);
    running.start();

    const RawPeer after = running.connect();
    after.send(publication("C"));        // 2, since the channel is still known
    after.send(unsubscribeRequest("C")); // 3
    EXPECT_EQ(after.receive(), response(".unsubscribe", true, "C"));
    subscribe(after, "C");                      // 4
    after.send(publication("C", R"({"n":1})")); // 5
    EXPECT_EQ(after.receive(), printedRelay("C", 5, "\"n\":\t1"));
}

TEST(EventServers, OfOneProcessDoNotKnowEachOther)
{
    RunningServer one;
    RunningServer other;
    const RawPeer ofOne = one.connect();
    const RawPeer ofOther = other.connect();
    subscribe(ofOne, "C");
    subscribe(ofOther, "C");
    ofOne.send(publication("C"));
    EXPECT_EQ(sequenceOf(ofOne.receive()), 1);
    expectNothingElse(ofOther);
}

TEST(EventServer, ServesTwoHundredClients)
{
    RunningServer running;
    constexpr int kPeers = 200;
    std::vector<RawPeer> peers;
    peers.reserve(kPeers);
    for (int i = 0; i < kPeers; ++i) {
        peers.push_back(running.connect());
    }
    for (const RawPeer& peer : peers) {
        peer.send(subscribeRequest("C"));
    }
    for (const RawPeer& peer : peers) {
        EXPECT_EQ(peer.receive(), response(".subscribe", true, "C"));
    }
    peers.front().send(publication("C", R"({"n":1})"));
    for (const RawPeer& peer : peers) {
        EXPECT_EQ(peer.receive(), printedRelay("C", 200, "\"n\":\t1"));
    }
    EXPECT_EQ(running.server.Stop(), 0);
    for (const RawPeer& peer : peers) {
        peer.expectEnd();
    }
}

TEST(EventServer, ServesClientsThatConnectAndDisconnect)
{
    HookCalls disconnects;
    RunningServer running(
        [&](EventServer& server) { server.install_OnDisconnect(recordHookCall, &disconnects); });
    const std::size_t threads = runningThreads();
    for (int i = 0; i < 200; ++i) {
        const RawPeer peer = running.connect();
        subscribe(peer, "C");
    }
    for (int i = 0; i < 200; ++i) {
        disconnects.take();
    }
    expectNothingElse(running.connect());
    EXPECT_TRUE(eventually([&] { return runningThreads() <= threads + 1; }));
}

struct Blocker
{
    Gate entered;
    Gate released;
};

int blockUntilReleased(void*, int, const std::string&, int, cJSON*, void* user)
{
    auto* const blocker = static_cast<Blocker*>(user);
    blocker->entered.open();
    blocker->released.pass();
    return 0;
}

TEST(EventServerStop, TimesOutOnAReceiverThreadThatDoesNotEnd)
{
    Blocker blocker;
    RunningServer running(
        [&](EventServer& server) { server.install_OnSubscribe(blockUntilReleased, &blocker); });
    const GateOpener opener(blocker.released);
    const RawPeer peer = running.connect();
    peer.send(subscribeRequest("C"));
    ASSERT_TRUE(blocker.entered.pass());
    running.patience.reset();
    EXPECT_EQ(running.server.Stop(), -ETIMEDOUT);
    EXPECT_FALSE(running.server.IsStarted());
    EXPECT_FALSE(exists(running.path));
    EXPECT_EQ(running.server.Stop(), -ENOTCONN);

    blocker.released.open();
    EXPECT_EQ(running.server.Start(running.path), 0);
    expectNothingElse(running.connect());
    EXPECT_EQ(running.server.Stop(), 0);
}

} // namespace
} // namespace Telvane

// What the sockets of the bus are to the system, seen from the server and the client that have them.

#include "transport/SeqpacketSocket.h"
#include "helpers/FaultInjection.h"

#include <fcntl.h>
#include <grp.h>
#include <map>
#include <numeric>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Telvane
{
namespace
{

using namespace Testing;

TEST(ServerSocket, SendsWholeRecordsWithoutWaitingAndWithoutASignal)
{
    const RunningServer running;
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    EXPECT_EQ(flagsOfLastSend(Caller::Receiver), MSG_DONTWAIT | MSG_EOR | MSG_NOSIGNAL);
    peer.send(publication("C"));
    peer.receive();
    EXPECT_EQ(flagsOfLastSend(Caller::Receiver), MSG_DONTWAIT | MSG_EOR | MSG_NOSIGNAL);
}

TEST_F(ClientOfRawServer, SendsWholeRecordsWaitingAndWithoutASignal)
{
    RequestType record;
    EXPECT_EQ(client.Publish("C", record), 0);
    EXPECT_EQ(flagsOfLastSend(Caller::Application), MSG_EOR | MSG_NOSIGNAL);
}

TEST(PeerGroups, AreUnknownWithoutAPeer)
{
    std::vector<gid_t> groups = {1};
    EXPECT_FALSE(peerGroups(-1, groups));
    EXPECT_TRUE(groups.empty());
}

TEST(PeerGroups, AreKnownForPeersWithMoreThanTheUsualNumber)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can set its groups";
    }
    EXPECT_TRUE(holdsInChild([] {
        std::vector<gid_t> groups(40);
        std::iota(groups.begin(), groups.end(), gid_t{50000});
        int ends[2] = {-1, -1};
        const bool ready = ::setgroups(groups.size(), groups.data()) == 0 &&
                           ::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0;
        std::vector<gid_t> found;
        return ready && peerGroups(ends[0], found) && found == groups;
    }));
}

/// \return what is open, with its flags
std::map<int, int> descriptors()
{
    std::vector<int> listed;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        listed.push_back(std::stoi(entry.path().filename()));
    }
    std::map<int, int> open;
    for (const int descriptor : listed) {
        const int flags = ::fcntl(descriptor, F_GETFD);
        if (flags >= 0) { // not the one that the list was read by
            open[descriptor] = flags;
        }
    }
    return open;
}

TEST(SocketsOfTheBus, AreClosedOnExec)
{
    const std::map<int, int> before = descriptors();
    const RunningServer running;
    EventClient client;
    ASSERT_EQ(client.Connect(running.path), 0);
    RequestType record;
    ASSERT_EQ(client.Subscribe(
                  "C", [](void*, TelvaneDataTypeBase*, int, void*) {}, record, nullptr),
              0);

    const TemporaryDirectory directory;
    const sockaddr_un address = addressOf(directory.path("bus"));
    const int inherited = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
    ASSERT_EQ(::bind(inherited, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(inherited, 1), 0);
    EventServer inheritor;
    ASSERT_EQ(inheritor.StartOn(inherited), 0);
    int checked = 0;
    for (const auto& [descriptor, flags] : descriptors()) {
        if (before.count(descriptor) == 0) {
            EXPECT_EQ(flags, FD_CLOEXEC) << descriptor;
            ++checked;
        }
    }
    // A listening socket, a client's and its other end; one that is inherited, and what wakes its server.
    EXPECT_EQ(checked, 5);
    EXPECT_EQ(inheritor.Stop(), 0);
}

TEST(ServerSocket, LetsFiveClientsWaitAfterOne)
{
    Gate gate;
    FaultScript script{Call::Accept, Caller::Listener, 0, 0, kForEver};
    script.gate = &gate;
    const Fault held(script);
    const RunningServer running;
    const GateOpener opener(gate);
    EXPECT_TRUE(held.awaitFailures(1));
    const sockaddr_un address = addressOf(running.path);
    std::vector<FileDescriptor> waiting;
    int result = 0;
    while (result == 0 && waiting.size() < 100) {
        waiting.emplace_back(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        result = ::connect(waiting.back().get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(waiting.size() - 1, 5U + 1U);
}

} // namespace
} // namespace Telvane

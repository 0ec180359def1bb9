// What the server does when receiving or sending fails: who misses what, and what is told of it.

#include "helpers/BusTestSupport.h"
#include "helpers/FaultInjection.h"

#include <fcntl.h>

namespace Telvane
{
namespace
{

using namespace Testing;

std::string relayError(int client, int result)
{
    return "RELAY ERROR to client " + std::to_string(client) + ": [" + std::to_string(result) +
           "]: " + std::strerror(std::abs(result)) + "\n";
}

/// A fault by one of several error numbers, or counts.
class OfNumber : public ::testing::TestWithParam<int>
{};

using EventServerReceive = OfNumber;

TEST_P(EventServerReceive, EndsOnlyTheConnectionThatFails)
{
    HookCalls disconnections;
    RunningServer running(
        [&](EventServer& server) { server.install_OnDisconnect(&recordHookCall, &disconnections); });
    // The other's thread receives twice: the request, and what it then waits for.
    const Fault fault({Call::Receive, Caller::Receiver, GetParam(), 2});
    const RawPeer other = running.connect();
    subscribe(other, "C");
    ASSERT_TRUE(eventually([&] { return fault.calls() == 2; }));
    running.connect().expectEnd();
    EXPECT_GE(disconnections.take().client, 0);
    other.send(publication("C"));
    EXPECT_EQ(sequenceOf(other.receive()), 1);
    expectNothingElse(running.connect());
}

INSTANTIATE_TEST_SUITE_P(ByError, EventServerReceive,
                         ::testing::Values(EINTR, EAGAIN, ECONNRESET, ENOBUFS, ENOMEM), nameOfError);

/// A server with two subscribers of "C" and a publisher.
class ServerOfTwoSubscribers : public OfNumber
{
protected:
    ServerOfTwoSubscribers()
    {
        for (const RawPeer& peer : peers) {
            subscribe(peer, "C");
            descriptors.push_back(subscriptions.take().client);
        }
    }

    /// Publishes while one send fails by \p script. \return which peer missed the relay, and the line about
    /// it
    std::pair<std::size_t, std::string> publishWith(const FaultScript& script,
                                                    const std::string& payload = "{}")
    {
        const Diagnostics told = diagnosticsOf([&] {
            const Fault fault(script);
            publisher.send(publication("C", payload));
            expectNothingElse(publisher);
        });
        const std::size_t missing =
            told.error.find("client " + std::to_string(descriptors[0]) + ":") != std::string::npos ? 0 : 1;
        return {missing, told.error};
    }

    HookCalls subscriptions;
    RunningServer running{[this](EventServer& server) {
        server.install_OnSubscribe(&recordHookCall, &subscriptions);
    }};
    const std::vector<RawPeer> peers = [this] {
        std::vector<RawPeer> made;
        made.push_back(running.connect());
        made.push_back(running.connect());
        return made;
    }();
    const RawPeer publisher = running.connect();
    std::vector<int> descriptors;
};

using EventServerRelayFault = ServerOfTwoSubscribers;

TEST_P(EventServerRelayFault, IsCountedWithoutALineIfLinesAreDisabled)
{
    running.server.SetRelayErrorLines(false);
    EXPECT_EQ(publishWith({Call::Send, Caller::Receiver, GetParam()}).second, "");
    EXPECT_EQ(running.server.Statistics().relaysFailed, 1U);
    running.server.SetRelayErrorLines(true);
    EXPECT_NE(publishWith({Call::Send, Caller::Receiver, GetParam()}).second, "");
}

TEST_P(EventServerRelayFault, IsReportedAndCountedAndReachesTheOthers)
{
    const auto [missing, line] = publishWith({Call::Send, Caller::Receiver, GetParam()});
    EXPECT_EQ(line, relayError(descriptors[missing], -GetParam()));
    EXPECT_EQ(peers[1 - missing].receive(), printedRelay("C", 2, ""));
    EXPECT_TRUE(peers[missing].isSilent());
    EXPECT_EQ(running.server.Statistics().relayed, 1U);
    EXPECT_EQ(running.server.Statistics().relaysFailed, 1U);

    publisher.send(publication("C"));
    for (const RawPeer& peer : peers) {
        EXPECT_EQ(peer.receive(), printedRelay("C", 4, ""));
    }
}

INSTANTIATE_TEST_SUITE_P(ByError, EventServerRelayFault,
                         ::testing::Values(EAGAIN, ECONNRESET, EPIPE, ENOBUFS, ENOMEM, EMSGSIZE, EPERM),
                         nameOfError);

class EventServerRelayCut : public ServerOfTwoSubscribers
{};

TEST_P(EventServerRelayCut, IsReportedWithItsCountAndReachesTheOthersInFull)
{
    FaultScript script{Call::Send, Caller::Receiver};
    script.sentBytes = static_cast<std::size_t>(GetParam());
    const auto [missing, line] = publishWith(script);
    EXPECT_EQ(line, relayError(descriptors[missing], GetParam()));
    const std::string whole = printedRelay("C", 2, "");
    EXPECT_EQ(peers[missing].receive(), whole.substr(0, static_cast<std::size_t>(GetParam())));
    EXPECT_EQ(peers[1 - missing].receive(), whole);
    EXPECT_EQ(running.server.Statistics().relaysFailed, 1U);
}

INSTANTIATE_TEST_SUITE_P(ByCount, EventServerRelayCut, ::testing::Values(1, 11, 40));

class EventServerRelayInterrupted : public ServerOfTwoSubscribers
{};

TEST_P(EventServerRelayInterrupted, IsRepeatedUntilItIsOut)
{
    const auto [missing, line] = publishWith({Call::Send, Caller::Receiver, EINTR, 0, GetParam()});
    EXPECT_EQ(line, "");
    for (const RawPeer& peer : peers) {
        EXPECT_EQ(peer.receive(), printedRelay("C", 2, ""));
    }
    EXPECT_EQ(running.server.Statistics().relaysFailed, 0U);
}

INSTANTIATE_TEST_SUITE_P(ByTimes, EventServerRelayInterrupted, ::testing::Values(1, 2, 50));

using EventServerResponse = ServerOfTwoSubscribers;

TEST_P(EventServerResponse, ThatCannotBeSentCallsNoHookButCounts)
{
    const Diagnostics told = diagnosticsOf([&] {
        const Fault fault({Call::Send, Caller::Receiver, GetParam()});
        publisher.send(subscribeRequest("D"));
        expectNothingElse(publisher);
        EXPECT_EQ(fault.failures(), 1);
    });
    EXPECT_EQ(told.error + told.output, "");
    EXPECT_TRUE(subscriptions.empty());
    peers[0].send(publication("D"));
    EXPECT_EQ(sequenceOf(publisher.receive()), 4);
}

TEST_P(EventServerRelayCut, CallsNoHookForAResponse)
{
    FaultScript script{Call::Send, Caller::Receiver};
    script.sentBytes = static_cast<std::size_t>(GetParam());
    {
        const Fault fault(script);
        publisher.send(subscribeRequest("D"));
        EXPECT_EQ(publisher.receive().size(), script.sentBytes);
    }
    expectNothingElse(publisher);
    EXPECT_TRUE(subscriptions.empty());
}

INSTANTIATE_TEST_SUITE_P(ByError, EventServerResponse, ::testing::Values(EAGAIN, EPIPE, ENOBUFS),
                         nameOfError);

TEST(EventServerRelay, DoesNotReachANewClientWithTheDescriptorOfASubscriberThatDisconnects)
{
    HookCalls connections;
    const RunningServer running(
        [&](EventServer& server) { server.install_OnConnect(&recordHookCall, &connections); });
    const RawPeer publisher = running.connect();
    subscribe(publisher, "C");
    connections.take();
    RawPeer leaving = running.connect();
    subscribe(leaving, "C");
    const int descriptor = connections.take().client;
    int ends[2] = {};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const FileDescriptor near(ends[0]);
    const RawPeer far{FileDescriptor(ends[1])};

    Gate gate;
    FaultScript script{Call::Close, Caller::Receiver};
    script.gate = &gate;
    const Fault held(script);
    const GateOpener opener(gate);
    leaving.close();
    ASSERT_TRUE(held.awaitFailures(1));
    const FileDescriptor taken(::fcntl(near.get(), F_DUPFD_CLOEXEC, descriptor));
    ASSERT_EQ(taken.get(), descriptor);
    publisher.send(publication("C"));
    publisher.receive();
    EXPECT_TRUE(far.isSilent());
}

TEST(EventServerWrite, GivesWhatTheSendGave)
{
    HookCalls connections;
    RunningServer running(
        [&](EventServer& server) { server.install_OnConnect(&recordHookCall, &connections); });
    const RawPeer peer = running.connect();
    const int client = connections.take().client;
    std::string text = "abcdef";
    const auto write = [&] {
        return running.server.writeDataToSocket(client, text.data(), static_cast<int>(text.size()));
    };
    for (const int error : {EAGAIN, ECONNRESET, EPIPE, ENOBUFS, ENOMEM}) {
        const Fault fault({Call::Send, Caller::Application, error});
        EXPECT_EQ(write(), -error);
        EXPECT_EQ(fault.calls(), 1);
    }
    {
        const Fault fault({Call::Send, Caller::Application, EINTR, 0, 5});
        EXPECT_EQ(write(), 0);
        EXPECT_EQ(fault.calls(), 6);
    }
    EXPECT_EQ(peer.receive(), "abcdef");
    FaultScript cut{Call::Send, Caller::Application};
    cut.sentBytes = 2;
    const Fault fault(cut);
    EXPECT_EQ(write(), 2);
    EXPECT_EQ(peer.receive(), "ab");
}

} // namespace
} // namespace Telvane

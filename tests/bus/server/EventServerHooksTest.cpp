// When the server's hooks are called: their thread, their arguments, their order and what is locked.

#include "helpers/BusTestSupport.h"

#include <fcntl.h>
#include <new>
#include <set>

namespace Telvane
{
namespace
{

using namespace Testing;

/// A hook call, and a gate that holds the server's thread inside it.
struct HeldCall
{
    HookCalls calls;
    Gate release;
};

int holdHookCall(void* server, int client, const std::string& header, int sequence, cJSON* payload,
                 void* user)
{
    auto* const held = static_cast<HeldCall*>(user);
    recordHookCall(server, client, header, sequence, payload, &held->calls);
    held->release.pass();
    return 0;
}

TEST(ConnectHook, GetsOnlyTheDescriptor)
{
    HookCalls connects;
    RunningServer running([&](EventServer& server) { server.install_OnConnect(recordHookCall, &connects); });
    const RawPeer peer = running.connect();
    const HookCall call = connects.take();
    EXPECT_EQ(call.server, &running.server);
    EXPECT_EQ(call.header, "");
    EXPECT_EQ(call.sequence, -1);
    EXPECT_FALSE(call.hasPayload);

    sockaddr_un address = {};
    socklen_t length = sizeof address;
    EXPECT_EQ(::getsockname(call.client, reinterpret_cast<sockaddr*>(&address), &length), 0);
    EXPECT_EQ(address.sun_path, running.path);
}

TEST(ConnectHook, RunsOnTheOneListenerThread)
{
    HookCalls connects;
    HookCalls subscriptions;
    RunningServer running([&](EventServer& server) {
        server.install_OnConnect(recordHookCall, &connects);
        server.install_OnSubscribe(recordHookCall, &subscriptions);
    });
    const RawPeer first = running.connect();
    const RawPeer second = running.connect();
    subscribe(first, "C");
    const std::thread::id listener = connects.take().thread;
    EXPECT_EQ(connects.take().thread, listener);
    EXPECT_NE(listener, std::this_thread::get_id());
    EXPECT_NE(listener, subscriptions.take().thread);
}

TEST(ConnectHook, HoldsBackTheNewClientUntilItReturns)
{
    HeldCall held;
    RunningServer running([&](EventServer& server) { server.install_OnConnect(holdHookCall, &held); });
    const GateOpener opener(held.release);
    const RawPeer peer = running.connect();
    held.calls.take();
    peer.send(subscribeRequest("C"));
    EXPECT_TRUE(peer.isSilent());
    held.release.open();
    EXPECT_EQ(peer.receive(), response(".subscribe", true, "C"));
}

TEST(ConnectHook, MayUseTheClientsDescriptor)
{
    HookCalls connects;
    RunningServer running([&](EventServer& server) {
        server.install_OnConnect(
            [](void* self, int client, const std::string&, int, cJSON*, void*) {
                std::string welcome = "welcome";
                return static_cast<EventServer*>(self)->writeDataToSocket(client, welcome.data(), 7);
            },
            nullptr);
    });
    EXPECT_EQ(running.connect().receive(), "welcome");
}

struct Departure
{
    HookCall call;
    int descriptorState = 0;
    int descriptorError = 0;
};

int recordDeparture(void* server, int client, const std::string& header, int sequence, cJSON* payload,
                    void* user)
{
    const int state = ::fcntl(client, F_GETFD);
    const int error = errno;
    HookCalls calls;
    recordHookCall(server, client, header, sequence, payload, &calls);
    static_cast<Mailbox<Departure>*>(user)->put({calls.take(), state, error});
    return 0;
}

TEST(DisconnectHook, GetsADescriptorThatIsClosedAlready)
{
    HookCalls connects;
    Mailbox<Departure> departures;
    RunningServer running([&](EventServer& server) {
        server.install_OnConnect(recordHookCall, &connects);
        server.install_OnDisconnect(recordDeparture, &departures);
    });
    RawPeer peer = running.connect();
    const int client = connects.take().client;
    peer.close();
    const Departure departure = departures.take();
    EXPECT_EQ(departure.call.server, &running.server);
    EXPECT_EQ(departure.call.client, client);
    EXPECT_EQ(departure.call.header, "");
    EXPECT_EQ(departure.call.sequence, -1);
    EXPECT_FALSE(departure.call.hasPayload);
    EXPECT_EQ(departure.descriptorState, -1);
    EXPECT_EQ(departure.descriptorError, EBADF);
}

TEST(DisconnectHook, RunsOnTheClientsReceiverThread)
{
    HookCalls subscriptions;
    HookCalls departures;
    RunningServer running([&](EventServer& server) {
        server.install_OnSubscribe(recordHookCall, &subscriptions);
        server.install_OnDisconnect(recordHookCall, &departures);
    });
    RawPeer one = running.connect();
    RawPeer other = running.connect();
    subscribe(one, "C");
    subscribe(other, "C");
    const std::thread::id ofOne = subscriptions.take().thread;
    const std::thread::id ofOther = subscriptions.take().thread;
    EXPECT_NE(ofOne, ofOther);
    other.close();
    EXPECT_EQ(departures.take().thread, ofOther);
    one.close();
    EXPECT_EQ(departures.take().thread, ofOne);
}

TEST(DisconnectHook, HoldsNoLock)
{
    HeldCall held;
    RunningServer running([&](EventServer& server) { server.install_OnDisconnect(holdHookCall, &held); });
    const GateOpener opener(held.release);
    RawPeer leaver = running.connect();
    RawPeer another = running.connect();
    const RawPeer stayer = running.connect();
    subscribe(another, "C"); // 0
    subscribe(stayer, "C");  // 1
    leaver.close();
    const std::thread::id first = held.calls.take().thread;

    another.send(publication("C"));
    EXPECT_EQ(sequenceOf(stayer.receive()), 2);
    EXPECT_EQ(sequenceOf(another.receive()), 2);
    another.close();
    EXPECT_NE(held.calls.take().thread, first);
    expectNothingElse(stayer);
}

TEST(DisconnectHook, IsCalledForEveryClientFromTheLowestWhenTheServerStops)
{
    HookCalls connects;
    HookCalls departures;
    RunningServer running([&](EventServer& server) {
        server.install_OnConnect(recordHookCall, &connects);
        server.install_OnDisconnect(recordHookCall, &departures);
    });
    const RawPeer peers[] = {running.connect(), running.connect(), running.connect()};
    std::set<int> connected;
    for (std::size_t i = 0; i < std::size(peers); ++i) {
        connected.insert(connects.take().client);
    }
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_EQ(connected.size(), std::size(peers));
    for (const int client : connected) {
        EXPECT_EQ(departures.take().client, client);
    }
    EXPECT_TRUE(departures.empty());
}

class MetaHook : public ::testing::TestWithParam<const char*>
{
protected:
    std::string header() const { return GetParam(); }
    bool subscribes() const { return header() == ".subscribe"; }
    std::string request(const std::string& channel) const
    {
        return subscribes() ? subscribeRequest(channel) : unsubscribeRequest(channel);
    }
    void install(EventServer& server, EventHandler hook, void* user) const
    {
        EXPECT_EQ(subscribes() ? server.install_OnSubscribe(hook, user)
                               : server.install_OnUnsubscribe(hook, user),
                  0);
    }
    std::function<void(EventServer&)> installing(EventHandler hook, void* user) const
    {
        return [this, hook, user](EventServer& server) {
            install(server, hook, user);
        };
    }
};

TEST_P(MetaHook, GetsTheRequest)
{
    HookCalls calls;
    HookCalls connects;
    RunningServer running([&](EventServer& server) {
        install(server, recordHookCall, &calls);
        server.install_OnConnect(recordHookCall, &connects);
    });
    const RawPeer first = running.connect();
    const RawPeer second = running.connect();
    connects.take();
    const int client = connects.take().client;
    expectNothingElse(first); // 0
    if (!subscribes()) {
        calls.take();
    }
    second.send(request("Some_channel")); // 1
    EXPECT_EQ(second.receive(), response(header(), subscribes(), "Some_channel"));
    const HookCall call = calls.take();
    EXPECT_EQ(call.server, &running.server);
    EXPECT_EQ(call.client, client);
    EXPECT_EQ(call.header, header());
    EXPECT_EQ(call.sequence, 1);
    EXPECT_EQ(call.channel, "Some_channel");
    EXPECT_NE(call.thread, std::this_thread::get_id());
}

TEST_P(MetaHook, IsCalledForRefusedRequestsToo)
{
    HookCalls calls;
    RunningServer running(installing(recordHookCall, &calls));
    const RawPeer peer = running.connect();
    for (const char* const name : {"digit1", "a.b", "a-b", "a b"}) {
        peer.send(request(name));
        EXPECT_EQ(peer.receive(), response(header(), false, name));
        EXPECT_EQ(calls.take().channel, name);
    }
}

TEST_P(MetaHook, IsCalledForRepeatedRequestsToo)
{
    HookCalls calls;
    RunningServer running(installing(recordHookCall, &calls));
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    subscribe(peer, "C");
    unsubscribe(peer, "C");
    unsubscribe(peer, "C");
    EXPECT_EQ(calls.take().channel, "C");
    EXPECT_EQ(calls.take().channel, "C");
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_TRUE(calls.empty());
}

TEST_P(MetaHook, IsNotCalledForARequestWithoutChannel)
{
    HookCalls calls;
    RunningServer running(installing(recordHookCall, &calls));
    const RawPeer peer = running.connect();
    peer.send(publication(header(), "{}"));
    peer.send(publication(header(), R"({"channel":5})"));
    peer.send(request("C"));
    EXPECT_EQ(calls.take().channel, "C");
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_TRUE(calls.empty());
}

TEST_P(MetaHook, RunsOnceTheResponseIsSentAndWithTheHandlerLock)
{
    HeldCall held;
    RunningServer running(installing(holdHookCall, &held));
    const GateOpener opener(held.release);
    const RawPeer peer = running.connect();
    const RawPeer other = running.connect();
    peer.send(request("C"));
    held.calls.take();
    EXPECT_EQ(peer.receive(), response(header(), subscribes(), "C"));

    other.send(subscribes() ? unsubscribeRequest("X") : subscribeRequest("X"));
    EXPECT_TRUE(other.isSilent());
    held.release.open();
    EXPECT_EQ(other.receive(), response(subscribes() ? ".unsubscribe" : ".subscribe", !subscribes(), "X"));
}

TEST_P(MetaHook, IsNotCalledWhenTheResponseCouldNotBeSent)
{
    HookCalls calls;
    HookCalls departures;
    RunningServer running([&](EventServer& server) {
        install(server, recordHookCall, &calls);
        server.install_OnDisconnect(recordHookCall, &departures);
    });
    RawPeer deaf = running.connect();
    deaf.shutdown(SHUT_RD);
    deaf.send(request("C"));
    deaf.close();
    departures.take();
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_TRUE(calls.empty());
}

int runOutOfMemory(void* /*server*/, int /*client*/, const std::string& /*header*/, int /*sequence*/,
                   cJSON* /*payload*/, void* /*user*/)
{
    throw std::bad_alloc();
}

TEST_P(MetaHook, MayRunOutOfMemoryWhichIsCounted)
{
    RunningServer running(installing(runOutOfMemory, nullptr));
    const RawPeer peer = running.connect();
    for (const bool allowed : {true, false}) {
        const std::string channel = allowed ? "C" : "digit1";
        peer.send(request(channel));
        EXPECT_EQ(peer.receive(), response(header(), subscribes() && allowed, channel));
    }
    EXPECT_EQ(running.server.Stop(), 0);
    EXPECT_EQ(running.server.Statistics().outOfMemory, 2U);
}

INSTANTIATE_TEST_SUITE_P(Each, MetaHook, ::testing::Values(".subscribe", ".unsubscribe"),
                         [](const auto& instance) { return std::string(instance.param).substr(1); });

int drawLots(void* server, int client, const std::string& header, int sequence, cJSON* payload, void* user)
{
    recordHookCall(server, client, header, sequence, payload, user);
    return -EIO;
}

TEST(Hooks, HaveResultsThatAreIgnored)
{
    HookCalls calls;
    RunningServer running([&](EventServer& server) {
        server.install_OnConnect(drawLots, &calls);
        server.install_OnSubscribe(drawLots, &calls);
        server.install_OnUnsubscribe(drawLots, &calls);
        server.install_OnDisconnect(drawLots, &calls);
    });
    RawPeer peer = running.connect();
    subscribe(peer, "C");
    unsubscribe(peer, "C");
    peer.close();
    for (const char* const header : {"", ".subscribe", ".unsubscribe", ""}) {
        EXPECT_EQ(calls.take().header, header);
    }
    const RawPeer another = running.connect();
    subscribe(another, "C");
}

} // namespace
} // namespace Telvane

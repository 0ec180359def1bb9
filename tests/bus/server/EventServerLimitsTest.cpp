// The limits that a server can be given: who and what is refused, how it is told, and who does not notice.

#include "helpers/BusTestSupport.h"

#include <grp.h>
#include <sys/syscall.h>

namespace Telvane
{
namespace
{

using namespace Testing;

using Refusals = Mailbox<EventServerRefusal>;

std::function<void(EventServer&)> preparedWith(const EventServerLimits& limits, Refusals& refusals)
{
    return [limits, &refusals](EventServer& server) {
        server.SetLimits(limits);
        server.install_OnRefusal(
            [&refusals](EventServer&, const EventServerRefusal& refusal) { refusals.put(refusal); });
    };
}

void expectRefused(const RawPeer& peer, const std::string& channel)
{
    peer.send(subscribeRequest(channel));
    EXPECT_EQ(peer.receive(), response(".subscribe", false, channel));
}

EventServerLimits connectionLimit(std::size_t connections)
{
    EventServerLimits limits;
    limits.connections = connections;
    return limits;
}

TEST(EventServerLimits, RefuseNothingByThemselves)
{
    const EventServerLimits none;
    Refusals refusals;
    const RunningServer running(preparedWith(none, refusals));
    std::vector<RawPeer> peers;
    for (int i = 0; i < 40; ++i) {
        peers.push_back(running.connect());
        subscribe(peers.back(), "channel_" + std::string(static_cast<std::size_t>(i), 'x'));
    }
    EXPECT_TRUE(refusals.empty());
}

TEST(EventServerLimits, DisconnectAClientTooManyAndLetTheOthersBe)
{
    Refusals refusals;
    const RunningServer running(preparedWith(connectionLimit(2), refusals));
    std::optional<RawPeer> first = running.connect();
    const RawPeer second = running.connect();
    subscribe(*first, "C");
    subscribe(second, "C");

    running.connect().expectEnd();
    const EventServerRefusal refusal = refusals.take();
    EXPECT_EQ(refusal.reason, EventServerRefusal::Reason::TooManyConnections);
    EXPECT_EQ(refusal.process, ::getpid());
    EXPECT_EQ(refusal.user, ::geteuid());
    EXPECT_EQ(refusal.group, ::getegid());
    EXPECT_EQ(refusal.channel, "");
    EXPECT_EQ(running.server.Statistics().connectionsRefused, 1U);
    EXPECT_EQ(running.server.Clients().size(), 2U);
    second.send(publication("C"));
    EXPECT_EQ(first->receive(), printedRelay("C", 2, ""));

    first.reset();
    EXPECT_TRUE(eventually([&] { return running.server.Clients().size() == 1; }));
    expectNothingElse(running.connect());
    EXPECT_TRUE(refusals.empty());
}

TEST(EventServerLimits, CallNoHookForARefusedClient)
{
    HookCalls calls;
    Refusals refusals;
    {
        const RunningServer running([&](EventServer& server) {
            preparedWith(connectionLimit(1), refusals)(server);
            server.install_OnConnect(&recordHookCall, &calls);
            server.install_OnDisconnect(&recordHookCall, &calls);
        });
        const RawPeer only = running.connect();
        calls.take();
        running.connect().expectEnd();
        refusals.take();
        EXPECT_TRUE(calls.empty());
    }
    calls.take();
    EXPECT_TRUE(calls.empty());
}

TEST(EventServerLimits, ReportARefusalOnStandardErrorWithoutAFunction)
{
    const RunningServer running([](EventServer& server) {
        EventServerLimits limits = connectionLimit(1);
        limits.subscriptionsPerClient = 1;
        server.SetLimits(limits);
    });
    const std::string who = "(process " + std::to_string(::getpid()) + ", user " +
                            std::to_string(::geteuid()) + ", group " + std::to_string(::getegid()) + ")";
    const RawPeer only = running.connect();
    subscribe(only, "A");
    const StreamCapture error(STDERR_FILENO);
    running.connect().expectEnd();
    expectRefused(only, "B");
    const std::string text = error.text();
    EXPECT_EQ(text.rfind("REFUSED client ", 0), 0U) << text;
    EXPECT_NE(text.find(" " + who + ": there are as many clients as are allowed\n"), std::string::npos)
        << text;
    EXPECT_NE(text.find(" " + who + " for channel B: it has as many subscriptions as are allowed\n"),
              std::string::npos)
        << text;
}

TEST(EventServerLimits, RefuseASubscriptionTooManyOfOneClient)
{
    Refusals refusals;
    EventServerLimits limits;
    limits.subscriptionsPerClient = 2;
    const RunningServer running(preparedWith(limits, refusals));
    const RawPeer peer = running.connect();
    const RawPeer other = running.connect();
    subscribe(peer, "A");
    subscribe(peer, "B");
    expectRefused(peer, "C");
    const EventServerRefusal refusal = refusals.take();
    EXPECT_EQ(refusal.reason, EventServerRefusal::Reason::TooManySubscriptions);
    EXPECT_EQ(refusal.channel, "C");
    EXPECT_EQ(refusal.process, ::getpid());
    EXPECT_EQ(running.server.Statistics().subscriptionsRefused, 1U);
    EXPECT_EQ(running.server.Channels().size(), 2U);

    subscribe(peer, "A"); // once more takes nothing
    unsubscribe(peer, "B");
    subscribe(peer, "C");
    subscribe(other, "D");
    EXPECT_TRUE(refusals.empty());
}

TEST(EventServerLimits, RefuseAChannelTooManyToEverybody)
{
    Refusals refusals;
    EventServerLimits limits;
    limits.channels = 2;
    const RunningServer running(preparedWith(limits, refusals));
    const RawPeer peer = running.connect();
    const RawPeer other = running.connect();
    subscribe(peer, "A");
    subscribe(peer, "B");
    unsubscribe(peer, "B"); // which does not make the server forget its name
    expectRefused(other, "C");
    EXPECT_EQ(refusals.take().reason, EventServerRefusal::Reason::TooManyChannels);
    subscribe(other, "B");
    EXPECT_EQ(running.server.Channels().size(), 2U);
}

TEST(EventServerLimits, DoNotApplyToExistingClientsAndSubscriptions)
{
    Refusals refusals;
    RunningServer running(preparedWith(EventServerLimits(), refusals));
    const RawPeer first = running.connect();
    const RawPeer second = running.connect();
    subscribe(first, "A");
    subscribe(first, "B");
    expectNothingElse(second); // the server has accepted it
    EventServerLimits limits = connectionLimit(1);
    limits.subscriptionsPerClient = 1;
    limits.channels = 1;
    limits.users = {::geteuid() + 1};
    running.server.SetLimits(limits);
    expectNothingElse(second);
    first.send(publication("B"));
    EXPECT_EQ(first.receive(), printedRelay("B", 4, ""));
    expectRefused(first, "C");
    running.connect().expectEnd();
    running.server.SetLimits(EventServerLimits());
    subscribe(first, "C");
    expectNothingElse(running.connect());
}

TEST(EventServerLimits, LetOnlyTheUsersInThatAreNamed)
{
    Refusals refusals;
    EventServerLimits limits;
    limits.users = {::geteuid() + 1, ::geteuid()};
    RunningServer running(preparedWith(limits, refusals));
    expectNothingElse(running.connect());
    limits.users = {::geteuid() + 1};
    running.server.SetLimits(limits);
    running.connect().expectEnd();
    EXPECT_EQ(refusals.take().reason, EventServerRefusal::Reason::NotAllowed);
}

TEST(EventServerLimits, AcceptMembersOfAGroup)
{
    Refusals refusals;
    EventServerLimits limits;
    limits.users = {::geteuid() + 1};
    limits.groups = {::getegid()};
    RunningServer running(preparedWith(limits, refusals));
    expectNothingElse(running.connect());
    limits.groups = {::getegid() + 4711};
    running.server.SetLimits(limits);
    running.connect().expectEnd();
    EXPECT_EQ(refusals.take().reason, EventServerRefusal::Reason::NotAllowed);
}

/// Connects from a process that has, if this one may give it, \p group as one more group.
/// \return whether that process was served
bool isServedAsMember(const std::string& path, gid_t group)
{
    const sockaddr_un address = addressOf(path);
    const std::string question = unsubscribeRequest("nobody_ever");
    // Only system calls: the other threads of the process are not in the child.
    return holdsInChild([&] {
        ::syscall(SYS_setgroups, 1, &group);
        const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
        char answer = 0;
        return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
               ::send(socket, question.data(), question.size(), MSG_NOSIGNAL) > 0 &&
               ::recv(socket, &answer, 1, 0) == 1;
    });
}

TEST(EventServerLimits, KnowTheSupplementaryGroupsOfAClient)
{
    // Without the right to choose groups a process still has those that it was given.
    std::vector<gid_t> own(static_cast<std::size_t>(std::max(::getgroups(0, nullptr), 0)));
    ::getgroups(static_cast<int>(own.size()), own.data());
    const gid_t group = ::geteuid() == 0 || own.empty() ? 4711 : own.back();
    const bool member = ::geteuid() == 0 || !own.empty();

    Refusals refusals;
    EventServerLimits limits;
    limits.groups = {::getegid() + 4712, group};
    RunningServer running(preparedWith(limits, refusals));
    EXPECT_EQ(isServedAsMember(running.path, group), member);
    EXPECT_EQ(refusals.empty(), member);
    limits.groups = {::getegid() + 4712};
    running.server.SetLimits(limits);
    EXPECT_FALSE(isServedAsMember(running.path, group));
}

TEST(EventServerLimits, ReachAClientOfOursAsARefusalAndALostConnection)
{
    Refusals refusals;
    EventServerLimits limits = connectionLimit(1);
    limits.subscriptionsPerClient = 1;
    RunningServer running(preparedWith(limits, refusals));
    EventClient client;
    EventClient tooMany;
    Mailbox<EventClient*> lost;
    tooMany.install_OnConnectionLost([&](EventClient& one) { lost.put(&one); });
    ASSERT_EQ(client.Connect(running.path), 0);
    const auto ignore = [](void*, TelvaneDataTypeBase*, int, void*) {
    };
    EXPECT_EQ(client.Subscribe("A", ignore, RequestType(), nullptr), 0);
    EXPECT_EQ(client.Subscribe("B", ignore, RequestType(), nullptr), -1);
    EXPECT_EQ(client.Unsubscribe("B"), -EINVAL);
    EXPECT_EQ(tooMany.Connect(running.path), 0);
    EXPECT_EQ(lost.take(), &tooMany);
    EXPECT_EQ(tooMany.Disconnect(), 0);
}

TEST(EventServerRefusalHook, IsInstalledAndUninstalledLikeTheOthers)
{
    EventServer server;
    EXPECT_EQ(server.install_OnRefusal(nullptr), -EINVAL);
    EXPECT_EQ(server.uninstall_OnRefusal(), -EALREADY);
    EXPECT_EQ(server.install_OnRefusal([](EventServer&, const EventServerRefusal&) {}), 0);
    EXPECT_EQ(server.uninstall_OnRefusal(), 0);
    EXPECT_EQ(server.uninstall_OnRefusal(), -EALREADY);
}

} // namespace
} // namespace Telvane

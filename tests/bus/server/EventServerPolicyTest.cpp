// The policy of a server: what is refused, how the client learns of it, and how often the policy is asked.

#include "helpers/BusTestSupport.h"

#include <gmock/gmock.h>

#include <atomic>
#include <new>

namespace Telvane
{
namespace
{

using namespace Testing;
using Action = EventServerAccess::Action;
using Reason = EventServerRefusal::Reason;
using Refusals = Mailbox<EventServerRefusal>;
using Policy = std::function<bool(const EventServerAccess& access)>;

/// Does not allow one kind of access to one channel.
Policy without(Action action, const std::string& channel)
{
    return [action, channel](const EventServerAccess& access) {
        return access.action != action || access.channel != channel;
    };
}

std::function<void(EventServer&)> preparedWith(const Policy& policy, Refusals& refusals)
{
    return [policy, &refusals](EventServer& server) {
        EXPECT_EQ(server.SetPolicy(policy), 0);
        server.install_OnRefusal(
            [&refusals](EventServer&, const EventServerRefusal& refusal) { refusals.put(refusal); });
    };
}

TEST(EventServerPolicy, RefusesSubscriptions)
{
    Refusals refusals;
    const RunningServer running(preparedWith(without(Action::Subscribe, "B"), refusals));
    const RawPeer peer = running.connect();
    subscribe(peer, "A");
    peer.send(subscribeRequest("B"));
    EXPECT_EQ(peer.receive(), response(".subscribe", false, "B"));
    const EventServerRefusal refusal = refusals.take();
    EXPECT_EQ(refusal.reason, Reason::MayNotSubscribe);
    EXPECT_EQ(refusal.channel, "B");
    EXPECT_EQ(refusal.process, ::getpid());
    EXPECT_EQ(running.server.Statistics().subscriptionsRefused, 1U);
    EXPECT_EQ(running.server.Statistics().notPermitted, 0U);
    EXPECT_EQ(running.server.Channels().size(), 1U);
}

TEST(EventServerPolicy, DropsPublicationsWithoutTakingANumber)
{
    Refusals refusals;
    const RunningServer running(preparedWith(without(Action::Publish, "B"), refusals));
    const RawPeer subscriber = running.connect();
    const RawPeer publisher = running.connect();
    subscribe(subscriber, "A"); // number 0
    subscribe(subscriber, "B"); // number 1
    publisher.send(printedPublication("A"));
    publisher.send(printedPublication("B"));
    publisher.send(publication("B")); // is parsed
    publisher.send(printedPublication("A"));
    publisher.send(publication("A"));
    EXPECT_EQ(subscriber.receive(), printedRelay("A", 2, ""));
    EXPECT_EQ(subscriber.receive(), printedRelay("A", 3, ""));
    EXPECT_EQ(subscriber.receive(), printedRelay("A", 4, ""));
    expectNothingElse(subscriber);
    for (int i = 0; i < 2; ++i) {
        const EventServerRefusal refusal = refusals.take();
        EXPECT_EQ(refusal.reason, Reason::MayNotPublish);
        EXPECT_EQ(refusal.channel, "B");
    }
    EXPECT_TRUE(refusals.empty());
    EXPECT_EQ(running.server.Statistics().notPermitted, 2U);
    EXPECT_EQ(running.server.Statistics().subscriptionsRefused, 0U);
}

TEST(EventServerPolicy, DropsPublicationsInTheMiddleOfABurst)
{
    Refusals refusals;
    const RunningServer running(preparedWith(without(Action::Publish, "B"), refusals));
    const RawPeer peer = running.connect();
    subscribe(peer, "A");
    for (int i = 0; i < 50; ++i) {
        peer.send(printedPublication(i % 2 == 0 ? "A" : "B"));
    }
    for (int i = 0; i < 25; ++i) {
        EXPECT_EQ(peer.receive(), printedRelay("A", 1 + i, ""));
    }
    expectNothingElse(peer);
    EXPECT_EQ(running.server.Statistics().notPermitted, 25U);
}

TEST(EventServerPolicy, DistinguishesRequestsFromPublications)
{
    Refusals refusals;
    const RunningServer running(preparedWith(without(Action::Request, "C"), refusals));
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    subscribe(peer, "req_C"); // as a responder does
    peer.send(printedPublication("req_C"));
    peer.send(publication("req_C"));
    peer.send(printedPublication("C"));
    EXPECT_EQ(peer.receive(), printedRelay("C", 2, ""));
    const EventServerRefusal refusal = refusals.take();
    EXPECT_EQ(refusal.reason, Reason::MayNotRequest);
    EXPECT_EQ(refusal.channel, "C");
    EXPECT_EQ(refusals.take().reason, Reason::MayNotRequest);
    EXPECT_EQ(running.server.Statistics().notPermitted, 2U);
}

TEST(EventServerPolicy, RefusesRequestsForKeptRecords)
{
    Refusals refusals;
    const RunningServer running([&refusals](EventServer& server) {
        preparedWith(without(Action::Request, "C"), refusals)(server);
        EventServerMemory memory;
        memory.remembers = [](std::string_view) {
            return true;
        };
        EXPECT_EQ(server.SetMemory(memory), 0);
    });
    const RawPeer peer = running.connect();
    subscribe(peer, "C");
    peer.send(printedPublication("C"));
    peer.receive();
    peer.send(printedPublication("req_C"));
    peer.send(publication("req_C"));
    expectNothingElse(peer);
    EXPECT_EQ(running.server.Statistics().notPermitted, 2U);
}

TEST(EventServerPolicy, DoesNotKeepRefusedPublications)
{
    Refusals refusals;
    const RunningServer running([&refusals](EventServer& server) {
        preparedWith(without(Action::Publish, "C"), refusals)(server);
        EventServerMemory memory;
        memory.remembers = [](std::string_view) {
            return true;
        };
        EXPECT_EQ(server.SetMemory(memory), 0);
    });
    const RawPeer peer = running.connect();
    peer.send(printedPublication("C")); // has no subscriber yet
    peer.send(publication("C"));
    subscribe(peer, "C");
    peer.send(printedPublication("req_C"));
    expectNothingElse(peer);
}

TEST(EventServerPolicy, LetsClientsUnsubscribe)
{
    Refusals refusals;
    RunningServer running(preparedWith({}, refusals));
    const RawPeer peer = running.connect();
    subscribe(peer, "A");
    running.server.SetPolicy([](const EventServerAccess&) { return false; });
    unsubscribe(peer, "A");
    EXPECT_TRUE(refusals.empty());
}

TEST(EventServerPolicy, IsAskedOncePerClientAndChannel)
{
    std::atomic<int> calls{0};
    RunningServer running;
    const Policy counting = [&calls](const EventServerAccess& access) {
        calls += access.action == Action::Publish ? 1 : 0;
        return access.channel != "B";
    };
    running.server.SetPolicy(counting);
    const RawPeer first = running.connect();
    const RawPeer second = running.connect();
    for (int i = 0; i < 100; ++i) {
        first.send(printedPublication(i % 2 == 0 ? "A" : "B"));
        first.send(publication("A"));
    }
    expectNothingElse(first);
    EXPECT_EQ(calls, 2);
    second.send(printedPublication("A"));
    expectNothingElse(second);
    EXPECT_EQ(calls, 3);

    running.server.SetPolicy(counting); // may decide otherwise
    first.send(printedPublication("A"));
    expectNothingElse(first);
    EXPECT_EQ(calls, 4);
}

TEST(EventServerPolicy, RemembersALimitedNumberOfDecisions)
{
    std::atomic<int> calls{0};
    RunningServer running;
    running.server.SetPolicy([&calls](const EventServerAccess& access) {
        calls += access.channel == "First" ? 1 : 0;
        return true;
    });
    const RawPeer peer = running.connect();
    peer.send(printedPublication("First"));
    for (int i = 0; i < 1000; ++i) {
        peer.send(printedPublication("Other" + std::to_string(i)));
    }
    peer.send(printedPublication("First"));
    expectNothingElse(peer);
    EXPECT_EQ(calls, 2);
}

TEST(EventServerPolicy, AsksAgainForTheNextClientWithADescriptor)
{
    std::atomic<int> calls{0};
    RunningServer running;
    running.server.SetPolicy([&calls](const EventServerAccess&) {
        ++calls;
        return true;
    });
    for (int client = 1; client <= 3; ++client) {
        {
            const RawPeer peer = running.connect();
            peer.send(printedPublication("A"));
            expectNothingElse(peer);
        }
        EXPECT_EQ(calls, client);
        EXPECT_TRUE(eventually([&] { return running.server.Clients().empty(); }));
    }
}

TEST(EventServerPolicy, KnowsWhoAsks)
{
    Mailbox<EventServerAccess> accesses;
    RunningServer running;
    running.server.SetPolicy([&accesses](const EventServerAccess& access) {
        accesses.put(access);
        return true;
    });
    const RawPeer peer = running.connect();
    subscribe(peer, "A");
    const EventServerAccess access = accesses.take();
    EXPECT_EQ(access.action, Action::Subscribe);
    EXPECT_EQ(access.channel, "A");
    EXPECT_EQ(access.client, running.server.Clients().at(0).descriptor);
    EXPECT_EQ(access.process, ::getpid());
    EXPECT_EQ(access.user, ::geteuid());
    EXPECT_EQ(access.group, ::getegid());
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(::getgroups(0, nullptr), 0)));
    ::getgroups(static_cast<int>(groups.size()), groups.data());
    EXPECT_THAT(access.groups, testing::UnorderedElementsAreArray(groups));
}

TEST(EventServerPolicy, ReplacesTheFormerOneForConnectedClients)
{
    Refusals refusals;
    RunningServer running(preparedWith(without(Action::Publish, "A"), refusals));
    const RawPeer peer = running.connect();
    subscribe(peer, "A");
    peer.send(printedPublication("A"));
    expectNothingElse(peer);
    running.server.SetPolicy(without(Action::Subscribe, "A"));
    peer.send(printedPublication("A")); // the subscription stays
    EXPECT_EQ(peer.receive(), printedRelay("A", 2, ""));
    running.server.SetPolicy({});
    subscribe(running.connect(), "A");
    EXPECT_EQ(running.server.Statistics().notPermitted, 1U);
}

TEST(EventServerPolicy, RefusesWhatItCannotDecideForLackOfMemory)
{
    std::atomic<bool> fails{true};
    Refusals refusals;
    RunningServer running(preparedWith(
        [&fails](const EventServerAccess&) -> bool {
            if (fails) {
                throw std::bad_alloc();
            }
            return true;
        },
        refusals));
    const RawPeer peer = running.connect();
    peer.send(subscribeRequest("A"));
    EXPECT_EQ(peer.receive(), response(".subscribe", false, "A"));
    peer.send(printedPublication("A"));
    expectNothingElse(peer);
    EXPECT_EQ(running.server.Statistics().notPermitted, 1U);
    fails = false;
    subscribe(peer, "A");
    peer.send(printedPublication("A"));
    EXPECT_EQ(sequenceOf(peer.receive()), 3);
}

TEST(EventServerPolicy, IsReportedOncePerChannelOnStandardErrorWithoutAFunction)
{
    RunningServer running;
    running.server.SetPolicy(without(Action::Publish, "B"));
    const RawPeer peer = running.connect();
    const StreamCapture error(STDERR_FILENO);
    for (int i = 0; i < 5; ++i) {
        peer.send(printedPublication("B"));
    }
    expectNothingElse(peer);
    const std::string text = error.text();
    const std::string line = " for channel B: the policy does not let it publish\n";
    EXPECT_EQ(text.rfind("REFUSED client ", 0), 0U) << text;
    const std::size_t first = text.find(line);
    ASSERT_NE(first, std::string::npos) << text;
    EXPECT_EQ(text.find(line, first + 1), std::string::npos) << text;
    EXPECT_EQ(running.server.Statistics().notPermitted, 5U);
}

TEST(EventServerPolicy, DescribesItsRefusals)
{
    EventServerRefusal refusal;
    refusal.client = 7;
    refusal.process = 12;
    refusal.user = 1000;
    refusal.group = 100;
    refusal.channel = "LogData";
    const std::string client = "client 7 (process 12, user 1000, group 100) for channel LogData: ";
    refusal.reason = Reason::MayNotSubscribe;
    EXPECT_EQ(describe(refusal), client + "the policy does not let it subscribe");
    refusal.reason = Reason::MayNotPublish;
    EXPECT_EQ(describe(refusal), client + "the policy does not let it publish");
    refusal.reason = Reason::MayNotRequest;
    EXPECT_EQ(describe(refusal), client + "the policy does not let it request");
}

TEST(EventServerPolicy, DescribesRefusalsOfAnyMessageInOneShortLine)
{
    EventServerRefusal refusal;
    refusal.reason = Reason::MayNotPublish;
    refusal.channel = "a\nREFUSED b\x1b[2J\xc2\x9b";
    EXPECT_THAT(describe(refusal), testing::HasSubstr("for channel a?REFUSED b?[2J??: "));
    refusal.channel = std::string(10'000, 'x');
    EXPECT_LT(describe(refusal).size(), 400U);
}

} // namespace
} // namespace Telvane

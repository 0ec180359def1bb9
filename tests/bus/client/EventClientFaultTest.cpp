// What the client does when the system fails it. What is retried, and for how long, and what a failure leaves
// behind is a promise to every application that publishes.

#include "helpers/BusTestSupport.h"
#include "helpers/FaultInjection.h"

#include <Telvane/EventClientSynchronizer.h>
#include <Telvane/PanelRecords.h>

namespace Telvane
{
namespace
{

using namespace Testing;

/// A client and its peer, with one of several error numbers.
class ClientWithFault : public ClientOfRawServer, public ::testing::WithParamInterface<int>
{
protected:
    /// Shows that the client is connected and receives.
    void expectWorks()
    {
        Receptions receptions;
        subscribe("works", recordingTo(receptions), RequestType());
        peer.send(relay("works", 7, "{}"));
        EXPECT_EQ(receptions.take().sequence, 7);
        expectNothingElseSent();
        std::future<int> result = begin([&] { return client.Unsubscribe("works"); });
        acceptUnsubscription("works");
        EXPECT_EQ(result.get(), 0);
    }
};

using EventClientConnect = ClientWithFault;

TEST_P(EventClientConnect, WithoutSocketLeaksNothing)
{
    ASSERT_EQ(client.Disconnect(), 0);
    const std::size_t descriptors = openDescriptors();
    {
        const Fault fault({Call::Socket, Caller::Application, GetParam()});
        EXPECT_EQ(client.Connect(server.path()), -1);
    }
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(openDescriptors(), descriptors);
    RequestType record;
    EXPECT_EQ(client.Publish("C", record), -ENOTCONN);
    connect();
    expectWorks();
}

TEST_P(EventClientConnect, ThatIsRefusedLeaksNothing)
{
    ASSERT_EQ(client.Disconnect(), 0);
    const std::size_t descriptors = openDescriptors();
    {
        const Fault fault({Call::Connect, Caller::Application, GetParam()});
        EXPECT_EQ(client.Connect(server.path()), -1);
        EXPECT_EQ(fault.calls(), 1);
    }
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(client.Disconnect(), -ENOTCONN);
    EXPECT_EQ(openDescriptors(), descriptors);
    connect();
    expectWorks();
}

INSTANTIATE_TEST_SUITE_P(ByError, EventClientConnect,
                         ::testing::Values(EMFILE, ENFILE, ENOBUFS, ENOMEM, ECONNREFUSED, ECONNRESET, EAGAIN,
                                           EINTR, EACCES),
                         nameOfError);

using EventClientWithoutThread = ClientWithFault;

TEST_P(EventClientWithoutThread, SendsButHearsNothingAndCanBeConnectedAgain)
{
    ASSERT_EQ(client.Disconnect(), 0);
    {
        const Fault fault({Call::CreateThread, Caller::Application, GetParam()});
        connect();
        EXPECT_EQ(fault.failures(), 1);
    }
    EXPECT_TRUE(client.IsConnected());
    expectNothingElseSent();
    patience.reset();
    EXPECT_EQ(client.Subscribe(
                  "C", [](void*, TelvaneDataTypeBase*, int, void*) {}, RequestType(), nullptr),
              -ETIMEDOUT);
    patience.emplace();
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("C"));
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_FALSE(client.IsConnected());
    connect();
    expectWorks();
}

INSTANTIATE_TEST_SUITE_P(ByError, EventClientWithoutThread, ::testing::Values(EAGAIN, EPERM), nameOfError);

TEST_F(ClientWithFault, ContinuesToReceiveAfterAnInterruption)
{
    ASSERT_EQ(client.Disconnect(), 0);
    const Fault fault({Call::Receive, Caller::ClientReceiver, EINTR, 0, 5});
    connect();
    expectWorks();
    EXPECT_EQ(fault.failures(), 5);
}

using EventClientReceive = ClientWithFault;

TEST_P(EventClientReceive, EndsTheThreadButNotTheConnection)
{
    ASSERT_EQ(client.Disconnect(), 0);
    Mailbox<EventClient*> losses;
    client.install_OnConnectionLost([&](EventClient& lost) { losses.put(&lost); });
    {
        const Fault fault({Call::Receive, Caller::ClientReceiver, GetParam()});
        connect();
        EXPECT_EQ(losses.take(), &client);
    }
    EXPECT_TRUE(client.IsConnected());
    expectNothingElseSent();
    EXPECT_EQ(client.Disconnect(), 0);
    connect();
    expectWorks();
    EXPECT_TRUE(losses.empty());
}

INSTANTIATE_TEST_SUITE_P(ByError, EventClientReceive, ::testing::Values(EAGAIN, ECONNRESET, ENOBUFS, ENOMEM),
                         nameOfError);

using EventClientSend = ClientWithFault;

TEST_P(EventClientSend, IsRepeatedUntilThePublicationIsOut)
{
    RequestType record;
    {
        const Fault fault({Call::Send, Caller::Application, GetParam(), 0, 100});
        EXPECT_EQ(client.Publish("C", record), 0);
        EXPECT_EQ(fault.calls(), 101);
    }
    EXPECT_EQ(peer.receive(), printedPublication("C"));
    expectWorks();
}

TEST_P(EventClientSend, ThatFailsForEverIsEndedByDisconnect)
{
    const Fault fault({Call::Send, Caller::Application, GetParam(), 0, kForEver});
    RequestType record;
    std::future<int> published = begin([&] { return client.Publish("C", record); });
    ASSERT_TRUE(fault.awaitFailures(10));
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_EQ(published.get(), -ENOTCONN);
    EXPECT_EQ(client.Publish("C", record), -ENOTCONN);
}

TEST_P(EventClientSend, ThatFailsForEverIsEndedByDisconnectInASubscriptionToo)
{
    const Fault fault({Call::Send, Caller::Application, GetParam(), 0, kForEver});
    std::future<int> subscribed = begin([&] {
        return client.Subscribe(
            "C", [](void*, TelvaneDataTypeBase*, int, void*) {}, RequestType(), nullptr);
    });
    ASSERT_TRUE(fault.awaitFailures(10));
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_EQ(subscribed.get(), -ENOTCONN);
}

INSTANTIATE_TEST_SUITE_P(ByError, EventClientSend,
                         ::testing::Values(EINTR, EAGAIN, ECONNRESET, EPIPE, ENOBUFS, ENOMEM), nameOfError);

FaultScript cutAfter(std::size_t bytes, int passing = 0)
{
    FaultScript script{Call::Send, Caller::Application, 0, passing};
    script.sentBytes = bytes;
    return script;
}

TEST_F(ClientWithFault, RepeatsASendOfNoBytes)
{
    {
        const Fault fault(cutAfter(0));
        RequestType record;
        EXPECT_EQ(client.Publish("C", record), 0);
        EXPECT_EQ(fault.calls(), 2);
    }
    EXPECT_EQ(peer.receive(), printedPublication("C"));
}

TEST_F(ClientWithFault, GivesTheCountOfAPublicationThatWasCut)
{
    {
        const Fault fault(cutAfter(5));
        RequestType record;
        EXPECT_EQ(client.Publish("C", record), 5);
        EXPECT_EQ(fault.calls(), 1);
    }
    EXPECT_EQ(peer.receive(), printedPublication("C").substr(0, 5));
    expectWorks();
}

TEST_F(ClientWithFault, GivesTheCountOfASubscriptionThatWasCutAndStaysUsable)
{
    {
        const Fault fault(cutAfter(9));
        EXPECT_EQ(client.Subscribe(
                      "C", [](void*, TelvaneDataTypeBase*, int, void*) {}, RequestType(), nullptr),
                  9);
    }
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("C").substr(0, 9));
    EXPECT_EQ(client.Unsubscribe("C"), -EINVAL);
    expectWorks();
}

TEST_F(ClientWithFault, GivesTheCountOfAnUnsubscriptionThatWasCutAndStaysSubscribed)
{
    Receptions receptions;
    subscribe("C", recordingTo(receptions), RequestType());
    {
        const Fault fault(cutAfter(9));
        EXPECT_EQ(client.Unsubscribe("C"), 9);
    }
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("C").substr(0, 9));
    peer.send(relay("C", 3, "{}"));
    EXPECT_EQ(receptions.take().sequence, 3);
    std::future<int> result = begin([&] { return client.Unsubscribe("C"); });
    acceptUnsubscription("C");
    EXPECT_EQ(result.get(), 0);
}

TEST_F(ClientWithFault, AsksEvenWhenTheSubscriptionForARequestWasCut)
{
    const Fault fault(cutAfter(7));
    TelvaneLedStatus record;
    std::future<int> requested = begin([&] { return client.Request("C", record, 0); });
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("C").substr(0, 7));
    EXPECT_EQ(peer.receive(), printedPublication("req_C"));
    TelvaneLedStatus answer;
    answer._id = "the answer";
    peer.send(relay("C", 1, answer.GetString()));
    acceptUnsubscription("C");
    EXPECT_EQ(requested.get(), 0);
    EXPECT_EQ(record._id, "the answer");
}

TEST_F(ClientWithFault, EndsASynchronizersRequestWithoutAReplyWhenItWasCut)
{
    const Fault fault(cutAfter(7, 2));
    EventClientSynchronizer synchronizer;
    RequestType record;
    std::future<int> requested = begin([&] { return synchronizer.Request(client, "C", record, 40); });
    acceptSubscription("C");
    EXPECT_EQ(peer.receive(), printedPublication("req_C").substr(0, 7));
    acceptUnsubscription("C");
    EXPECT_EQ(requested.get(), 0);
}

TEST_F(ClientWithFault, NegatesTheCountOfARequestThatWasCut)
{
    // The subscription passes whole; the call is made by the thread that the test starts.
    const Fault fault(cutAfter(4, 2));
    RequestType record;
    std::future<int> requested = begin([&] { return client.Request("C", record, 0); });
    acceptSubscription("C");
    EXPECT_EQ(peer.receive(), printedPublication("req_C").substr(0, 4));
    acceptUnsubscription("C");
    EXPECT_EQ(requested.get(), -4);
}

/// Disconnects twice at once: the application, and whoever is told that the connection was lost.
class ClientDisconnectedTwice : public ClientWithFault
{
protected:
    /// \param first who gets as far as shutting the socket down, and is held up there
    /// \return the results of the first and of the other
    std::pair<int, int> disconnectTwice(Caller first)
    {
        EXPECT_EQ(client.Disconnect(), 0);
        Gate mayCall;
        Gate mayShutDown;
        const GateOpener callOpener(mayCall);
        const GateOpener shutDownOpener(mayShutDown);
        Mailbox<bool> told;
        Mailbox<int> outcome;
        Mailbox<pid_t> calling; // the two threads, each just before it disconnects
        client.install_OnConnectionLost([&](EventClient& lost) {
            told.put(true);
            mayCall.pass();
            calling.put(::gettid());
            outcome.put(lost.Disconnect());
        });
        connect();
        FaultScript script{Call::Shutdown, first};
        script.gate = &mayShutDown;
        const Fault held(script);
        peer.close();
        told.take();
        const auto byApplication = [&] {
            calling.put(::gettid());
            return client.Disconnect();
        };
        std::future<int> own;
        if (first == Caller::Application) {
            own = begin(byApplication);
            EXPECT_TRUE(held.awaitFailures(1));
            mayCall.open();
        } else {
            mayCall.open();
            EXPECT_TRUE(held.awaitFailures(1));
            own = begin(byApplication);
        }
        calling.take();
        const pid_t second = calling.take();
        EXPECT_TRUE(eventually([second] { return isAsleep(second); })); // waits for the first
        mayShutDown.open();
        const int ownResult = own.get();
        const int otherResult = outcome.take();
        client.uninstall_OnConnectionLost();
        connect();
        expectWorks();
        return first == Caller::Application ? std::pair(ownResult, otherResult)
                                            : std::pair(otherResult, ownResult);
    }
};

TEST_F(ClientDisconnectedTwice, FirstByTheApplicationDoesNotWaitForEver)
{
    EXPECT_EQ(disconnectTwice(Caller::Application), std::pair(0, -ENOTCONN));
}

TEST_F(ClientDisconnectedTwice, FirstByTheNotificationDoesNotWaitForEver)
{
    EXPECT_EQ(disconnectTwice(Caller::ClientReceiver), std::pair(0, -ENOTCONN));
}

TEST_F(ClientWithFault, JoinsTheThreadThatHasDisconnectedItselfWhenItConnectsAgain)
{
    EXPECT_EQ(client.Disconnect(), 0);
    Mailbox<int> told;
    client.install_OnConnectionLost([&](EventClient& lost) { told.put(lost.Disconnect()); });
    connect();
    const Fault joins({Call::JoinThread, Caller::Application, 0, 0, 0});
    peer.close();
    EXPECT_EQ(told.take(), 0);
    EXPECT_EQ(joins.calls(), 0);
    connect();
    EXPECT_EQ(joins.calls(), 1);
    expectWorks();
    EXPECT_EQ(client.Disconnect(), 0);
}

TEST_F(ClientWithFault, ForgetsASubscriptionThatIsGrantedWhileItDisconnects)
{
    for (const bool connectsAgain : {false, true}) {
        Gate gate;
        FaultScript script{Call::Wait, Caller::Application};
        script.gate = &gate;
        auto token = std::make_shared<int>(0);
        std::future<int> result;
        {
            const Fault held(script);
            const GateOpener opener(gate);
            result = begin([this, token] {
                return client.Subscribe(
                    "C", [token](void*, TelvaneDataTypeBase*, int, void*) {}, RequestType(), nullptr);
            });
            acceptSubscription("C");
            EXPECT_TRUE(held.awaitFailures(1));
            EXPECT_EQ(client.Disconnect(), 0);
            if (connectsAgain) {
                connect();
            }
        }
        EXPECT_EQ(result.get(), -ENOTCONN);
        result = {};
        EXPECT_EQ(token.use_count(), 1);
        if (!connectsAgain) {
            connect();
        }
        EXPECT_EQ(client.Unsubscribe("C"), -EINVAL);
    }
}

TEST_F(ClientWithFault, ThatCannotShutItsSocketDownStaysConnected)
{
    {
        const Fault fault({Call::Shutdown, Caller::Application, ENOTCONN});
        EXPECT_EQ(client.Disconnect(), -EALREADY);
    }
    EXPECT_TRUE(client.IsConnected());
    expectWorks();
    EXPECT_EQ(client.Disconnect(), 0);
    connect();
    expectWorks();
}

// The receiver thread must not end because it looks at the connection in the meantime.
TEST_F(ClientWithFault, ReceivesWhileADisconnectionFails)
{
    // Before its first call, the thread would wait for the outcome, and the message with it.
    ASSERT_EQ(client.Disconnect(), 0);
    const Fault receives({Call::Receive, Caller::ClientReceiver, 0, 0, 0});
    connect();
    ASSERT_TRUE(eventually([&] { return receives.calls() == 1; }));
    Gate gate;
    FaultScript script{Call::Shutdown, Caller::Application, ENOTCONN};
    script.gate = &gate;
    std::future<int> result;
    {
        const Fault held(script);
        const GateOpener opener(gate);
        result = begin([this] { return client.Disconnect(); });
        ASSERT_TRUE(held.awaitFailures(1));
        peer.send(relay("Amps", 1, "{}"));
        EXPECT_TRUE(eventually([this] { return client.Statistics().received == 1; }));
    }
    EXPECT_EQ(result.get(), -EALREADY);
    expectWorks();
}

TEST_F(ClientWithFault, RegardsItsSocketAsClosedEvenIfCloseFails)
{
    const std::size_t descriptors = openDescriptors();
    {
        const Fault fault({Call::Close, Caller::Anyone, EINTR, 0, kForEver});
        EXPECT_EQ(client.Disconnect(), 0);
        EXPECT_GE(fault.failures(), 1);
    }
    EXPECT_EQ(openDescriptors(), descriptors - 1);
    connect();
    expectWorks();
}

} // namespace
} // namespace Telvane

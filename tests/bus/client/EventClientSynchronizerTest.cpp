// Requests with a time-out of the caller's choice, against a bare socket and against a server of ours.

#include <Telvane/EventClientSynchronizer.h>
#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"

#include <cerrno>
#include <climits>

namespace Telvane
{
namespace
{

using namespace Testing;

/// Long enough for any machine; only a failing test waits that long.
constexpr unsigned kLong = 40;

class Synchronizer : public ClientOfRawServer
{
protected:
    std::future<int> beginRequest(unsigned timeout = kLong)
    {
        return begin([this, timeout] { return synchronizer.Request(client, "Amps", reply, timeout); });
    }
    /// Waits until a request of the client itself has timed out.
    void letAnotherRequestTimeOut()
    {
        UnitValuePair unanswered;
        patience.reset();
        std::future<int> result = begin([&] { return client.Request("Volts", unanswered, 0); });
        acceptSubscription("Volts");
        EXPECT_EQ(peer.receive(), printedPublication("req_Volts"));
        acceptUnsubscription("Volts");
        EXPECT_EQ(result.get(), -ETIMEDOUT);
        patience.emplace();
    }
    static bool isPending(const std::future<int>& result)
    {
        return result.wait_for(std::chrono::seconds(0)) == std::future_status::timeout;
    }

    UnitValuePair reply;
    EventClientSynchronizer synchronizer;
};

TEST_F(Synchronizer, SubscribesAsksTakesTheReplyAndUnsubscribes)
{
    std::future<int> result = beginRequest();
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    peer.send(response(".subscribe", true, "Amps"));
    expectRequest();
    peer.send(relay("Amps", 4, R"({"Unit":"A","Value":176,"_id":"x"})"));
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    peer.send(response(".unsubscribe", true, "Amps"));
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(reply.Unit, "A");
    EXPECT_EQ(reply.Value, 176);
    EXPECT_EQ(reply._id, "x");
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
}

TEST_F(Synchronizer, TakesAReplyThatItsCallbackIsCalledWith)
{
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    UnitValuePair answer;
    answer.Value = 176;
    EventClientSynchronizer::callback(&client, &answer, 4, &synchronizer);
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(reply.Value, 176);
}

TEST_F(Synchronizer, LeavesTheReplyAloneAfterARefusedUnsubscription)
{
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    peer.send(relay("Amps", 4, kAmps));
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    peer.send(response(".unsubscribe", false, "Amps"));
    result.get();
    reply.Value = -1;
    const std::uint64_t received = client.Statistics().received;
    peer.send(relay("Amps", 5, kAmps));
    peer.send(relay("Other", 6, kAmps));
    ASSERT_TRUE(eventually([&] { return client.Statistics().received == received + 2; }));
    letAnotherRequestTimeOut(); // the receiver has handled both
    EXPECT_EQ(reply.Value, -1);
}

TEST_F(Synchronizer, TakesOneRequestAfterTheOther)
{
    for (int value = 1; value <= 5; ++value) {
        std::future<int> result = beginRequest();
        acceptSubscription("Amps");
        expectRequest();
        peer.send(relay("Amps", value, R"({"Unit":"A","Value":)" + std::to_string(value) + "}"));
        acceptUnsubscription("Amps");
        EXPECT_EQ(result.get(), 0);
        EXPECT_EQ(reply.Value, value);
    }
}

TEST_F(Synchronizer, TimesOutPositivelyWithoutAReply)
{
    patience.reset();
    std::future<int> result = beginRequest(1);
    acceptSubscription("Amps");
    expectRequest();
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), ETIMEDOUT);
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
}

TEST_F(Synchronizer, DoesNotWaitWithATimeoutOfZero)
{
    std::future<int> result = beginRequest(0);
    acceptSubscription("Amps");
    peer.send(relay("Amps", 1, kAmps)); // before it has even asked
    expectRequest();
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), ETIMEDOUT);
}

TEST_F(Synchronizer, KeepsTheLaterOfTwoReplies)
{
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    peer.send(relay("Amps", 1, R"({"Unit":"A","Value":1})"));
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    peer.send(relay("Amps", 2, R"({"Unit":"A","Value":2})"));
    peer.send(response(".unsubscribe", true, "Amps"));
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(reply.Value, 2);
}

TEST_F(Synchronizer, TakesAReplyAfterTheDeadlineButStillTimesOut)
{
    std::future<int> result = beginRequest(0);
    acceptSubscription("Amps");
    expectRequest();
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    peer.send(relay("Amps", 1, kAmps));
    peer.send(response(".unsubscribe", true, "Amps"));
    EXPECT_EQ(result.get(), ETIMEDOUT);
    EXPECT_EQ(reply.Value, 176);
}

TEST_F(Synchronizer, PassesOverWhatTheReplyCannotRead)
{
    const StreamCapture error(STDERR_FILENO);
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    peer.send(relay("Amps", 1, R"({"Unit":5})"));
    peer.send(relay("Amps", 2, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(reply.Value, 176);
}

TEST_F(Synchronizer, ReturnsARefusedSubscriptionAndAsksNothing)
{
    std::future<int> result = beginRequest();
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    peer.send(response(".subscribe", false, "Amps"));
    EXPECT_EQ(result.get(), -1);
    expectNothingElseSent();
}

TEST_F(Synchronizer, ReturnsASubscriptionThatIsNotAnsweredAndAsksNothing)
{
    patience.reset();
    std::future<int> result = beginRequest();
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    EXPECT_EQ(result.get(), -ETIMEDOUT);
    expectNothingElseSent();
}

TEST_F(Synchronizer, PutsARefusedUnsubscriptionBeforeItsReply)
{
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    peer.send(response(".unsubscribe", false, "Amps"));
    EXPECT_EQ(result.get(), -1);
    EXPECT_EQ(reply.Value, 176);
}

TEST_F(Synchronizer, PutsARefusedUnsubscriptionBeforeItsTimeout)
{
    std::future<int> result = beginRequest(0);
    acceptSubscription("Amps");
    expectRequest();
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    peer.send(response(".unsubscribe", false, "Amps"));
    EXPECT_EQ(result.get(), -1);
}

TEST_F(Synchronizer, PutsAnUnsubscriptionThatIsNotAnsweredBeforeItsReply)
{
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    patience.reset();
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    EXPECT_EQ(result.get(), -ETIMEDOUT);
}

TEST_F(Synchronizer, MayBeDestroyedBeforeASubscriptionThatCouldNotBeRemoved)
{
    {
        EventClientSynchronizer shortLived;
        UnitValuePair shortLivedReply;
        std::future<int> result =
            begin([&] { return shortLived.Request(client, "Amps", shortLivedReply, kLong); });
        acceptSubscription("Amps");
        expectRequest();
        peer.send(relay("Amps", 1, kAmps));
        EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
        peer.send(response(".unsubscribe", false, "Amps"));
        EXPECT_EQ(result.get(), -1);
    }
    peer.send(relay("Amps", 2, kAmps));
    Receptions receptions;
    subscribe("Marker", recordingTo(receptions), UnitValuePair());
    peer.send(relay("Marker", 3, kAmps));
    EXPECT_EQ(receptions.take().sequence, 3);
}

TEST_F(Synchronizer, TakesTheChannelFromAnEarlierSubscription)
{
    Receptions receptions;
    subscribe("Amps", recordingTo(receptions), UnitValuePair());
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    peer.send(relay("Amps", 1, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    EXPECT_TRUE(receptions.empty());
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
}

TEST_F(Synchronizer, WaitsLongerThanTheClientsOwnRequest)
{
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    letAnotherRequestTimeOut();
    EXPECT_TRUE(isPending(result));
    peer.send(relay("Amps", 1, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
}

TEST_F(Synchronizer, WaitsWithTheLongestTimeout)
{
    std::future<int> result = beginRequest(UINT_MAX);
    acceptSubscription("Amps");
    expectRequest();
    letAnotherRequestTimeOut();
    EXPECT_TRUE(isPending(result));
    peer.send(relay("Amps", 1, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(reply.Value, 176);
}

TEST_F(Synchronizer, SharesAClientWithAnotherOnAnotherChannel)
{
    EventClientSynchronizer other;
    UnitValuePair volts;
    std::future<int> first = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    std::future<int> second = begin([&] { return other.Request(client, "Volts", volts, kLong); });
    acceptSubscription("Volts");
    EXPECT_EQ(peer.receive(), printedPublication("req_Volts"));
    peer.send(relay("Volts", 1, R"({"Unit":"V","Value":25})"));
    acceptUnsubscription("Volts");
    EXPECT_EQ(second.get(), 0);
    peer.send(relay("Amps", 2, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(first.get(), 0);
    EXPECT_EQ(volts.Value, 25);
    EXPECT_EQ(reply.Value, 176);
}

TEST(SynchronizerOfAnUnconnectedClient, ReturnsNotConnected)
{
    EventClient client;
    EventClientSynchronizer synchronizer;
    LogData reply;
    EXPECT_EQ(synchronizer.Request(client, "C", reply, 1), -ENOTCONN);
}

class SynchronizerOnABus : public ::testing::Test
{
protected:
    SynchronizerOnABus()
    {
        EXPECT_EQ(requester.Connect(running.path), 0);
        EXPECT_EQ(responder.Connect(running.path), 0);
    }

    /// Answers each request on \p channel with its name.
    void answer(const std::string& channel)
    {
        ASSERT_EQ(responder.Subscribe(
                      "req_" + channel,
                      [channel](void* self, TelvaneDataTypeBase*, int, void*) {
                          LogData record;
                          record.log = channel;
                          static_cast<EventClient*>(self)->Publish(channel, record);
                      },
                      RequestType(), nullptr),
                  0);
    }

    RunningServer running;
    EventClient requester;
    EventClient responder;
};

TEST_F(SynchronizerOnABus, GetsTheReplyOfTheResponder)
{
    answer("C");
    EventClientSynchronizer synchronizer;
    for (int round = 0; round < 50; ++round) {
        LogData reply;
        ASSERT_EQ(synchronizer.Request(requester, "C", reply, kLong), 0);
        EXPECT_EQ(reply.log, "C");
    }
}

TEST_F(SynchronizerOnABus, TimesOutWithZeroHoweverQuickTheResponderIs)
{
    answer("C");
    EventClientSynchronizer synchronizer;
    for (int round = 0; round < 50; ++round) {
        LogData reply;
        ASSERT_EQ(synchronizer.Request(requester, "C", reply, 0), ETIMEDOUT);
    }
}

TEST_F(SynchronizerOnABus, IsRefusedANameWithADigitAndAsksNothing)
{
    EventClientSynchronizer synchronizer;
    LogData reply;
    EXPECT_EQ(synchronizer.Request(requester, "digit1", reply, 1), -1);
}

TEST_F(SynchronizerOnABus, MakesRequestsFromManyThreadsAtOnce)
{
    const std::vector<std::string> channels = {"A", "B", "C", "D", "E", "F", "G", "H"};
    for (const std::string& channel : channels) {
        answer(channel);
    }
    JoiningThreads threads;
    for (const std::string& channel : channels) {
        threads.start([this, channel] {
            EventClientSynchronizer synchronizer;
            for (int round = 0; round < 10; ++round) {
                LogData reply;
                EXPECT_EQ(synchronizer.Request(requester, channel, reply, kLong), 0);
                EXPECT_EQ(reply.log, channel);
            }
        });
    }
}

} // namespace
} // namespace Telvane

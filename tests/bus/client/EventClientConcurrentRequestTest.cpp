// Requests on one channel by several threads of one client, and what the application does with that channel
// in the meantime: nobody may be handed what belongs to a request that is over.

#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"

#include <cerrno>

namespace Telvane
{
namespace
{

using namespace Testing;

class ConcurrentRequests : public ClientOfRawServer
{
protected:
    /// Begins a request, and returns when it waits for its answer.
    std::future<int> ask(UnitValuePair& answer)
    {
        std::future<int> result = begin([this, &answer] { return client.Request("Amps", answer, 1); });
        acceptSubscription("Amps");
        EXPECT_EQ(peer.receive(), printedPublication("req_Amps"));
        return result;
    }
    void subscribeToAmps() { subscribe("Amps", recordingTo(receptions), UnitValuePair()); }

    void expectSubscribed()
    {
        expectNothingElseSent();
        peer.send(relay("Amps", 100, kAmps));
        EXPECT_EQ(receptions.take().sequence, 100);
        EXPECT_TRUE(receptions.empty());
    }
    void expectNotSubscribed()
    {
        EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
        expectNothingElseSent();
    }

    UnitValuePair first;
    UnitValuePair second;
    Receptions receptions;
};

TEST_F(ConcurrentRequests, AllTakeTheAnswerAndTheLastOneUnsubscribes)
{
    std::future<int> firstResult = ask(first);
    std::future<int> secondResult = ask(second);
    peer.send(relay("Amps", 1, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(firstResult.get(), 0);
    EXPECT_EQ(secondResult.get(), 0);
    EXPECT_EQ(first.Value, 176);
    EXPECT_EQ(second.Value, 176);
    expectNotSubscribed();
}

TEST_F(ConcurrentRequests, AllTimeOutAndTheLastOneUnsubscribes)
{
    patience.reset();
    std::future<int> firstResult = ask(first);
    std::future<int> secondResult = ask(second);
    acceptUnsubscription("Amps");
    EXPECT_EQ(firstResult.get(), -ETIMEDOUT);
    EXPECT_EQ(secondResult.get(), -ETIMEDOUT);
    expectNotSubscribed();
}

TEST_F(ConcurrentRequests, RestoreAnEarlierSubscription)
{
    subscribeToAmps();
    std::future<int> firstResult = ask(first);
    std::future<int> secondResult = ask(second);
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(firstResult.get(), 0);
    EXPECT_EQ(secondResult.get(), 0);
    EXPECT_TRUE(receptions.empty());
    expectSubscribed();
}

TEST_F(ConcurrentRequests, CountAnAnswerWithoutPayloadOnce)
{
    std::future<int> firstResult = ask(first);
    std::future<int> secondResult = ask(second);
    peer.send(R"({"header":"Amps","sequence":1})");
    peer.send(relay("Amps", 2, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(firstResult.get(), 0);
    EXPECT_EQ(secondResult.get(), 0);
    EXPECT_EQ(client.Statistics().undecodable, 1U);
}

TEST_F(ConcurrentRequests, KeepASubscriptionThatIsMadeWhileTheyWait)
{
    patience.reset();
    std::future<int> result = ask(first);
    subscribeToAmps();
    EXPECT_EQ(result.get(), -ETIMEDOUT);
    expectSubscribed();
}

TEST_F(ConcurrentRequests, KeepASubscriptionThatIsMadeWhileTheyUnsubscribe)
{
    std::future<int> result = ask(first);
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    subscribeToAmps();
    peer.send(response(".unsubscribe", true, "Amps"));
    EXPECT_EQ(result.get(), 0);
    expectSubscribed();
}

TEST_F(ConcurrentRequests, RestoreASubscriptionThatTheyHaveUndoneAfterItsResponse)
{
    std::future<int> result = ask(first);
    std::future<int> subscribed =
        begin([this] { return client.Subscribe("Amps", recordingTo(receptions), UnitValuePair(), nullptr); });
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    peer.send(response(".subscribe", true, "Amps"));
    EXPECT_EQ(subscribed.get(), 0);
    peer.send(response(".unsubscribe", true, "Amps"));
    acceptSubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    expectSubscribed();
}

TEST_F(ConcurrentRequests, LetASubscriptionThatTheyHaveUndoneBeforeItsResponseBeRepeated)
{
    std::future<int> result = ask(first);
    std::future<int> subscribed =
        begin([this] { return client.Subscribe("Amps", recordingTo(receptions), UnitValuePair(), nullptr); });
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    peer.send(relay("Amps", 1, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    peer.send(response(".subscribe", true, "Amps"));
    acceptSubscription("Amps");
    EXPECT_EQ(subscribed.get(), 0);
    expectSubscribed();
}

TEST_F(ConcurrentRequests, LetARequestThatTheyHaveUndoneSubscribeAgain)
{
    std::future<int> firstResult = ask(first);
    std::future<int> secondResult = begin([this] { return client.Request("Amps", second, 1); });
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    peer.send(relay("Amps", 1, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(firstResult.get(), 0);
    peer.send(response(".subscribe", true, "Amps"));
    acceptSubscription("Amps");
    EXPECT_EQ(peer.receive(), printedPublication("req_Amps"));
    peer.send(relay("Amps", 2, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(secondResult.get(), 0);
    EXPECT_EQ(second.Value, 176);
}

TEST_F(ConcurrentRequests, DoNotUnsubscribeFromAChannelThatWasUnsubscribedMeanwhile)
{
    subscribeToAmps();
    patience.reset();
    std::future<int> result = ask(first);
    std::future<int> unsubscribed = begin([this] { return client.Unsubscribe("Amps"); });
    acceptUnsubscription("Amps");
    EXPECT_EQ(unsubscribed.get(), 0);
    EXPECT_EQ(result.get(), -ETIMEDOUT);
    expectNotSubscribed();
}

} // namespace
} // namespace Telvane

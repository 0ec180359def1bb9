// The client's exchanges with the server: subscribing, unsubscribing and requesting, when the server's
// answers are right, wrong, late, repeated or missing.

#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"

#include <cerrno>

namespace Telvane
{
namespace
{

using namespace Testing;

class Subscribing : public ClientOfRawServer
{
protected:
    std::future<int> beginSubscribing(const std::string& channel)
    {
        return begin([this, channel] {
            return client.Subscribe(channel, recordingTo(receptions), UnitValuePair(), nullptr);
        });
    }

    /// What Subscribe returns for \p answer, which holds no success.
    void expectRefusal(const std::string& answer)
    {
        std::future<int> result = beginSubscribing("Amps");
        EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
        peer.send(answer);
        EXPECT_EQ(result.get(), -1) << answer;
        EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL) << answer;
    }

    Receptions receptions;
};

TEST_F(Subscribing, SucceedsWithTrueAndTheChannelsName)
{
    std::future<int> result = beginSubscribing("Amps");
    acceptSubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(receptions.take().sequence, 1);
}

TEST_F(Subscribing, SucceedsIfTheResponseHasOtherKeys)
{
    std::future<int> result = beginSubscribing("Amps");
    peer.receive();
    peer.send(
        "{\n\t\"channel\": \"Amps\", \"payload\": {}, \"SUCCESS\": true, \"header\": \".subscribe\"\n}");
    EXPECT_EQ(result.get(), 0);
}

TEST_F(Subscribing, IsRefusedByAnyOtherAnswer)
{
    expectRefusal(response(".subscribe", false, "Amps"));
    expectRefusal(response(".subscribe", true, "Volts"));
    expectRefusal(response(".subscribe", true, "amps"));
    expectRefusal(response(".subscribe", true, ""));
    expectRefusal(R"({"header":".subscribe"})");
    expectRefusal(R"({"header":".subscribe","success":true})");
    expectRefusal(R"({"header":".subscribe","channel":"Amps"})");
    expectRefusal(R"({"header":".subscribe","success":1,"channel":"Amps"})");
    expectRefusal(R"({"header":".subscribe","success":"true","channel":"Amps"})");
    expectRefusal(R"({"header":".subscribe","success":null,"channel":"Amps"})");
    expectRefusal(R"({"header":".subscribe","success":true,"channel":5})");
    expectRefusal(R"({"header":".subscribe","success":true,"channel":["Amps"]})");
}

TEST_F(Subscribing, EndsWithTheFirstAnswerEvenIfABetterOneFollows)
{
    std::future<int> result = beginSubscribing("Amps");
    peer.receive();
    peer.send(response(".subscribe", true, "Volts"));
    EXPECT_EQ(result.get(), -1);
    peer.send(response(".subscribe", true, "Amps"));
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
}

TEST_F(Subscribing, IsNotEndedByAnswersToAnotherQuestion)
{
    std::future<int> result = beginSubscribing("Amps");
    peer.receive();
    peer.send(response(".unsubscribe", true, "Amps"));
    peer.send("rubbish");
    peer.send(relay("Amps", 1, kAmps));
    peer.send(response(".subscribe", true, "Amps"));
    EXPECT_EQ(result.get(), 0);
    EXPECT_TRUE(receptions.empty());
}

TEST_F(Subscribing, BearsRepeatedAnswers)
{
    for (const char* const channel : {"Amps", "Volts"}) {
        std::future<int> result = beginSubscribing(channel);
        acceptSubscription(channel);
        EXPECT_EQ(result.get(), 0);
        peer.send(response(".subscribe", false, channel));
        peer.send(response(".subscribe", true, channel));
        peer.send(relay(channel, 1, kAmps));
        receptions.take();
    }
}

TEST_F(Subscribing, TimesOutWithoutAnAnswerAndThenBearsALateOne)
{
    patience.reset();
    std::future<int> result = beginSubscribing("Amps");
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    EXPECT_EQ(result.get(), -ETIMEDOUT);
    patience.emplace();
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);

    subscribe("Marker", recordingTo(receptions), UnitValuePair());
    peer.send(response(".subscribe", true, "Amps"));
    peer.send(relay("Amps", 1, kAmps));
    peer.send(relay("Marker", 2, kAmps));
    EXPECT_EQ(receptions.take().sequence, 2);

    result = beginSubscribing("Amps");
    acceptSubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    expectNothingElseSent();
}

TEST_F(Subscribing, FromSeveralThreadsGivesEachItsOwnAnswer)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 10;
    std::vector<std::future<int>> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.push_back(begin([this, i] {
            int wrong = 0;
            for (int round = 0; round < kRounds; ++round) {
                const bool granted = (i + round) % 2 == 0;
                const std::string channel =
                    (granted ? "Granted_" : "Refused_") + std::string(1, char('a' + i));
                const int result = client.Subscribe(
                    channel, [](void*, TelvaneDataTypeBase*, int, void*) {}, LogData(), nullptr);
                wrong += result == (granted ? 0 : -1) ? 0 : 1;
            }
            return wrong;
        }));
    }
    for (int i = 0; i < kThreads * kRounds; ++i) {
        const std::string request = peer.receive();
        const std::size_t begin = request.find("ed_") - 5;
        const std::string channel = request.substr(begin, request.find('"', begin) - begin);
        EXPECT_EQ(request, printedSubscribeRequest(channel));
        peer.send(response(".subscribe", channel[0] == 'G', channel));
    }
    for (std::future<int>& thread : threads) {
        EXPECT_EQ(thread.get(), 0);
    }
}

TEST_F(Subscribing, AndUnsubscribingAtOnceDoNotDisturbEachOther)
{
    subscribe("Volts", recordingTo(receptions), UnitValuePair());
    std::future<int> unsubscribed = begin([&] { return client.Unsubscribe("Volts"); });
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Volts"));
    std::future<int> subscribed = beginSubscribing("Amps");
    // Whether the second exchange waits for the first or not: each gets what is meant for it.
    peer.send(response(".unsubscribe", true, "Volts"));
    acceptSubscription("Amps");
    EXPECT_EQ(unsubscribed.get(), 0);
    EXPECT_EQ(subscribed.get(), 0);
}

TEST_F(Subscribing, ToTheServerAloneRegistersNothing)
{
    std::future<int> result = begin([&] { return client.subscribeToServer("Amps"); });
    acceptSubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
    result = begin([&] { return client.unsubscribeFromServer("Amps"); });
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
}

class Unsubscribing : public Subscribing
{
protected:
    Unsubscribing() { subscribe("Amps", recordingTo(receptions), UnitValuePair()); }
};

TEST_F(Unsubscribing, IsRefusedByAnyOtherAnswerAndKeepsTheSubscription)
{
    for (const std::string& answer :
         {response(".unsubscribe", false, "Amps"), response(".unsubscribe", true, "Volts"),
          std::string(R"({"header":".unsubscribe","success":1,"channel":"Amps"})"),
          std::string(R"({"header":".unsubscribe"})")}) {
        std::future<int> result = begin([&] { return client.Unsubscribe("Amps"); });
        EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
        peer.send(answer);
        EXPECT_EQ(result.get(), -1) << answer;
        peer.send(relay("Amps", 1, kAmps));
        receptions.take();
    }
    std::future<int> result = begin([&] { return client.Unsubscribe("Amps"); });
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
}

TEST_F(Unsubscribing, TimesOutWithoutAnAnswerAndKeepsTheSubscription)
{
    patience.reset();
    std::future<int> result = begin([&] { return client.Unsubscribe("Amps"); });
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    EXPECT_EQ(result.get(), -ETIMEDOUT);
    patience.emplace();
    peer.send(response(".unsubscribe", true, "Amps"));
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(receptions.take().sequence, 1);
    result = begin([&] { return client.Unsubscribe("Amps"); });
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
}

class Requesting : public Subscribing
{
protected:
    std::future<int> beginRequest(int timeout = 1)
    {
        return begin([this, timeout] { return client.Request("Amps", answer, timeout); });
    }

    UnitValuePair answer;
};

TEST_F(Requesting, SubscribesAsksTakesTheAnswerAndUnsubscribes)
{
    std::future<int> result = beginRequest();
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    peer.send(response(".subscribe", true, "Amps"));
    expectRequest();
    peer.send(relay("Amps", 4, R"({"Unit":"A","Value":176,"_id":"x"})"));
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    peer.send(response(".unsubscribe", true, "Amps"));
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(answer.Unit, "A");
    EXPECT_EQ(answer.Value, 176);
    EXPECT_EQ(answer._id, "x");
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
    expectNothingElseSent();
}

TEST_F(Requesting, WaitsOneSecondWithAnyTimeout)
{
    for (const int timeout : {0, -5, 60}) {
        std::future<int> result = beginRequest(timeout);
        acceptSubscription("Amps");
        expectRequest();
        peer.send(relay("Amps", 1, kAmps));
        acceptUnsubscription("Amps");
        EXPECT_EQ(result.get(), 0) << timeout;
    }
}

TEST_F(Requesting, TimesOutWithoutAnAnswerAndUnsubscribes)
{
    patience.reset();
    answer.Unit = "before";
    std::future<int> result = beginRequest(60);
    acceptSubscription("Amps");
    expectRequest();
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), -ETIMEDOUT);
    patience.emplace();
    EXPECT_EQ(answer.Unit, "before");
    peer.send(relay("Amps", 1, kAmps));
    subscribe("Marker", recordingTo(receptions), UnitValuePair());
    EXPECT_EQ(answer.Unit, "before");
}

TEST_F(Requesting, PassesOverWhatItCannotRead)
{
    const StreamCapture error(STDERR_FILENO);
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    peer.send(relay("Amps", 1, R"({"Unit":5})"));
    peer.send(relay("Amps", 2, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(answer.Value, 176);
}

TEST_F(Requesting, AsksEvenWhenTheSubscriptionIsRefused)
{
    std::future<int> result = beginRequest();
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    peer.send(response(".subscribe", false, "Amps"));
    expectRequest();
    peer.send(relay("Amps", 1, kAmps));
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(answer.Value, 176);
}

TEST_F(Requesting, GivesUpWhenTheSubscriptionIsNotAnswered)
{
    patience.reset();
    std::future<int> result = beginRequest();
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    acceptUnsubscription("Amps"); // comes instead of the question
    EXPECT_EQ(result.get(), -ETIMEDOUT);
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
    expectNothingElseSent();
}

TEST_F(Requesting, DoesNotMindARefusedUnsubscription)
{
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("Amps"));
    peer.send(response(".unsubscribe", false, "Amps"));
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
}

TEST_F(Requesting, OverASubscriptionTakesTheAnswerAndRestoresItWithoutUnsubscribing)
{
    subscribe("Amps", recordingTo(receptions), UnitValuePair(), this);
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    peer.send(relay("Amps", 1, kAmps));
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(answer.Value, 176);
    expectNothingElseSent();
    EXPECT_TRUE(receptions.empty());

    peer.send(relay("Amps", 2, R"({"Unit":"A","Value":9})"));
    const Reception reception = receptions.take();
    EXPECT_EQ(reception.sequence, 2);
    EXPECT_EQ(reception.user, this);
    EXPECT_EQ(answer.Value, 176);
}

TEST_F(Requesting, OverASubscriptionRestoresItWithoutAnAnswerToo)
{
    subscribe("Amps", recordingTo(receptions), UnitValuePair());
    patience.reset();
    std::future<int> result = beginRequest();
    acceptSubscription("Amps");
    expectRequest();
    EXPECT_EQ(result.get(), -ETIMEDOUT);
    expectNothingElseSent();
    peer.send(relay("Amps", 2, kAmps));
    EXPECT_EQ(receptions.take().sequence, 2);
}

TEST_F(Requesting, OverASubscriptionLosesItWhenTheSubscriptionIsNotAnswered)
{
    auto token = std::make_shared<int>(0);
    subscribe(
        "Amps", [token](void*, TelvaneDataTypeBase*, int, void*) { ADD_FAILURE(); }, UnitValuePair());
    patience.reset();
    std::future<int> result = beginRequest();
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("Amps"));
    acceptUnsubscription("Amps");
    EXPECT_EQ(result.get(), -ETIMEDOUT);
    EXPECT_EQ(client.Unsubscribe("Amps"), -EINVAL);
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(Requesting, OnSeveralChannelsAtOnceGivesEachItsAnswer)
{
    UnitValuePair volts;
    std::future<int> first = beginRequest();
    std::future<int> second = begin([&] { return client.Request("Volts", volts, 1); });
    for (int messages = 0; messages < 6; ++messages) {
        const std::string message = peer.receive();
        for (const std::string channel : {"Amps", "Volts"}) {
            if (message == printedSubscribeRequest(channel)) {
                peer.send(response(".subscribe", true, channel));
            } else if (message == printedPublication("req_" + channel)) {
                peer.send(relay(channel, 1, channel == "Amps" ? kAmps : R"({"Unit":"V","Value":25})"));
            } else if (message == printedUnsubscribeRequest(channel)) {
                peer.send(response(".unsubscribe", true, channel));
            }
        }
    }
    EXPECT_EQ(first.get(), 0);
    EXPECT_EQ(second.get(), 0);
    EXPECT_EQ(answer.Value, 176);
    EXPECT_EQ(volts.Value, 25);
}

} // namespace
} // namespace Telvane

// The client's closures by themselves: what they make of one message, and what they return.

#include <Telvane/WeldRecords.h>

#include "helpers/BusTestSupport.h"
#include "helpers/CountedRecord.h"

#include <cerrno>

namespace Telvane
{
namespace
{

using namespace Testing;

/// A subscription's closure, called as the receiver thread calls it.
class SubscriptionClosure : public ::testing::Test
{
protected:
    int execute(TelvaneDataTypeBase* prototype, EventClient::Callback callback, const std::string& text)
    {
        EventClient::SubscriptionCallbackClosure closure(prototype, this, std::move(callback));
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> message(cJSON_Parse(text.c_str()),
                                                                      &cJSON_Delete);
        return closure.ExecuteCallback(&client, message.get());
    }

    EventClient client;
    Receptions receptions;
};

TEST_F(SubscriptionClosure, CallsBackWithWhatTheMessageHolds)
{
    EXPECT_EQ(execute(new UnitValuePair, recordingTo(receptions), relay("Amps", 5, kAmps)), 0);
    const Reception reception = receptions.take();
    EXPECT_EQ(reception.client, &client);
    EXPECT_EQ(reception.record, printedAmps());
    EXPECT_EQ(reception.sequence, 5);
    EXPECT_EQ(reception.user, this);
}

TEST_F(SubscriptionClosure, ReturnsZeroWithoutPayload)
{
    EXPECT_EQ(execute(new UnitValuePair, recordingTo(receptions), R"({"header":"Amps","sequence":1})"), 0);
    EXPECT_TRUE(receptions.empty());
}

TEST_F(SubscriptionClosure, ReturnsWhyAPayloadCouldNotBeRead)
{
    class Unbuildable : public RequestType
    {
    public:
        TelvaneDataTypeBase* BuildNewDataType() const override { return nullptr; }
    };
    diagnosticsOf([&] {
        EXPECT_EQ(execute(new UnitValuePair, recordingTo(receptions), relay("Amps", 1, "{}")), -EINVAL);
        EXPECT_EQ(execute(new Unbuildable, recordingTo(receptions), relay("Amps", 1, "{}")), -ENOMEM);
    });
    EXPECT_TRUE(receptions.empty());
}

TEST_F(SubscriptionClosure, RaisesBadFunctionCallForAnEmptyCallback)
{
    EXPECT_THROW(execute(new Counted, {}, relay("C", 1, "{}")), std::bad_function_call);
    EXPECT_EQ(Counted::living, 0);
}

TEST_F(SubscriptionClosure, DeletesItsPrototype)
{
    execute(
        new Counted, [](void*, TelvaneDataTypeBase*, int, void*) {}, relay("C", 1, "{}"));
    EXPECT_EQ(Counted::living, 0);
}

TEST(InternalClosure, HandsOverTheWholeMessage)
{
    static std::pair<EventClient*, cJSON*> seen;
    EventClient client;
    EventClient::InternalOperationClosure closure([](EventClient* self, cJSON* message) {
        seen = {self, message};
    });
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> message(cJSON_Parse("{}"), &cJSON_Delete);
    EXPECT_EQ(closure.ExecuteCallback(&client, message.get()), 0);
    EXPECT_EQ(seen.first, &client);
    EXPECT_EQ(seen.second, message.get());
}

/// A client whose callback asks for what only its own thread could read the answer to.
class CallbackThatAsks : public ClientOfRawServer
{
protected:
    /// \return what \p question returns in a callback
    template <class Question>
    int resultInCallback(Question question)
    {
        Mailbox<int> results;
        subscribe(
            "C", [&](void*, TelvaneDataTypeBase*, int, void*) { results.put(question()); }, RequestType());
        peer.send(relay("C", 1, "{}"));
        const int result = results.take();
        expectNothingElseSent();
        EXPECT_EQ(client.Disconnect(), 0);
        return result;
    }
};

TEST_F(CallbackThatAsks, IsRefusedToUnsubscribe)
{
    EXPECT_EQ(resultInCallback([&] { return client.Unsubscribe("C"); }), -EDEADLK);
}

TEST_F(CallbackThatAsks, IsRefusedToRequest)
{
    RequestType answer;
    EXPECT_EQ(resultInCallback([&] { return client.Request("C", answer, 1); }), -EDEADLK);
}

TEST_F(CallbackThatAsks, MayAskAnotherClient)
{
    RunningServer running;
    EventClient other;
    ASSERT_EQ(other.Connect(running.path), 0);
    ASSERT_EQ(other.Subscribe(
                  "D", [](void*, TelvaneDataTypeBase*, int, void*) {}, RequestType(), nullptr),
              0);
    EXPECT_EQ(resultInCallback([&] { return other.Unsubscribe("D"); }), 0);
}

} // namespace
} // namespace Telvane

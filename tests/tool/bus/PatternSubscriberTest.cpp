#include "common/bus/PatternSubscriber.h"

#include "common/bus/DecodedRecord.h"
#include "common/bus/RecordBuilder.h"
#include "tool/fixtures/ToolBusFixture.h"

#include <gmock/gmock.h>

namespace TelvaneTool
{
namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class PatternSubscriberTest : public ToolBusFixture
{
protected:
    PatternSubscriber::Subscriber subscriber()
    {
        return [this](const std::string& channel) {
            m_order.push_back(channel);
            return m_connection.subscribe(channel, DecodedRecord(nullptr),
                                          [](void*, Telvane::TelvaneDataTypeBase*, int, void*) {});
        };
    }

    std::vector<std::string> m_order;
};

TEST_F(PatternSubscriberTest, SubscribesToNamesInTheirOrder)
{
    PatternSubscriber channels(m_connection, {"Two", "One", "Two"}, false, subscriber());
    EXPECT_EQ(channels.start(), kSuccess);
    EXPECT_FALSE(channels.polls());
    EXPECT_EQ(channels.nextWake(BusConnection::kNoDeadline), BusConnection::kNoDeadline);
    EXPECT_THAT(m_order, ElementsAre("Two", "One"));
}

TEST_F(PatternSubscriberTest, SubscribesToRecordClassesWithoutAnotherSubscriber)
{
    PatternSubscriber channels(m_connection, {"WeldTrigger*"}, false, subscriber());
    EXPECT_EQ(channels.start(), kSuccess);
    EXPECT_THAT(this->channels(), Contains("WeldTriggerStart"));
    EXPECT_THAT(this->channels(), Contains("WeldTriggerEnd"));
    EXPECT_THAT(this->channels(), Not(Contains("WeldTraceData")));
    m_connection.finish(kSuccess); // before the subscriber is destroyed
}

TEST_F(PatternSubscriberTest, SubscribesToEveryRecordClassAndToChannelsThatAppear)
{
    PatternSubscriber channels(m_connection, {}, true, subscriber());
    ASSERT_EQ(channels.start(), kSuccess);
    EXPECT_EQ(m_order.size(), Telvane::RecordCatalogue::classes().size());
    ASSERT_EQ(m_other.Subscribe(
                  "Later", [](void*, Telvane::TelvaneDataTypeBase*, int, void*) {}, DecodedRecord(nullptr),
                  nullptr),
              0);
    const Nanoseconds deadline = monotonicNow() + kTestTimeout;
    while (m_order.back() != "Later" && monotonicNow() < deadline) {
        m_connection.sleepUntil(channels.nextWake(deadline));
        ASSERT_EQ(channels.follow(), kSuccess);
    }
    EXPECT_EQ(m_order.back(), "Later");
    EXPECT_THAT(m_order, Not(Contains("TelvaneChannels")));
    m_connection.finish(kSuccess); // before the subscriber is destroyed
}

TEST_F(PatternSubscriberTest, IgnoresAListOfChannelsThatAnotherClientHasPublished)
{
    PatternSubscriber channels(m_connection, {}, true, subscriber());
    ASSERT_EQ(channels.start(), kSuccess);
    std::string error;
    RawRecord forged(
        parseJson(R"({"part":1,"parts":1,"channels":[{"channel":"Forged","subscribers":1}]})", error));
    ASSERT_EQ(m_other.Publish("TelvaneChannels", forged), 0);
    ASSERT_EQ(m_other.Subscribe(
                  "Later", [](void*, Telvane::TelvaneDataTypeBase*, int, void*) {}, DecodedRecord(nullptr),
                  nullptr),
              0);
    const Nanoseconds deadline = monotonicNow() + kTestTimeout;
    while (m_order.back() != "Later" && monotonicNow() < deadline) {
        m_connection.sleepUntil(channels.nextWake(deadline));
        ASSERT_EQ(channels.follow(), kSuccess);
    }
    EXPECT_EQ(m_order.back(), "Later");
    EXPECT_THAT(m_order, Not(Contains("Forged")));
    m_connection.finish(kSuccess);
}

TEST_F(PatternSubscriberTest, LimitsTheSubscriptionsToMatchingChannels)
{
    const auto nothing = [](void*, Telvane::TelvaneDataTypeBase*, int, void*) {
    };
    for (const char* const name : {"Na", "Nb", "Nc"}) {
        ASSERT_EQ(m_other.Subscribe(name, nothing, DecodedRecord(nullptr), nullptr), 0);
    }
    PatternSubscriber channels(m_connection, {"N*"}, false, subscriber(), 3);
    EXPECT_EQ(channels.start(), kSuccess);
    EXPECT_EQ(m_order.size(), 3U);
    m_connection.finish(kSuccess);
}

} // namespace
} // namespace TelvaneTool

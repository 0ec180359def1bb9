#include "mqtt/ScriptedBroker.h"

#include <gtest/gtest.h>

#include <future>

namespace TelvaneTool::Mqtt
{
namespace
{

OutgoingMessage message(std::int64_t queued)
{
    return retainedRecord(0, queued);
}

TEST(MqttRetainedTopics, AMessageIsTheNewestUntilANewerOneIsSent)
{
    RetainedTopics topics;
    EXPECT_TRUE(topics.isNewest(kTopic, 5));
    topics.noteAsked(kTopic, 5);
    EXPECT_FALSE(topics.isNewest(kTopic, 4));
    EXPECT_TRUE(topics.isNewest(kTopic, 5));
    topics.noteRefused(kTopic, 5);
    EXPECT_TRUE(topics.isNewest(kTopic, 4));
    topics.noteAsked(kTopic, 5);
    topics.noteAccepted(kTopic, 5);
    EXPECT_FALSE(topics.isNewest(kTopic, 4));
}

TEST(MqttRetainedTopics, TheNewestOfThosePassedTakesThePlaceOfARefusedOne)
{
    RetainedTopics topics;
    topics.noteAsked(kTopic, 5);
    for (const std::int64_t queued : {2, 4, 3}) {
        topics.notePassed(message(queued));
        EXPECT_FALSE(topics.takeNewest(kTopic)) << "the newest has no answer";
    }
    topics.noteRefused(kTopic, 5);
    ASSERT_EQ(topics.takeNewest(kTopic).value_or(message(0)).queued, 4);
    EXPECT_FALSE(topics.takeNewest(kTopic));
}

TEST(MqttRetainedTopics, WhatWasPassedIsForgottenOnceANewerOneIsAccepted)
{
    RetainedTopics topics;
    topics.noteAsked(kTopic, 5);
    topics.notePassed(message(4));
    topics.noteAccepted(kTopic, 5);
    topics.notePassed(message(3));
    EXPECT_TRUE(topics.takeNewest().empty());
}

TEST(MqttRetainedTopics, WhatWasPassedOutlivesConnections)
{
    RetainedTopics topics;
    topics.noteAsked(kTopic, 5);
    topics.notePassed(message(4));
    topics.noteLost();
    EXPECT_TRUE(topics.takeNewest().empty()) << "a newer one comes again";
    topics.noteAsked(kTopic, 5);
    topics.noteRefused(kTopic, 5);
    ASSERT_EQ(topics.takeNewest().size(), 1U);
    topics.noteAsked(kTopic, 4);
    topics.notePassed(message(4));
    topics.noteLost();
    EXPECT_EQ(topics.takeNewest().size(), 1U) << "its answer was lost with the connection";
}

using Answer = ScriptedBroker::Answer;

/// The numbers of two records. The older one leaves second on the first connection, as a part of the backlog.
constexpr int kNewest = 9;
constexpr int kOlder = 7;

/// Lets a broker answer both records, until it is asked to retain the older one in a connection that lasts.
void expectOlderIsRetained(std::function<Answer(const Published&)> answer)
{
    std::promise<void> newestArrived;
    std::promise<void> olderIsQueued;
    std::promise<void> olderIsRetained;
    bool isFirst = true;
    bool isRetained = false;
    const ScriptedBroker broker([&](const Published& published) {
        if (published.topic != kTopic) {
            return Answer::Accept;
        }
        if (std::exchange(isFirst, false)) {
            EXPECT_TRUE(published.isNumber(kNewest));
            newestArrived.set_value();
            olderIsQueued.get_future().wait();
        }
        const Answer result = answer(published);
        if (result == Answer::Accept && published.isNumber(kOlder) && published.retain &&
            !std::exchange(isRetained, true)) {
            olderIsRetained.set_value();
        }
        return result;
    });
    LinkToScript link(broker);
    const Nanoseconds now = monotonicNow();
    link.send(kNewest, now);
    newestArrived.get_future().wait();
    link.send(kOlder, now - 1);
    olderIsQueued.set_value();
    EXPECT_EQ(olderIsRetained.get_future().wait_for(std::chrono::nanoseconds(kTimeout)),
              std::future_status::ready);
}

TEST(MqttRetainedTopics, AReplacementThatIsLostWithItsConnectionIsSentAgain)
{
    expectOlderIsRetained([](const Published& published) {
        if (published.isNumber(kNewest)) {
            return Answer::RefuseLater;
        }
        return published.retain && published.connection == 1 ? Answer::Disconnect : Answer::Accept;
    });
}

TEST(MqttRetainedTopics, ARecordOfAnEarlierConnectionReplacesARefusedOne)
{
    expectOlderIsRetained([](const Published& published) {
        if (published.isNumber(kNewest)) {
            return published.connection < 3 ? Answer::Disconnect : Answer::Refuse;
        }
        return Answer::Accept;
    });
}

} // namespace
} // namespace TelvaneTool::Mqtt

#include "mqtt/ScriptedBroker.h"

#include <future>

namespace TelvaneTool::Mqtt
{
namespace
{

using Answer = ScriptedBroker::Answer;

TEST(MqttBrokerConnection, AMessageWhoseAnswerCannotBeReadDoesNotStopOthers)
{
    constexpr int kUnreadable = 1;
    constexpr int kOther = 2;
    std::promise<void> arrived;
    std::promise<void> otherIsQueued;
    int times = 0;
    const ScriptedBroker broker([&](const Published& published) {
        if (published.topic != kTopic || !published.isNumber(kUnreadable)) {
            return Answer::Accept;
        }
        if (++times == 1) {
            arrived.set_value();
            otherIsQueued.get_future().wait();
        }
        return Answer::Garble;
    });
    LinkToScript link(broker);
    const Nanoseconds now = monotonicNow();
    link.send(kUnreadable, now);
    arrived.get_future().wait();
    link.send(kOther, now + 1);
    otherIsQueued.set_value();
    EXPECT_TRUE(eventually([&] { return link.counts().sent == 1; }));
    link.stop(kTimeout);
    EXPECT_EQ(times, 3);
    EXPECT_EQ(link.counts().dropped[static_cast<int>(DropReason::Refused)], 1U);
}

} // namespace
} // namespace TelvaneTool::Mqtt

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
    std::atomic<int> times{0};
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

TEST(MqttBrokerConnection, SchemasThatWereLostWithTheirConnectionAreSentAgain)
{
    const std::string topic = "telvane/m1/schema/LogData";
    std::atomic<bool> isAccepted{false};
    const ScriptedBroker broker([&](const Published& published) {
        if (published.topic != topic) {
            return Answer::Accept;
        }
        isAccepted = published.connection > 1;
        return isAccepted ? Answer::Accept : Answer::Disconnect;
    });
    const LinkToScript link(broker);
    EXPECT_TRUE(eventually([&] { return isAccepted.load(); }));
}

// What waits for the broker may take longer than the bridge has.
TEST(MqttBrokerConnection, SaysOfflineInTheEndAlsoIfTheBrokerDoesNotAnswer)
{
    std::atomic<bool> arrived{false};
    std::atomic<bool> saidOffline{false};
    const ScriptedBroker broker([&](const Published& published) {
        saidOffline = saidOffline || (published.topic == "telvane/m1/state" && published.retain &&
                                      published.payload.find("\"online\":false") != std::string::npos);
        arrived = arrived || published.topic == kTopic;
        return arrived ? Answer::RefuseLater : Answer::Accept;
    });
    LinkToScript link(broker);
    link.send(1, monotonicNow());
    EXPECT_TRUE(eventually([&] { return arrived.load(); }));
    link.stop(0);
    EXPECT_TRUE(eventually([&] { return saidOffline.load() || broker.goodbyes() != 0; }));
    EXPECT_TRUE(saidOffline);
}

} // namespace
} // namespace TelvaneTool::Mqtt

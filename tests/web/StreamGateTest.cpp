#include "telvane-web/live/StreamGate.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using Pace = StreamGate::Pace;

constexpr std::size_t kMuch = 60000;
constexpr std::size_t kMiddle = 10000;
constexpr std::size_t kLittle = 100;

class StreamGateTest : public testing::Test
{
protected:
    /// Lets a client have the same backlog for some time.
    Pace hold(Nanoseconds duration, std::size_t unsent, bool blocked = false)
    {
        for (const Nanoseconds end = m_now + duration; m_now < end; m_now += 50 * kMillisecond) {
            m_gate.update(m_now, unsent, blocked);
        }
        return m_gate.pace();
    }

    StreamGate m_gate;
    Nanoseconds m_now = kSecond;
};

TEST_F(StreamGateTest, KeepsFullPaceForAClientThatReads)
{
    EXPECT_EQ(hold(60 * kSecond, kLittle), Pace::Full);
}

TEST_F(StreamGateTest, ForgivesAShortBacklog)
{
    EXPECT_EQ(hold(400 * kMillisecond, kMuch), Pace::Full);
    EXPECT_EQ(hold(kSecond, kMiddle), Pace::Full);
    EXPECT_EQ(hold(400 * kMillisecond, kMuch), Pace::Full);
}

TEST_F(StreamGateTest, ThinsOutBeforeItDisconnects)
{
    EXPECT_EQ(hold(2 * kSecond, kMuch), Pace::Thinned);
    EXPECT_GT(m_gate.interval(), StreamGate().interval());
    EXPECT_EQ(hold(15 * kSecond, kMuch), Pace::Thinned);
    EXPECT_EQ(hold(5 * kSecond, kMuch), Pace::Disconnect);
}

TEST_F(StreamGateTest, TakesAConnectionThatWaitsForItsClientAsBehind)
{
    EXPECT_EQ(hold(2 * kSecond, kLittle, true), Pace::Thinned);
    EXPECT_EQ(hold(25 * kSecond, kLittle, true), Pace::Disconnect);
}

TEST_F(StreamGateTest, ReturnsToFullPaceOnlyAfterTheClientHasCaughtUpForAWhile)
{
    hold(2 * kSecond, kMuch);
    EXPECT_EQ(hold(10 * kSecond, kMiddle), Pace::Thinned) << "between the thresholds nothing changes";
    EXPECT_EQ(hold(kSecond, kLittle), Pace::Thinned);
    EXPECT_EQ(hold(2 * kSecond, kLittle), Pace::Full);
}

TEST_F(StreamGateTest, DoesNotDisconnectAClientThatKeepsUpWithTheThinnedPace)
{
    hold(2 * kSecond, kMuch);
    for (int i = 0; i < 100; ++i) {
        hold(kSecond, kMuch);
        ASSERT_EQ(hold(kSecond, kMiddle), Pace::Thinned);
    }
}

} // namespace
} // namespace TelvaneTool

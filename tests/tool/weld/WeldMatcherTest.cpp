// What a source may do within a weld: wrap or restart its serial numbers, and set its clock.

#include "common/weld/WeldMatcher.h"

#include <gtest/gtest.h>

#include <limits>

namespace TelvaneTool
{
namespace
{

class WeldMatching : public ::testing::Test
{
protected:
    static constexpr int kPeriodUs = 10'000;

    void start(WeldMatcher::Weld weld, int serial)
    {
        Telvane::WeldTriggerStart start;
        start.tag = static_cast<int>(weld);
        start.samplePeriodus = kPeriodUs;
        start.messageSerial = serial;
        start.timestamp.time = timeOf(0);
        m_matcher.addStart(weld, start);
    }

    /// \param clock  what the clock of the source was set by, in s
    std::optional<WeldMatcher::Match> sample(int number, int serial, time_t clock = 0)
    {
        Telvane::WeldTraceData trace;
        trace.sequence = number;
        trace.messageSerial = serial;
        trace.timestamp.time = timeOf(number);
        trace.timestamp.time.tv_sec += clock;
        return m_matcher.addSample(trace);
    }

    bool takes(int number, int serial, time_t clock = 0)
    {
        const auto match = sample(number, serial, clock);
        return match && match->weld == 1 && match->missing == 0;
    }

    std::optional<WeldMatcher::Weld> end(int tag, int serial)
    {
        Telvane::WeldTriggerEnd end;
        end.tag = tag;
        end.messageSerial = serial;
        return m_matcher.addEnd(end);
    }

    WeldMatcher m_matcher;

private:
    static timespec timeOf(int number)
    {
        const long milliseconds = number * (kPeriodUs / 1000L);
        return {1'704'164'645 + milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    }
};

TEST_F(WeldMatching, GoesOnWhenTheSerialNumberPassesTheLargestInteger)
{
    constexpr int kMax = std::numeric_limits<int>::max();
    start(1, kMax - 1);
    EXPECT_TRUE(takes(0, kMax));
    EXPECT_TRUE(takes(1, std::numeric_limits<int>::min()));
    EXPECT_TRUE(takes(2, std::numeric_limits<int>::min() + 1));
    EXPECT_EQ(end(1, std::numeric_limits<int>::min() + 2), 1U);
}

TEST_F(WeldMatching, GoesOnWhenANarrowCounterWraps)
{
    start(1, 65'533);
    EXPECT_TRUE(takes(0, 65'534));
    EXPECT_TRUE(takes(1, 65'535));
    EXPECT_TRUE(takes(2, 0));
    EXPECT_TRUE(takes(3, 1));
}

TEST_F(WeldMatching, GoesOnWhenTheSourceCountsAgainFromOne)
{
    start(1, 5000);
    EXPECT_TRUE(takes(0, 5001));
    EXPECT_TRUE(takes(1, 1));
    EXPECT_TRUE(takes(2, 2));
    EXPECT_EQ(sample(5, 5)->missing, 2U);
}

TEST_F(WeldMatching, PrefersTheWeldWhoseSerialNumbersGoOn)
{
    start(1, 100'000);
    start(2, 50);
    EXPECT_EQ(sample(0, 100'001)->weld, 1U);
    EXPECT_EQ(sample(0, 51)->weld, 2U);
    for (int i = 1; i < 5; ++i) {
        EXPECT_EQ(sample(i, 51 + i)->weld, 2U);
        EXPECT_EQ(sample(i, 100'001 + i)->weld, 1U);
    }
}

TEST_F(WeldMatching, TakesTheBestWeldAfterSeveralThatFitEqually)
{
    start(1, 100);
    start(2, 100);
    EXPECT_FALSE(sample(0, 103)) << "either could miss two records";
    start(3, 102);
    EXPECT_EQ(sample(0, 103)->weld, 3U);
}

TEST_F(WeldMatching, RefusesSamplesOfAnotherWeldWhoseStartIsMissing)
{
    start(1, 5000);
    EXPECT_TRUE(takes(0, 5001));
    EXPECT_TRUE(takes(1, 5002));
    // The source was started again, and its new weld has come to the next number a minute later.
    EXPECT_FALSE(sample(1, 3, 60));
    EXPECT_FALSE(sample(2, 4, 60));
    EXPECT_FALSE(sample(3, 5, 60));
}

TEST_F(WeldMatching, TakesEachSampleOnce)
{
    start(1, 1);
    EXPECT_TRUE(takes(0, 2));
    EXPECT_FALSE(sample(0, 2));
    EXPECT_TRUE(takes(1, 3));
    EXPECT_FALSE(sample(0, 2));
}

TEST_F(WeldMatching, GoesOnWhenTheClockIsSet)
{
    for (const time_t clock : {time_t{3600}, time_t{-3600}}) {
        m_matcher = WeldMatcher();
        start(1, 1);
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(takes(i, i + 2)) << i;
        }
        for (int i = 20; i < 40; ++i) {
            EXPECT_TRUE(takes(i, i + 2, clock)) << i;
        }
        const auto match = sample(50, 52, clock);
        ASSERT_TRUE(match);
        EXPECT_EQ(match->missing, 10U);
    }
}

} // namespace
} // namespace TelvaneTool

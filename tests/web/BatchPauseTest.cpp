#include "telvane-web/live/BatchPause.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

/// Sends samples at a rate, and obeys the pauses: what arrives meanwhile is taken at once afterwards.
/// \return how often the receiver waits for a sample
int wakeUps(BatchPause& pause, Nanoseconds& now, Nanoseconds period, int samples, Nanoseconds& longest)
{
    int waits = 0;
    Nanoseconds arrival = now;
    for (int i = 0; i < samples; ++i) {
        arrival += period;
        if (arrival > now) {
            now = arrival;
            ++waits;
        }
        now += kMicrosecond; // to handle it
        const Nanoseconds wait = pause.after(now);
        longest = std::max(longest, wait);
        now += wait;
    }
    return waits;
}

TEST(WebBatchPause, LetsASteadyStreamCollect)
{
    BatchPause pause;
    Nanoseconds now = kSecond;
    Nanoseconds longest = 0;
    EXPECT_LT(wakeUps(pause, now, 500 * kMicrosecond, 2000, longest), 300);
    EXPECT_EQ(longest, BatchPause::kPause);
}

TEST(WebBatchPause, NeverHoldsUpAFastStream)
{
    BatchPause pause;
    Nanoseconds now = kSecond;
    Nanoseconds longest = 0;
    wakeUps(pause, now, 20 * kMicrosecond, 50'000, longest);
    EXPECT_EQ(longest, 0);
}

TEST(WebBatchPause, NeverHoldsUpSingleRecords)
{
    BatchPause pause;
    Nanoseconds now = kSecond;
    Nanoseconds longest = 0;
    wakeUps(pause, now, 100 * kMillisecond, 1000, longest);
    EXPECT_EQ(longest, 0);
}

TEST(WebBatchPause, BeginsEachWeldWithoutPauses)
{
    BatchPause pause;
    Nanoseconds now = kSecond;
    Nanoseconds longest = 0;
    wakeUps(pause, now, 500 * kMicrosecond, 1000, longest);
    ASSERT_GT(longest, 0);
    longest = 0;
    pause.reset();
    wakeUps(pause, now, 500 * kMicrosecond, BatchPause::kSteady - 1, longest);
    EXPECT_EQ(longest, 0);
    wakeUps(pause, now, 20 * kMicrosecond, 1000, longest);
    EXPECT_EQ(longest, 0);
}

} // namespace
} // namespace TelvaneTool

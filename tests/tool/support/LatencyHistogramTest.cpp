#include "common/support/LatencyHistogram.h"

#include <gtest/gtest.h>

#include <limits>

namespace TelvaneTool
{
namespace
{

TEST(LatencyHistogram, GivesQuantilesOfSmallTimesExactly)
{
    LatencyHistogram histogram;
    for (Nanoseconds time = 1; time <= 10; ++time) {
        histogram.add(time);
    }
    EXPECT_EQ(histogram.count(), 10U);
    EXPECT_EQ(histogram.quantile(0.5), 5);
    EXPECT_EQ(histogram.quantile(0.99), 10);
    EXPECT_EQ(histogram.quantile(0.0), 1);
    EXPECT_EQ(histogram.max(), 10);
}

TEST(LatencyHistogram, TakesTheTimesOfAnother)
{
    LatencyHistogram histogram;
    LatencyHistogram other;
    histogram.add(1);
    other.add(2);
    other.add(30);
    histogram.add(other);
    EXPECT_EQ(histogram.count(), 3U);
    EXPECT_EQ(histogram.quantile(0.5), 2);
    EXPECT_EQ(histogram.max(), 30);
}

TEST(LatencyHistogram, IsNeverMoreThanA32ndTooLong)
{
    for (Nanoseconds time = 1; time < std::numeric_limits<Nanoseconds>::max() / 3; time = time * 3 + 1) {
        LatencyHistogram histogram;
        histogram.add(time);
        histogram.add(std::numeric_limits<Nanoseconds>::max());
        const Nanoseconds median = histogram.quantile(0.5);
        EXPECT_GE(median, time);
        EXPECT_LE(median - time, time / 32);
    }
}

TEST(LatencyHistogram, NeverTellsMoreThanTheGreatest)
{
    LatencyHistogram histogram;
    histogram.add(1'000'001);
    EXPECT_EQ(histogram.quantile(0.99), 1'000'001);
}

TEST(LatencyHistogram, TakesTimesThatGoBackForZero)
{
    LatencyHistogram histogram;
    histogram.add(-5);
    EXPECT_EQ(histogram.quantile(0.5), 0);
}

TEST(LatencyHistogram, OfNothingIsZero)
{
    EXPECT_EQ(LatencyHistogram().quantile(0.5), 0);
}

} // namespace
} // namespace TelvaneTool

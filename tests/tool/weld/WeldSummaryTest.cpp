#include "weld/WeldSummary.h"

#include <gtest/gtest.h>

#include <limits>

namespace TelvaneTool
{
namespace
{

WeldSample sampleAt(Nanoseconds time, double amps, double volts, double wfs = 0.0, double wireUsed = 0.0)
{
    WeldSample sample;
    sample.time = time;
    sample[Quantity::Amps] = amps;
    sample[Quantity::Volts] = volts;
    sample[Quantity::Wfs] = wfs;
    sample[Quantity::WireUsed] = wireUsed;
    return sample;
}

TEST(WeldSummary, LastsFromTheFirstSampleToTheFirstWithoutArc)
{
    WeldSummary summary(false);
    summary.add(sampleAt(5 * kSecond, 100, 20), true);
    summary.add(sampleAt(6 * kSecond, 100, 20), true);
    summary.end(sampleAt(8 * kSecond, 0, 0));
    EXPECT_EQ(summary.arcTime(), 3 * kSecond);
    EXPECT_EQ(summary.samples(), 2U);
}

TEST(WeldSummary, WeightsUnevenSamplesByTime)
{
    WeldSummary summary(false);
    summary.add(sampleAt(0, 100, 20), true);
    summary.add(sampleAt(kSecond, 200, 24), true);
    summary.end(sampleAt(4 * kSecond, 0, 0));
    EXPECT_DOUBLE_EQ(summary.mean(Quantity::Amps), 175.0);
    EXPECT_DOUBLE_EQ(summary.mean(Quantity::Volts), 23.0);
}

TEST(WeldSummary, IntegratesInstantaneousPower)
{
    WeldSummary summary(false);
    summary.add(sampleAt(0, 300, 5), true);
    summary.add(sampleAt(kSecond, 100, 25), true);
    summary.end(sampleAt(2 * kSecond, 0, 0));
    EXPECT_DOUBLE_EQ(summary.energy(), 300.0 * 5.0 + 100.0 * 25.0); // the means would give 6000
}

TEST(WeldSummary, ExcludesInterruptions)
{
    WeldSummary summary(false);
    summary.add(sampleAt(0, 100, 20, 60), true);
    summary.add(sampleAt(kSecond, 1, 70, 60), false);
    summary.add(sampleAt(3 * kSecond, 100, 20, 60), true);
    summary.end(sampleAt(4 * kSecond, 0, 0));
    EXPECT_EQ(summary.arcTime(), 2 * kSecond);
    EXPECT_DOUBLE_EQ(summary.mean(Quantity::Volts), 20.0);
    EXPECT_DOUBLE_EQ(summary.energy(), 4000.0);
    EXPECT_DOUBLE_EQ(summary.wireLength(), 2.0);
    EXPECT_EQ(summary.samples(), 3U);
}

TEST(WeldSummary, ComputesWireLengthFromTheFeedSpeed)
{
    WeldSummary summary(false);
    summary.add(sampleAt(0, 100, 20, 120), true);
    summary.add(sampleAt(kSecond, 100, 20, 240), true);
    summary.end(sampleAt(3 * kSecond, 0, 0));
    EXPECT_DOUBLE_EQ(summary.wireLength(), 2.0 + 8.0);
}

TEST(WeldSummary, PrefersTheWireCounter)
{
    WeldSummary summary(true);
    summary.add(sampleAt(0, 100, 20, 120, 7.0), true);
    summary.add(sampleAt(kSecond, 100, 20, 120, 9.0), true);
    summary.end(sampleAt(2 * kSecond, 0, 0, 0, 10.5));
    EXPECT_DOUBLE_EQ(summary.wireLength(), 3.5);
}

TEST(WeldSummary, IsZeroWithoutSamples)
{
    const WeldSummary summary(false);
    EXPECT_EQ(summary.arcTime(), 0);
    EXPECT_EQ(summary.mean(Quantity::Amps), 0.0);
    EXPECT_EQ(summary.energy(), 0.0);
}

TEST(WeldSummary, LastsAtMostForTheLargestTime)
{
    constexpr Nanoseconds kMax = std::numeric_limits<Nanoseconds>::max();
    WeldSummary summary(false);
    summary.add(sampleAt(-kMax, 100, 20), true);
    summary.add(sampleAt(kMax, 100, 20), true);
    summary.end(sampleAt(kMax, 0, 0));
    EXPECT_EQ(summary.arcTime(), kMax);
    EXPECT_DOUBLE_EQ(summary.mean(Quantity::Amps), 100.0);
}

} // namespace
} // namespace TelvaneTool

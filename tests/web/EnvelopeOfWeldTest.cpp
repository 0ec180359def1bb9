#include "telvane-web/live/Envelope.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace TelvaneTool
{
namespace
{

LiveValues valuesOf(double amps)
{
    return {amps, amps / 10, 2 * amps, 1.0, -amps};
}

/// Columns computed from all samples, to compare with.
EnvelopeColumn columnOf(const std::vector<double>& amps, std::size_t index, unsigned level)
{
    EnvelopeColumn column;
    const std::size_t begin = index << level;
    for (std::size_t i = begin; i < std::min(amps.size(), begin + (std::size_t{1} << level)); ++i) {
        column.add(valuesOf(amps[i]));
    }
    return column;
}

std::vector<double> noisyWeld(std::size_t samples)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> noise(100.0, 300.0);
    std::vector<double> amps(samples);
    for (double& value : amps) {
        value = std::round(noise(random));
    }
    return amps;
}

TEST(EnvelopeOfWeld, HoldsEachSampleInAColumnOfItsOwnAtFirst)
{
    Envelope envelope;
    for (int i = 0; i < 10; ++i) {
        envelope.add(i, valuesOf(100.0 + i));
    }
    EXPECT_EQ(envelope.level(), 0U);
    ASSERT_EQ(envelope.size(), 10U);
    EXPECT_EQ(envelope[3].samples, 1U);
    EXPECT_EQ(envelope[3].min[0], 103.0);
    EXPECT_EQ(envelope[3].max[0], 103.0);
}

TEST(EnvelopeOfWeld, LosesNoSampleHoweverLongTheWeldIs)
{
    const std::vector<double> amps = noisyWeld(100'003);
    Envelope envelope;
    for (std::size_t i = 0; i < amps.size(); ++i) {
        envelope.add(static_cast<std::int64_t>(i), valuesOf(amps[i]));
    }
    EXPECT_LE(envelope.size(), Envelope::kCapacity);
    for (std::size_t i = 0; i < envelope.size(); ++i) {
        const EnvelopeColumn expected = columnOf(amps, i, envelope.level());
        ASSERT_EQ(envelope[i].samples, expected.samples) << i;
        ASSERT_EQ(envelope[i].min, expected.min) << i;
        ASSERT_EQ(envelope[i].max, expected.max) << i;
        ASSERT_DOUBLE_EQ(envelope[i].sum[0], expected.sum[0]) << i;
    }
}

TEST(EnvelopeOfWeld, CutsToTheWidthThatAPageNames)
{
    const std::vector<double> amps = noisyWeld(5'000);
    Envelope envelope;
    for (std::size_t i = 0; i < amps.size(); ++i) {
        envelope.add(static_cast<std::int64_t>(i), valuesOf(amps[i]));
    }
    const unsigned level = envelope.levelFor(100);
    EXPECT_EQ(level, 6U) << "64 samples in each of 79 columns";
    EXPECT_EQ(envelope.sizeAt(level), 79U);
    for (std::size_t i = 0; i < envelope.sizeAt(level); ++i) {
        const EnvelopeColumn expected = columnOf(amps, i, level);
        const EnvelopeColumn merged = envelope.merged(i, level);
        ASSERT_EQ(merged.samples, expected.samples) << i;
        ASSERT_EQ(merged.min, expected.min) << i;
        ASSERT_EQ(merged.max, expected.max) << i;
    }
}

TEST(EnvelopeOfWeld, LeavesColumnsOfMissingSamplesEmpty)
{
    Envelope envelope;
    envelope.add(0, valuesOf(1.0));
    envelope.add(5, valuesOf(2.0));
    ASSERT_EQ(envelope.size(), 6U);
    EXPECT_EQ(envelope[3].samples, 0U);
    EXPECT_EQ(envelope.merged(0, 3).samples, 2U);
    EXPECT_EQ(envelope.merged(0, 3).min[0], 1.0);
}

TEST(EnvelopeOfWeld, StaysBoundedWithAnySampleNumber)
{
    Envelope envelope;
    envelope.add(0, valuesOf(1.0));
    envelope.add(-1, valuesOf(9.0));
    envelope.add(std::numeric_limits<std::int64_t>::min(), valuesOf(9.0));
    envelope.add(std::numeric_limits<int>::max(), valuesOf(2.0));
    EXPECT_LE(envelope.size(), Envelope::kCapacity);
    EXPECT_EQ(envelope[0].max[0], 1.0);
    EXPECT_EQ(envelope[envelope.size() - 1].max[0], 2.0);
}

TEST(EnvelopeOfWeld, ReportsSamplesBeforeTheNewestColumn)
{
    Envelope envelope;
    envelope.add(0, valuesOf(1.0));
    envelope.add(1, valuesOf(1.0));
    const std::uint64_t revision = envelope.revision();
    envelope.add(2, valuesOf(1.0));
    EXPECT_EQ(envelope.revision(), revision);
    envelope.add(0, valuesOf(7.0));
    EXPECT_NE(envelope.revision(), revision);
    EXPECT_EQ(envelope[0].max[0], 7.0);
}

} // namespace
} // namespace TelvaneTool

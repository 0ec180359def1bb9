#include "weld/SimulatedWeld.h"

#include "weld/WeldDetector.h"
#include "weld/WeldSummary.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace TelvaneTool
{
namespace
{

std::vector<WeldSample> samplesOf(const SimulatedWeld::Settings& settings)
{
    SimulatedWeld weld(settings);
    std::vector<WeldSample> samples;
    WeldSample sample;
    while (weld.next(sample) != SampleSource::Next::End) {
        samples.push_back(sample);
    }
    return samples;
}

/// Counts what the detector tells and sums every weld up.
class Summaries : public WeldDetector::Listener
{
public:
    void arcStarted(const WeldSample&) override { all.emplace_back(false); }
    void arcSample(const WeldSample& sample, bool burning) override { all.back().add(sample, burning); }
    void arcEnded(const WeldSample& end) override { all.back().end(end); }

    std::vector<WeldSummary> all;
};

std::vector<WeldSummary> weldsOf(const SimulatedWeld::Settings& settings)
{
    Summaries summaries;
    WeldDetector detector({}, summaries);
    for (const WeldSample& sample : samplesOf(settings)) {
        detector.push(sample);
    }
    detector.finish(settings.period);
    return summaries.all;
}

bool same(const WeldSample& left, const WeldSample& right)
{
    return left.time == right.time && left.values == right.values;
}

SimulatedWeld::Settings shortWeld()
{
    SimulatedWeld::Settings settings;
    settings.duration = 2 * kSecond;
    return settings;
}

TEST(SimulatedWeld, IsTheSameForTheSameSeed)
{
    const auto first = samplesOf(shortWeld());
    const auto second = samplesOf(shortWeld());
    ASSERT_EQ(first.size(), second.size());
    EXPECT_TRUE(std::equal(first.begin(), first.end(), second.begin(), same));
}

TEST(SimulatedWeld, DiffersWithAnotherSeed)
{
    auto settings = shortWeld();
    const auto first = samplesOf(settings);
    settings.seed = 2;
    const auto second = samplesOf(settings);
    EXPECT_FALSE(std::equal(first.begin(), first.end(), second.begin(), second.end(), same));
}

TEST(SimulatedWeld, GivesEvenlySpacedSamplesInOneGroup)
{
    auto settings = shortWeld();
    settings.period = 200 * kMicrosecond;
    SimulatedWeld weld(settings);
    WeldSample sample;
    EXPECT_EQ(weld.next(sample), SampleSource::Next::NewGroup);
    EXPECT_EQ(sample.time, 0);
    EXPECT_EQ(weld.next(sample), SampleSource::Next::Sample);
    EXPECT_EQ(sample.time, 200 * kMicrosecond);
    EXPECT_EQ(weld.traits().period, 200 * kMicrosecond);
}

TEST(SimulatedWeld, IsFoundAsOneWeldOfTheWantedDuration)
{
    const auto welds = weldsOf(shortWeld());
    ASSERT_EQ(welds.size(), 1U);
    EXPECT_NEAR(inSeconds(welds[0].arcTime()), 2.0, 0.01);
}

TEST(SimulatedWeld, IsFoundAsOftenAsRequested)
{
    auto settings = shortWeld();
    settings.welds = 3;
    EXPECT_EQ(weldsOf(settings).size(), 3U);
}

TEST(SimulatedWeld, LooksLikeAShortArc)
{
    SimulatedWeld::Settings settings;
    settings.period = 100 * kMicrosecond;
    const auto welds = weldsOf(settings);
    ASSERT_EQ(welds.size(), 1U);
    EXPECT_NEAR(welds[0].mean(Quantity::Amps), 185.0, 25.0);
    EXPECT_NEAR(welds[0].mean(Quantity::Volts), 18.0, 2.0);
    EXPECT_NEAR(welds[0].mean(Quantity::Wfs), 205.0, 10.0);
}

TEST(SimulatedWeld, ShortsAboutAHundredTimesASecond)
{
    SimulatedWeld::Settings settings;
    settings.period = 100 * kMicrosecond;
    constexpr double kCollapsed = 8.0;
    int shorts = 0;
    double before = 0.0;
    for (const WeldSample& sample : samplesOf(settings)) {
        const double volts = sample[Quantity::Volts];
        shorts += before >= kCollapsed && volts < kCollapsed && sample[Quantity::Amps] > 10.0 ? 1 : 0;
        before = volts;
    }
    EXPECT_NEAR(shorts, 1000, 100);
}

TEST(SimulatedWeld, RaisesTheCurrentInAShortCircuitAndLowersItInTheArc)
{
    SimulatedWeld::Settings settings;
    settings.period = 100 * kMicrosecond;
    const auto samples = samplesOf(settings);
    int rising = 0;
    int falling = 0;
    int others = 0;
    for (std::size_t i = 20'000; i < 80'000; ++i) { // the steady part
        const bool shorted = samples[i][Quantity::Volts] < 8.0;
        if (shorted != (samples[i - 1][Quantity::Volts] < 8.0)) {
            continue; // the change lies in between
        }
        const double change = samples[i][Quantity::Amps] - samples[i - 1][Quantity::Amps];
        (shorted && change > 0.0 ? rising : !shorted && change < 1.5 ? falling : others) += 1;
    }
    EXPECT_GT(rising, 10'000);
    EXPECT_GT(falling, 30'000);
    EXPECT_LT(others, 1'500); // the noise of the measurement
}

TEST(SimulatedWeld, FillsTheCraterWithLessWireAndPower)
{
    const auto samples = samplesOf({});
    const auto meanOver = [&samples](Nanoseconds from, Nanoseconds to, Quantity quantity) {
        double sum = 0.0;
        int count = 0;
        for (const WeldSample& sample : samples) {
            if (sample.time >= from && sample.time < to) {
                sum += sample[quantity];
                ++count;
            }
        }
        return sum / count;
    };
    const Nanoseconds end = 10'300 * kMillisecond;
    EXPECT_LT(meanOver(end - kSecond / 5, end, Quantity::Wfs), 0.75 * SimulatedWeld::kSetWfs);
    EXPECT_LT(meanOver(end - kSecond / 2, end, Quantity::Amps),
              meanOver(5 * kSecond, 9 * kSecond, Quantity::Amps));
}

} // namespace
} // namespace TelvaneTool

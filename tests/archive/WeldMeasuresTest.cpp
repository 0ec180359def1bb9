#include "archive/welds/WeldMeasures.h"
#include "archive/ArchiveTestSupport.h"

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;

namespace
{

Sample at(std::int32_t number, double amps, double volts)
{
    Sample sample;
    sample.number = number;
    sample.time = kStart + number * std::int64_t{100'000};
    sample[Channel::Amps] = amps;
    sample[Channel::Volts] = volts;
    return sample;
}

} // namespace

TEST(WeldMeasures, SumsEnergyOfEachSampleAndShowsTheProductOfTheMeans)
{
    Weld weld = makeWeld("one", 100);
    WeldMeasures measures(SampleClock(kStart, 100));
    for (std::int32_t i = 0; i < 10'000; ++i) {
        measures.add(i % 2 == 0 ? at(i, 300.0, 10.0) : at(i, 100.0, 30.0));
    }
    measures.finish(weld);
    EXPECT_NEAR(weld.number(Column::ArcTime), 1.0, 1e-9);
    EXPECT_NEAR(weld.number(Column::Energy), 3000.0, 1e-6);
    EXPECT_NEAR(weld.number(Column::EnergyOfMeans), 4000.0, 1e-6);
    EXPECT_NEAR(weld.number(Column::MeanAmps), 200.0, 1e-9);
    EXPECT_NEAR(weld.number(Column::SdAmps), 100.0, 1e-9);
    EXPECT_FALSE(weld.has(Column::HeatInput));
}

TEST(WeldMeasures, GivesHeatInputOnlyWithTravelSpeedAndEfficiency)
{
    Weld weld = makeWeld("one", 100);
    weld[Column::TravelSpeed] = 5.0;
    weld[Column::Efficiency] = 0.8;
    WeldMeasures measures(SampleClock(kStart, 100));
    for (std::int32_t i = 0; i < 10'000; ++i) {
        measures.add(at(i, 200.0, 20.0));
    }
    measures.finish(weld);
    EXPECT_NEAR(weld.number(Column::HeatInput), 0.8 * 4.0 / 5.0, 1e-9);
}

TEST(WeldMeasures, CountsShortCircuits)
{
    Weld weld = makeWeld("one", 100);
    WeldMeasures measures(SampleClock(kStart, 100));
    for (std::int32_t i = 0; i < 10'000; ++i) {
        measures.add(at(i, 200.0, i % 100 < 20 ? 3.0 : 20.0)); // 2 ms of 10 ms
    }
    measures.finish(weld);
    EXPECT_NEAR(weld.number(Column::ShortRate), 100.0, 0.01);
    EXPECT_NEAR(weld.number(Column::ShortTime), 2.0, 1e-6);
    EXPECT_NEAR(weld.number(Column::ShortPeriod), 10.0, 1e-6);
    EXPECT_NEAR(weld.number(Column::ArcStability), 0.0, 1e-6);
}

TEST(WeldMeasures, CountsShortCircuitsOfTheShortestDuration)
{
    Weld weld = makeWeld("one", 100);
    WeldMeasures measures(SampleClock(kStart, 100));
    for (std::int32_t i = 0; i < 10'000; ++i) {
        measures.add(at(i, 200.0, i % 100 == 50 ? 3.0 : 20.0)); // one sample, 0.1 ms
    }
    measures.finish(weld);
    EXPECT_NEAR(weld.number(Column::ShortRate), 100.0, 0.01);
    EXPECT_EQ(weld.number(Column::ShortTime), 0.1);
}

TEST(WeldMeasures, CountsInterruptionsOfTheShortestDuration)
{
    Weld weld = makeWeld("one", 100);
    WeldMeasures measures(SampleClock(kStart, 100));
    for (std::int32_t i = 0; i < 10'000; ++i) {
        measures.add(at(i, i % 1000 >= 900 && i % 1000 < 950 ? 0.0 : 200.0, 20.0)); // 5 ms
    }
    measures.finish(weld);
    EXPECT_EQ(weld.whole(Column::Interruptions), 10);
}

TEST(WeldMeasures, CountsNoShortCircuitsInSlowSamples)
{
    Weld weld = makeWeld("one", 100'000);
    WeldMeasures measures(SampleClock(kStart, 100'000));
    for (std::int32_t i = 0; i < 100; ++i) {
        measures.add(makeSample(i, 100'000));
    }
    measures.finish(weld);
    EXPECT_FALSE(weld.has(Column::ShortRate));
}

TEST(WeldMeasures, LeavesInterruptionsOut)
{
    Weld weld = makeWeld("one", 100);
    WeldMeasures measures(SampleClock(kStart, 100));
    for (std::int32_t i = 0; i < 3000; ++i) {
        const bool out = i >= 1000 && i < 2000;
        measures.add(at(i, out ? 0.0 : 200.0, out ? 70.0 : 20.0));
    }
    measures.finish(weld);
    EXPECT_EQ(weld.whole(Column::Interruptions), 1);
    EXPECT_NEAR(weld.number(Column::ArcTime), 0.2, 1e-9);
    EXPECT_NEAR(weld.number(Column::MeanVolts), 20.0, 1e-9);
}

TEST(WeldMeasures, KeepsTheMomentsOfSamplesInRange)
{
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(SampleClock(0, kMax).period(), kMax);
    EXPECT_EQ(SampleClock(0, -kMax).period(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(SampleClock(kMax - 5, 1000).momentOf(at(2'000'000'000, 1.0, 1.0)), kMax);
    Sample sample;
    sample.time = -kMax;
    EXPECT_EQ(SampleClock(kMax, 0).sinceStart(sample), std::numeric_limits<std::int64_t>::min());
}

#include "archive/judge/Judge.h"
#include "archive/ArchiveTestSupport.h"
#include "archive/judge/Student.h"

#include <random>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

namespace
{

constexpr Column kMetrics[] = {Column::MeanAmps,  Column::SdAmps,   Column::MeanVolts, Column::SdVolts,
                               Column::MeanWfs,   Column::SdWfs,    Column::MeanGas,   Column::SdGas,
                               Column::MeanMotor, Column::SdMotor,  Column::ShortRate, Column::ShortTime,
                               Column::ArcTime,   Column::Energy,   Column::MinAmps,   Column::MaxAmps,
                               Column::MinVolts,  Column::MaxVolts, Column::PubAmps,   Column::PubVolts};

/// A weld of a stable process: each metric is 100 with a deviation of 2, the current has a flat course.
WeldFeatures makeFeatures(std::mt19937& random, int windows = 100)
{
    std::normal_distribution<double> spread(100.0, 2.0);
    WeldFeatures features;
    for (const Column metric : kMetrics) {
        features.metrics[metric] = spread(random);
    }
    features.start = 1.0;
    features.window = 0.1;
    for (int i = 0; i < windows; ++i) {
        features.courses[0].push_back(spread(random));
    }
    return features;
}

Judge teach(std::mt19937& random, int references)
{
    Judge judge;
    for (int i = 0; i < references; ++i) {
        judge.addReference(makeFeatures(random));
    }
    return judge;
}

} // namespace

TEST(Student, HasTheQuantilesOfTheTables)
{
    EXPECT_NEAR(studentQuantile(0.025, 1), 12.706, 0.001);
    EXPECT_NEAR(studentQuantile(0.025, 8), 2.306, 0.001);
    EXPECT_NEAR(studentQuantile(0.005, 8), 3.355, 0.001);
    EXPECT_NEAR(studentQuantile(0.0005, 30), 3.646, 0.001);
    EXPECT_NEAR(studentQuantile(0.025, 1e6), 1.960, 0.001);
}

TEST(Judge, GivesAsManyFalseAlarmsAsItWasAllowed)
{
    std::mt19937 random(1);
    JudgeSettings settings;
    settings.floor = 0.0;
    constexpr int kWelds = 1000;
    int alarms = 0;
    int warnings = 0;
    for (int i = 0; i < kWelds; ++i) {
        // The metrics alone: independent, and Gaussian.
        Judge judge(settings);
        for (int reference = 0; reference < 9; ++reference) {
            judge.addReference(makeFeatures(random, 0));
        }
        const Judge::Verdict verdict = judge.judge(makeFeatures(random, 0));
        alarms += verdict.level == "not_ok" ? 1 : 0;
        warnings += verdict.level != "ok" ? 1 : 0;
    }
    EXPECT_GT(alarms, kWelds * 0.003);
    EXPECT_LT(alarms, kWelds * 0.02);
    EXPECT_GT(warnings, kWelds * 0.025);
    EXPECT_LT(warnings, kWelds * 0.08);
}

TEST(Judge, FindsAMetricThatIsFarOutside)
{
    std::mt19937 random(2);
    const Judge judge = teach(random, 9);
    WeldFeatures weld = makeFeatures(random);
    weld.metrics[Column::MeanGas] = 40.0;
    const Judge::Verdict verdict = judge.judge(weld);
    EXPECT_EQ(verdict.level, "not_ok");
    ASSERT_EQ(verdict.findings.size(), 1U);
    EXPECT_EQ(verdict.findings[0].metric, "mean_gas");
    EXPECT_LT(verdict.findings[0].low, 100.0);
    EXPECT_GT(verdict.findings[0].high, 100.0);
}

TEST(Judge, SaysWhereACourseIsOutside)
{
    std::mt19937 random(3);
    const Judge judge = teach(random, 9);
    WeldFeatures weld = makeFeatures(random);
    for (std::size_t i = 40; i < 60; ++i) {
        weld.courses[0][i] = 30.0;
    }
    const Judge::Verdict verdict = judge.judge(weld);
    EXPECT_EQ(verdict.level, "not_ok");
    ASSERT_EQ(verdict.findings.size(), 1U);
    EXPECT_EQ(verdict.findings[0].metric, "course of amps");
    EXPECT_NEAR(verdict.findings[0].fromSeconds, 5.0, 0.2);
    EXPECT_GE(verdict.findings[0].toSeconds, 6.9);
}

TEST(Judge, ForgivesACourseThatIsOutsideForAMoment)
{
    std::mt19937 random(3);
    const Judge judge = teach(random, 9);
    WeldFeatures weld = makeFeatures(random);
    weld.courses[0][50] = 30.0;
    weld.courses[0][51] = 30.0; // 0.2 s, less than JudgeSettings::least
    EXPECT_EQ(judge.judge(weld).level, "ok");
}

TEST(Judge, TakesAbsoluteLimitsWithoutReferences)
{
    Judge judge;
    judge.addLimit(Column::MeanAmps, 170.0, 190.0);
    WeldFeatures weld;
    weld.metrics[Column::MeanAmps] = 180.0;
    EXPECT_EQ(judge.judge(weld).level, "ok");
    weld.metrics[Column::MeanAmps] = 191.0;
    EXPECT_EQ(judge.judge(weld).level, "not_ok");
    weld.metrics.clear();
    EXPECT_EQ(judge.judge(weld).level, "warning");
}

TEST(Judge, WarnsOfAMetricThatOnlyTheReferencesHave)
{
    std::mt19937 random(3);
    Judge judge = teach(random, 9);
    WeldFeatures weld = makeFeatures(random);
    weld.metrics.erase(Column::MeanGas);
    const Judge::Verdict verdict = judge.judge(weld);
    EXPECT_EQ(verdict.level, "warning");
    ASSERT_EQ(verdict.findings.size(), 1U);
    EXPECT_EQ(verdict.findings[0].metric, "mean_gas");
    EXPECT_EQ(verdict.findings[0].reference, "9 references, not measured");
    EXPECT_LT(verdict.findings[0].low, 100.0);
    EXPECT_GT(verdict.findings[0].high, 100.0);

    WeldFeatures without = makeFeatures(random);
    without.metrics.erase(Column::MeanGas);
    judge.addReference(without);
    EXPECT_EQ(judge.judge(weld).level, "ok") << "not all references have it";
}

TEST(Judge, LooksAtTheMainPhaseOnly)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    std::int64_t id = 0;
    {
        const auto store = openStore(path);
        const std::int64_t handle = store->begin(makeWeld("one"));
        for (int i = 0; i < 20'000; ++i) { // 10 s
            Sample sample = makeSample(i);
            sample[Channel::Amps] = i < 2000 || i >= 18'000 ? 500.0 : 180.0;
            store->add(handle, sample, 0);
        }
        store->end(handle, "complete");
        ASSERT_TRUE(store->commit());
        id = store->takeClosed().front();
    }
    const auto reader = openReader(path);
    WeldFeatures features;
    ASSERT_TRUE(readFeatures(*reader, id, {}, features));
    EXPECT_NEAR(features.metrics[Column::MeanAmps], 180.0, 1e-9);
    EXPECT_NEAR(features.metrics[Column::SdAmps], 0.0, 1e-6);
    EXPECT_NEAR(features.metrics[Column::ArcTime], 10.0, 0.01);
    EXPECT_EQ(features.courses[0].size(), 160U);
}

TEST(Judge, StoresItsVerdictInPlaceOfTheLast)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const auto store = openStore(path);
    keepWeld(*store, makeWeld("one"), 100);
    const std::int64_t id = store->takeClosed().front();
    ASSERT_TRUE(
        store->storeVerdict(id, "not_ok", {{"not_ok", "mean_amps", 1, 2, 3, 0, 0, "absolute"}}, kStart));
    ASSERT_TRUE(
        store->storeVerdict(id, "warning", {{"warning", "mean_gas", 1, 2, 3, 4, 5, "absolute"}}, kStart));
    const auto reader = openReader(path);
    EXPECT_EQ(listWelds(*reader)[0].text(Column::Verdict), "warning");
    std::vector<Finding> findings;
    ASSERT_TRUE(reader->findings(id, findings));
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].metric, "mean_gas");
    EXPECT_EQ(findings[0].toSeconds, 5.0);
}

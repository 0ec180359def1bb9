#include "common/support/Pacer.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace TelvaneTool
{
namespace
{

constexpr Nanoseconds kMin = std::numeric_limits<Nanoseconds>::min();
constexpr Nanoseconds kMax = std::numeric_limits<Nanoseconds>::max();

/// Notes deadlines instead of sleeping.
struct Sleeper
{
    std::vector<Nanoseconds> deadlines;
    bool stopping = false;

    Pacer::SleepUntil function()
    {
        return [this](Nanoseconds deadline) {
            deadlines.push_back(deadline);
            return !stopping;
        };
    }
};

TEST(Pacer, KeepsTheRecordedIntervalsAtItsSpeed)
{
    Sleeper sleeper;
    Pacer pacer(sleeper.function(), 2.0);
    pacer.begin(100 * kSecond, kMillisecond);
    EXPECT_TRUE(pacer.waitUntil(1000 * kSecond));
    EXPECT_TRUE(pacer.waitUntil(1600 * kSecond));
    EXPECT_EQ(sleeper.deadlines.at(1) - sleeper.deadlines.at(0), 300 * kSecond);
    EXPECT_EQ(pacer.late(), 0);
}

TEST(Pacer, DoesNotWaitWithoutASpeed)
{
    Sleeper sleeper;
    Pacer pacer(sleeper.function(), 0.0);
    pacer.begin(0, kMillisecond);
    EXPECT_TRUE(pacer.waitUntil(kMax));
    EXPECT_EQ(sleeper.deadlines, std::vector<Nanoseconds>{0});
}

TEST(Pacer, ContinuesAPartAfterThePreviousOne)
{
    Sleeper sleeper;
    Pacer pacer(sleeper.function(), 1.0);
    pacer.begin(0, kMillisecond);
    pacer.waitUntil(1000 * kSecond);
    pacer.begin(5 * kSecond, kMillisecond);
    pacer.waitUntil(6 * kSecond);
    EXPECT_EQ(sleeper.deadlines.at(1) - sleeper.deadlines.at(0), kSecond);
}

TEST(Pacer, CatchesUpOnAShortDelayOnly)
{
    Sleeper sleeper;
    Pacer pacer(sleeper.function(), 1.0);
    pacer.begin(0, kMillisecond);
    const Nanoseconds before = monotonicNow();
    pacer.waitUntil(-100 * kSecond); // was due long ago
    EXPECT_GE(sleeper.deadlines.at(0), before - 64 * kMillisecond);
    EXPECT_GE(pacer.late(), 99 * kSecond);
    pacer.waitUntil(-99 * kSecond);
    EXPECT_LT(pacer.late(), 150 * kSecond) << "the same delay counts once";
}

TEST(Pacer, ReportsThatTheProgramShouldStop)
{
    Sleeper sleeper;
    sleeper.stopping = true;
    Pacer pacer(sleeper.function(), 1.0);
    pacer.begin(0, kMillisecond);
    EXPECT_FALSE(pacer.waitUntil(0));
}

TEST(Pacer, WaitsForEverForATimeThatIsTooFarAway)
{
    for (const double speed : {1e-300, 1e-6, 0.5, 1.0}) {
        Sleeper sleeper;
        Pacer pacer(sleeper.function(), speed);
        pacer.begin(-4 * (kMax / 5), kMillisecond);
        pacer.waitUntil(4 * (kMax / 5));
        EXPECT_EQ(sleeper.deadlines.at(0), kMax) << speed;
        EXPECT_EQ(pacer.late(), 0) << speed;
    }
}

TEST(Pacer, IsLateAtMostByTheLargestTime)
{
    for (const double speed : {1e-300, 1.0}) {
        Sleeper sleeper;
        Pacer pacer(sleeper.function(), speed);
        pacer.begin(kMax, kMillisecond);
        pacer.waitUntil(kMin);
        pacer.waitUntil(kMin);
        EXPECT_GT(pacer.late(), kMax / 2) << speed;
        EXPECT_GT(sleeper.deadlines.at(1), 0) << speed;
    }
}

} // namespace
} // namespace TelvaneTool

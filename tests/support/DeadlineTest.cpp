#include "support/Deadline.h"

#include <gtest/gtest.h>

#include <climits>

namespace Telvane
{
namespace
{

using Clock = std::chrono::system_clock;
using std::chrono::nanoseconds;
using std::chrono::seconds;

// A narrow and a wide count of seconds are tested on every machine, whatever its own time_t.
using Narrow = std::int32_t;
using Wide = std::int64_t;

constexpr Clock::time_point kNow(seconds(1'800'000'000) + nanoseconds(123'456'789));
constexpr Clock::time_point kEndOf32Bits(seconds(2'147'483'647));

TEST(Deadline, IsTheTimeoutAfterNow)
{
    EXPECT_EQ(deadlineAfter<Narrow>(kNow, 0), kNow);
    EXPECT_EQ(deadlineAfter<Narrow>(kNow, 1), kNow + seconds(1));
    EXPECT_EQ(deadlineAfter<Wide>(kNow, 3600), kNow + seconds(3600));
}

TEST(Deadline, EndsWhereATimeOf32BitsEnds)
{
    EXPECT_EQ(deadlineAfter<Narrow>(kNow, 347'483'646), kNow + seconds(347'483'646));
    EXPECT_EQ(deadlineAfter<Narrow>(kNow, 347'483'647), kEndOf32Bits);
    EXPECT_EQ(deadlineAfter<Narrow>(kNow, UINT_MAX), kEndOf32Bits);
}

TEST(Deadline, HasRoomForTheLongestTimeoutInAWideTime)
{
    EXPECT_EQ(deadlineAfter<Wide>(kNow, UINT_MAX), kNow + seconds(UINT_MAX));
}

TEST(Deadline, EndsWhereTheClockEnds)
{
    EXPECT_LE(kLastDeadline<Wide>, Clock::time_point::max());
    EXPECT_EQ(deadlineAfter<Wide>(kLastDeadline<Wide> - seconds(1), 1), kLastDeadline<Wide>);
    EXPECT_EQ(deadlineAfter<Wide>(kLastDeadline<Wide> - seconds(1), UINT_MAX), kLastDeadline<Wide>);
}

TEST(Deadline, TakesAClockBeforeTheEpoch)
{
    const Clock::time_point before(seconds(-10));
    EXPECT_EQ(deadlineAfter<Narrow>(before, 15), Clock::time_point(seconds(5)));
    EXPECT_EQ(deadlineAfter<Wide>(before, UINT_MAX), before + seconds(UINT_MAX));
}

TEST(Deadline, CanBeNamedInTheTimeOfThisMachine)
{
    const Clock::time_point last = deadlineAfter(Clock::now(), UINT_MAX);
    const std::int64_t count = std::chrono::duration_cast<seconds>(last.time_since_epoch()).count();
    EXPECT_GT(last, Clock::now());
    EXPECT_EQ(static_cast<std::time_t>(count), count);
}

} // namespace
} // namespace Telvane

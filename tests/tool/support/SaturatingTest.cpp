#include "common/support/Saturating.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kUnsignedMax = std::numeric_limits<std::uint64_t>::max();

TEST(Saturating, ComputesExactlyWithinTheRange)
{
    EXPECT_EQ(addSaturated<std::int64_t>(2, -5), -3);
    EXPECT_EQ(subtractSaturated<std::int64_t>(2, -5), 7);
    EXPECT_EQ(multiplySaturated<std::int64_t>(2, -5), -10);
    EXPECT_EQ(subtractSaturated<std::uint64_t>(7, 5), 2U);
}

TEST(Saturating, StopsAtTheLimits)
{
    EXPECT_EQ(addSaturated<std::int64_t>(kMax, 1), kMax);
    EXPECT_EQ(addSaturated<std::int64_t>(kMin, -1), kMin);
    EXPECT_EQ(subtractSaturated<std::int64_t>(kMin, 1), kMin);
    EXPECT_EQ(subtractSaturated<std::int64_t>(0, kMin), kMax);
    EXPECT_EQ(multiplySaturated(kMax, std::int64_t(2)), kMax);
    EXPECT_EQ(multiplySaturated(kMax, std::int64_t(-2)), kMin);
    EXPECT_EQ(multiplySaturated(kMin, std::int64_t(-2)), kMax);
    EXPECT_EQ(addSaturated<std::uint64_t>(kUnsignedMax, 1), kUnsignedMax);
    EXPECT_EQ(subtractSaturated<std::uint64_t>(5, 7), 0U);
    EXPECT_EQ(addSaturated<int>(2147483647, 1), 2147483647);
}

TEST(Saturating, ConvertsNumbersToTheNearestIntegerInRange)
{
    EXPECT_EQ(toSaturated<std::int64_t>(2.75), 2);
    EXPECT_EQ(toSaturated<std::int64_t>(-2.75), -2);
    EXPECT_EQ(toSaturated<std::int64_t>(9223372036854774784.0),
              9223372036854774784); // the largest double below
    EXPECT_EQ(toSaturated<std::int64_t>(9223372036854775808.0), kMax);
    EXPECT_EQ(toSaturated<std::int64_t>(-9223372036854775808.0), kMin);
    EXPECT_EQ(toSaturated<std::int64_t>(std::numeric_limits<double>::infinity()), kMax);
    EXPECT_EQ(toSaturated<std::int64_t>(-1e300), kMin);
    EXPECT_EQ(toSaturated<std::int64_t>(std::nan("")), 0);
    EXPECT_EQ(toSaturated<std::uint64_t>(-1.0), 0U);
    EXPECT_EQ(toSaturated<std::uint64_t>(18446744073709551616.0), kUnsignedMax);
    EXPECT_EQ(toSaturated<int>(2147483647.5), 2147483647);
    EXPECT_EQ(toSaturated<int>(2147483648.0), 2147483647);
}

} // namespace
} // namespace TelvaneTool

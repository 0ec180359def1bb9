#include "common/bus/SequenceNumbers.h"

#include <gtest/gtest.h>

#include <limits>

namespace TelvaneTool
{
namespace
{

constexpr int kMin = std::numeric_limits<int>::min();
constexpr int kMax = std::numeric_limits<int>::max();

TEST(SequenceNumbers, StartAgainAtZero)
{
    EXPECT_EQ(sequenceStep(65535, 0), 1);
    EXPECT_EQ(sequenceStep(3, 7), 4);
    EXPECT_EQ(sequenceStep(7, 3), 65532);
    EXPECT_EQ(sequencesBetween(65534, 1), 2);
}

TEST(SequenceNumbers, AreAFullCycleApartWhenRepeated)
{
    EXPECT_EQ(sequenceStep(7, 7), 0);
    EXPECT_EQ(sequencesBetween(7, 7), 65535);
    EXPECT_EQ(sequencesBetween(7, 8), 0);
}

TEST(SequenceNumbers, MayHaveAnyValue)
{
    EXPECT_EQ(sequenceStep(0, kMax), 65535);
    EXPECT_EQ(sequenceStep(0, -70'000), 61'072);
    EXPECT_EQ(sequenceStep(kMax, kMin), 1);
    EXPECT_EQ(sequencesBetween(kMin, kMax), 65534);
    EXPECT_EQ(sequencesBetween(kMax, kMin), 0);
}

} // namespace
} // namespace TelvaneTool

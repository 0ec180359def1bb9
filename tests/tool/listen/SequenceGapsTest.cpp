#include "listen/SequenceGaps.h"

#include <gmock/gmock.h>

#include <initializer_list>

namespace TelvaneTool
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

void take(SequenceGaps& missed, std::initializer_list<int> sequences)
{
    for (const int sequence : sequences) {
        missed.take(sequence);
    }
}

TEST(SequenceGaps, AreNoneBeforeARecordHasArrived)
{
    const SequenceGaps missed;
    EXPECT_EQ(missed.absent(), 0U);
    EXPECT_THAT(missed.describe(true), IsEmpty());
}

TEST(SequenceGaps, AreNoneWhenTheNumbersComeWithoutAGap)
{
    SequenceGaps missed;
    take(missed, {7, 8, 9});
    EXPECT_EQ(missed.absent(), 0U);
    EXPECT_THAT(missed.describe(false), IsEmpty());
    EXPECT_THAT(missed.describe(true),
                ElementsAre("nothing was missed: the numbers 7 to 9 came without a gap"));
}

TEST(SequenceGaps, AreAtMostAsManyAsNumbersDidNotCome)
{
    SequenceGaps missed;
    take(missed, {7, 9, 20});
    EXPECT_EQ(missed.absent(), 11U);
    EXPECT_THAT(
        missed.describe(false),
        ElementsAre("at most 11 records were missed: of the numbers 7 to 20 as many did not come, those of "
                    "other channels and of subscriptions among them"));
}

TEST(SequenceGaps, AreCountedAcrossTheEndOfTheNumbers)
{
    SequenceGaps missed;
    take(missed, {65534, 65535, 0, 1});
    EXPECT_EQ(missed.absent(), 0U);
    take(missed, {65535, 2});
    EXPECT_EQ(missed.absent(), 65533U + 2U);
}

TEST(SequenceGaps, FillARoundWhenANumberComesTwice)
{
    SequenceGaps missed;
    take(missed, {5, 5});
    EXPECT_EQ(missed.absent(), 65535U);
}

TEST(SequenceGaps, LeaveOutNumbersThatNoServerGives)
{
    SequenceGaps missed;
    take(missed, {5, -1, 65536, 6});
    EXPECT_EQ(missed.absent(), 0U);
}

TEST(SequenceGaps, CountWhatCouldNotBeRead)
{
    SequenceGaps missed;
    missed.take(1);
    missed.takeUnreadable();
    missed.takeUnreadable();
    EXPECT_THAT(missed.describe(false), ElementsAre("records that could not be read: 2"));
}

} // namespace
} // namespace TelvaneTool

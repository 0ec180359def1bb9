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

TEST(SequenceGaps, AreNoneBeforeTheFirstRecord)
{
    const SequenceGaps missed;
    EXPECT_EQ(missed.missing(), 0U);
    EXPECT_THAT(missed.describe(true), IsEmpty());
}

TEST(SequenceGaps, AreNoneWithConsecutiveNumbers)
{
    SequenceGaps missed;
    take(missed, {7, 8, 9});
    EXPECT_EQ(missed.missing(), 0U);
    EXPECT_THAT(missed.describe(false), IsEmpty());
    EXPECT_THAT(missed.describe(true),
                ElementsAre("nothing was missed: the sequence numbers 7 to 9 have no gap"));
}

TEST(SequenceGaps, CountMissingNumbers)
{
    SequenceGaps missed;
    take(missed, {7, 9, 20});
    EXPECT_EQ(missed.missing(), 11U);
    EXPECT_THAT(
        missed.describe(false),
        ElementsAre("at most 11 records were missed: so many of the sequence numbers 7 to 20 are missing, "
                    "including those of other channels and of subscriptions"));
}

TEST(SequenceGaps, AreCountedAcrossAWrap)
{
    SequenceGaps missed;
    take(missed, {65534, 65535, 0, 1});
    EXPECT_EQ(missed.missing(), 0U);
    take(missed, {65535, 2});
    EXPECT_EQ(missed.missing(), 65533U + 2U);
}

TEST(SequenceGaps, CountAFullCycleForARepeatedNumber)
{
    SequenceGaps missed;
    take(missed, {5, 5});
    EXPECT_EQ(missed.missing(), 65535U);
}

TEST(SequenceGaps, IgnoreInvalidNumbers)
{
    SequenceGaps missed;
    take(missed, {5, -1, 65536, 6});
    EXPECT_EQ(missed.missing(), 0U);
}

TEST(SequenceGaps, CountUndecodableRecords)
{
    SequenceGaps missed;
    missed.take(1);
    missed.takeUnreadable();
    missed.takeUnreadable();
    EXPECT_THAT(missed.describe(false), ElementsAre("records that could not be decoded: 2"));
}

TEST(SequenceGaps, DoNotCountUndecodableRecordsAsMissed)
{
    SequenceGaps missed;
    for (const int sequence : {1, 2, 3}) {
        missed.take(sequence);
        missed.takeUnreadable();
    }
    EXPECT_EQ(missed.missing(), 0U);
}

TEST(SequenceGaps, CountRecordsThatAreNotUtf8)
{
    SequenceGaps missed;
    missed.takeInvalidText();
    EXPECT_THAT(missed.describe(false),
                ElementsAre("records with bytes that are not UTF-8, printed as U+FFFD: 1"));
}

} // namespace
} // namespace TelvaneTool

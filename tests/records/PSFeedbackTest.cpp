#include <Telvane/PSFeedback.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <set>
#include <string>

namespace Telvane
{
namespace
{

std::string feedbackJson(const std::string& flags, const std::string& values,
                         const std::string& label = "PSFeedback")
{
    return R"({"mLabel":")" + label + R"(","mPSReady":false,"mWeldFlags":)" + flags + R"(,"mPSValues":)" +
           values + "}";
}

const std::string kFlagsOff = jsonArray(4, "false");
const std::string kZeros = jsonArray(24, "0");

TEST(PSFeedback, PackagesFourFlagsAndTwentyFourValues)
{
    EXPECT_EQ(defaultJson<PSFeedback>(), feedbackJson(kFlagsOff, kZeros));
}

TEST(PSFeedbackBase, HoldsZerosFromConstruction)
{
    EXPECT_EQ(defaultJson<PSFeedbackBase>(), feedbackJson(kFlagsOff, kZeros, ""));
}

TEST(PSFeedback, GivesBackEachFlagAndValue)
{
    PSFeedback feedback;
    for (int flag = 0; flag < 4; ++flag) {
        EXPECT_TRUE(feedback.Set(PSWeldFlags_e(flag), true));
        EXPECT_TRUE(feedback.Get(PSWeldFlags_e(flag)));
        EXPECT_TRUE(feedback.mWeldFlags[flag]);
    }
    for (int index = 0; index < 24; ++index) {
        EXPECT_TRUE(feedback.Set(PSFeedback_e(index), 100 - index));
        EXPECT_EQ(feedback.Get(PSFeedback_e(index)), 100 - index);
        EXPECT_EQ(feedback.mPSValues[index], 100 - index);
    }
    EXPECT_TRUE(feedback.Set(PSFeedback_Value23, 5));
    EXPECT_EQ(feedback.Get(PSFeedback_Value23), 5);
}

TEST(PSFeedback, RefusesNumbersOutsideItsArrays)
{
    PSFeedback feedback;
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    for (const int number : {24, 25, std::numeric_limits<int>::max(), -1, std::numeric_limits<int>::min()}) {
        EXPECT_FALSE(feedback.Set(PSFeedback_e(number), 5)) << number;
        EXPECT_EQ(feedback.Get(PSFeedback_e(number)), 0) << number;
    }
    for (const int number : {4, 5, std::numeric_limits<int>::max(), -1, std::numeric_limits<int>::min()}) {
        EXPECT_FALSE(feedback.Set(PSWeldFlags_e(number), true)) << number;
        EXPECT_FALSE(feedback.Get(PSWeldFlags_e(number))) << number;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(compactJson(feedback), feedbackJson(kFlagsOff, kZeros));
}

TEST(PSFeedback, InitializesAllButTheReadiness)
{
    PSFeedback feedback;
    feedback.mLabel = "other";
    feedback.mPSReady = true;
    feedback.Set(PSWeldFlags_Flag2, true);
    feedback.Set(PSFeedback_Value7, 7);
    feedback.Initialize();
    EXPECT_TRUE(feedback.mPSReady);
    feedback.mPSReady = false;
    EXPECT_EQ(compactJson(feedback), feedbackJson(kFlagsOff, kZeros));
}

TEST(PSFeedback, ReadsThreeValuesAndKeepsTheOthers)
{
    PSFeedback feedback;
    for (int index = 0; index < 24; ++index) {
        feedback.Set(PSFeedback_e(index), 50 + index);
    }
    ASSERT_TRUE(feedback.FromJson(feedbackJson("[true]", "[1,2,3]")));
    EXPECT_TRUE(feedback.Get(PSWeldFlags_Flag0));
    EXPECT_FALSE(feedback.Get(PSWeldFlags_Flag1));
    EXPECT_EQ(feedback.Get(PSFeedback_Value2), 3);
    for (int index = 3; index < 24; ++index) {
        EXPECT_EQ(feedback.Get(PSFeedback_e(index)), 50 + index);
    }
}

TEST(PSFeedback, ReadsAllTwentyFourValues)
{
    PSFeedback feedback;
    const std::string json = feedbackJson(jsonArray(4, "true"), jsonArray(24, "-3"));
    ASSERT_TRUE(feedback.FromJson(json));
    EXPECT_EQ(compactJson(feedback), json);
}

TEST(PSFeedback, RefusesNoValuesAndTwentyFiveValues)
{
    PSFeedback feedback;
    for (const std::size_t count : {std::size_t{0}, std::size_t{25}}) {
        const ReadOutcome outcome = read(feedback, feedbackJson(kFlagsOff, jsonArray(count, "9")));
        EXPECT_FALSE(outcome.success) << count;
        EXPECT_EQ(outcome.errors, "FAIL! _array_fromJson mPSValues\n");
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(compactJson(feedback), feedbackJson(kFlagsOff, kZeros));
    }
}

TEST(PSFeedback, RefusesNoFlagsAndFiveFlagsWithoutChangingTheValues)
{
    PSFeedback feedback;
    for (const std::size_t count : {std::size_t{0}, std::size_t{5}}) {
        const ReadOutcome outcome = read(feedback, feedbackJson(jsonArray(count, "true"), "[1]"));
        EXPECT_FALSE(outcome.success) << count;
        EXPECT_EQ(outcome.errors, "FAIL! _array_fromJson mWeldFlags\n");
        EXPECT_EQ(compactJson(feedback), feedbackJson(kFlagsOff, kZeros));
    }
}

TEST(PSFeedback, RefusesAnArrayThatIsMissingOrNoArray)
{
    PSFeedback feedback;
    EXPECT_EQ(read(feedback, feedbackJson("true", "[1]")).errors, "FAIL! _array_fromJson mWeldFlags\n");
    EXPECT_EQ(read(feedback, R"({"mLabel":"","mPSReady":true,"mWeldFlags":[true]})").errors,
              "FAIL! _array_fromJson mPSValues\n");
    EXPECT_TRUE(feedback.mPSReady);
}

TEST(PSFeedback, KeepsTheItemsBeforeOneOfAnotherType)
{
    PSFeedback feedback;
    ReadOutcome outcome = read(feedback, feedbackJson("[true,1]", "[1]"));
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _array_fromJson mWeldFlags\n");
    EXPECT_EQ(outcome.output, "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, bool &target) error!\n"
                              "_readFromJsonItem error!  Type: 8 Value Db: 1 Array Size: 2 Index: 1\n");
    EXPECT_TRUE(feedback.Get(PSWeldFlags_Flag0));

    outcome = read(feedback, feedbackJson("[true]", R"([6,"7",8])"));
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _array_fromJson mPSValues\n");
    EXPECT_EQ(outcome.output, "TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, int &target) error!\n"
                              "_readFromJsonItem error!  Type: 16 Value Db: 0 Array Size: 3 Index: 1\n");
    EXPECT_EQ(feedback.Get(PSFeedback_Value0), 6);
    EXPECT_EQ(feedback.Get(PSFeedback_Value2), 0);
}

TEST(PSFeedback, ReportsTheArraysThatCannotBeWritten)
{
    PSFeedback feedback;
    EXPECT_EQ(writeFailures(feedback),
              (std::set<std::string>{"FAIL! _toJson ArraymWeldFlags\n", "FAIL! _toJson ArraymPSValues\n"}));
}

TEST(PSFeedback, IsNotCopiedFromItsBase)
{
    PSFeedbackBase base;
    base.mPSReady = true;
    PSFeedback feedback;
    EXPECT_EQ(feedback.copy(&base), -EINVAL);
    EXPECT_FALSE(feedback.mPSReady);

    feedback.Set(PSFeedback_Value12, 12);
    feedback.Set(PSWeldFlags_Flag3, true);
    EXPECT_EQ(base.copy(&feedback), 0);
    EXPECT_EQ(compactJson(base), compactJson(feedback));
}

} // namespace
} // namespace Telvane

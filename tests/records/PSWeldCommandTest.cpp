#include <Telvane/PSWeldCommand.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>

namespace Telvane
{
namespace
{

const std::string kOn = R"({"Flag":true,"Status":true})";
const std::string kOff = R"({"Flag":false,"Status":false})";

std::string weldCommandJson(const std::string& flags)
{
    return R"({"mLabel":"PSWeldCommand","mCommandType":0,"mResponseFlag":false,"mWeldFlags":)" + flags + "}";
}

TEST(PSWeldCommand, PackagesFourFlagsEvenWhenNoneIsSet)
{
    EXPECT_EQ(defaultJson<PSWeldCommand>(), weldCommandJson(jsonArray(4, kOff)));
}

TEST(PSWeldCommandBase, HasNoLabel)
{
    EXPECT_EQ(defaultJson<PSWeldCommandBase>(),
              R"({"mLabel":"","mCommandType":0,"mResponseFlag":false,"mWeldFlags":)" + jsonArray(4, kOff) +
                  "}");
}

TEST(PSWeldCommand, SetsFlagAndStatusApart)
{
    PSWeldCommand command;
    EXPECT_TRUE(command.Set(PSWeldFlags_Flag1, true, false));
    EXPECT_TRUE(command.Get(PSWeldFlags_Flag1));
    EXPECT_FALSE(command.GetStatus(PSWeldFlags_Flag1));
    EXPECT_TRUE(command.Set(PSWeldFlags_Flag3, false, true));
    EXPECT_FALSE(command.Get(PSWeldFlags_Flag3));
    EXPECT_TRUE(command.GetStatus(PSWeldFlags_Flag3));
    EXPECT_EQ(compactJson(command), weldCommandJson("[" + kOff + R"(,{"Flag":true,"Status":false},)" + kOff +
                                                    R"(,{"Flag":false,"Status":true}])"));
}

TEST(PSWeldCommand, RefusesFlagsThatItDoesNotHave)
{
    PSWeldCommand command;
    for (int flag = 0; flag < 4; ++flag) {
        EXPECT_TRUE(command.Set(PSWeldFlags_e(flag), true, true));
    }
    const std::string before = compactJson(command);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    for (const int flag : {4, 5, std::numeric_limits<int>::max(), -1, std::numeric_limits<int>::min()}) {
        EXPECT_FALSE(command.Set(PSWeldFlags_e(flag), false, false)) << flag;
        EXPECT_FALSE(command.Get(PSWeldFlags_e(flag))) << flag;
        EXPECT_FALSE(command.GetStatus(PSWeldFlags_e(flag))) << flag;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(compactJson(command), before);
}

TEST(PSWeldCommand, ResetsAllFlagsAndNothingElse)
{
    PSWeldCommand command;
    command.mLabel = "other";
    command.mResponseFlag = true;
    command.SetCommandType(PSCommandType_e(5));
    for (int flag = 0; flag < 4; ++flag) {
        command.Set(PSWeldFlags_e(flag), true, true);
    }
    command.ResetBuffers();
    for (int flag = 0; flag < 4; ++flag) {
        EXPECT_FALSE(command.Get(PSWeldFlags_e(flag)));
        EXPECT_FALSE(command.GetStatus(PSWeldFlags_e(flag)));
    }
    EXPECT_EQ(command.mLabel, "other");
    EXPECT_TRUE(command.mResponseFlag);
    EXPECT_EQ(command.GetCommandType(), 5);
}

TEST(PSWeldCommand, ReturnsItsTypeLikeACommand)
{
    PSWeldCommand command;
    EXPECT_EQ(command.GetCommandType(), PSCommandType_Weld);
    command.SetCommandType(PSCommandType_e(6));
    EXPECT_EQ(command.GetCommandType(), 6);
    command.SetCommandType(PSCommandType_e(7));
    EXPECT_EQ(command.GetCommandType(), 7);
    command.SetCommandType(PSCommandType_e(-2));
    EXPECT_EQ(command.GetCommandType(), 7);
    EXPECT_EQ(command.mCommandType, -2);
}

TEST(PSWeldCommand, ReadsFewerFlagsAndKeepsTheOthers)
{
    PSWeldCommand command;
    command.Set(PSWeldFlags_Flag3, true, true);
    const ReadOutcome outcome = read(command, weldCommandJson("[" + kOn + "]"));
    EXPECT_TRUE(outcome.success);
    EXPECT_EQ(compactJson(command), weldCommandJson("[" + kOn + "," + kOff + "," + kOff + "," + kOn + "]"));
}

TEST(PSWeldCommand, RefusesNoFlagsAndFiveFlags)
{
    PSWeldCommand command;
    for (const std::size_t count : {std::size_t{0}, std::size_t{5}}) {
        const ReadOutcome outcome = read(command, weldCommandJson(jsonArray(count, kOn)));
        EXPECT_FALSE(outcome.success) << count;
        EXPECT_EQ(outcome.errors, "FAIL! _array_fromJson mWeldFlags\n");
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(compactJson(command), weldCommandJson(jsonArray(4, kOff)));
    }
}

TEST(PSWeldCommand, KeepsTheFlagsBeforeOneThatIsNoObject)
{
    PSWeldCommand command;
    const ReadOutcome outcome = read(command, weldCommandJson("[" + kOn + ",true]"));
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors,
              "FAIL! _readFromJsonItem item not an object \nFAIL! _array_fromJson mWeldFlags\n");
    EXPECT_EQ(outcome.output, "_readFromJsonItem error!  Type: 2 Value Db: 0 Array Size: 2 Index: 1\n");
    EXPECT_EQ(compactJson(command), weldCommandJson("[" + kOn + "," + kOff + "," + kOff + "," + kOff + "]"));
}

TEST(PSWeldCommand, ReportsAnArrayThatCannotBeWritten)
{
    PSWeldCommand command;
    EXPECT_EQ(writeFailures(command), (std::set<std::string>{"FAIL! _toJson ArraymWeldFlags\n"}));
}

TEST(PSWeldCommand, IsNotCopiedFromItsBase)
{
    PSWeldCommandBase base;
    base.mLabel = "base";
    PSWeldCommand command;
    EXPECT_EQ(command.copy(&base), -EINVAL);
    EXPECT_EQ(command.mLabel, "PSWeldCommand");

    command.Set(PSWeldFlags_Flag2, true, true);
    EXPECT_EQ(base.copy(&command), 0);
    EXPECT_EQ(compactJson(base), compactJson(command));
}

} // namespace
} // namespace Telvane

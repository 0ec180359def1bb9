#include <Telvane/PSCommand.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>

namespace Telvane
{
namespace
{

constexpr int kNoValue = 2147483647;

/// \return the JSON of a command with \p count values, all labelled 1
std::string commandJson(std::size_t count)
{
    return R"({"mLabel":"x","mCommandType":4,"mResponseFlag":true,"mPublishResponse":true,"mModes":[],"mValues":)" +
           jsonArray(count, R"({"Label":1,"Value":2,"Status":true})") + "}";
}

TEST(PSProgramCommand, PackagesItsDefaults)
{
    EXPECT_EQ(defaultJson<PSProgramCommand>(),
              R"({"mLabel":"PSProgramCommand","mCommandType":4,"mResponseFlag":false,)"
              R"("mPublishResponse":false,"mModes":[],"mValues":)" +
                  jsonArray(4, R"({"Label":0,"Value":0,"Status":false})") + "}");
}

TEST(PSProgramCommand, GivesBackWhatWasSet)
{
    PSProgramCommand command;
    EXPECT_TRUE(command.Set(ProgramCommand_e(2), 150));
    EXPECT_EQ(command.Get(ProgramCommand_e(2)), 150);
    EXPECT_EQ(command.mValues[2].Label, 2);
    EXPECT_TRUE(command.mValues[2].Status);
}

TEST(PSProgramCommand, NumbersItsEntriesInTheOrderOfAProgram)
{
    EXPECT_EQ(ProgramCommand_Process, 0);
    EXPECT_EQ(ProgramCommand_WireType, 1);
    EXPECT_EQ(ProgramCommand_WireSize, 2);
    EXPECT_EQ(ProgramCommand_GasType, 3);
}

TEST(PSProgramCommand, GivesTheFirstEntryFromTheBeginningAndTheOthersOnlyOnceTheyAreSet)
{
    PSProgramCommand command;
    EXPECT_EQ(command.Get(ProgramCommand_e(0)), 0);
    EXPECT_EQ(command.Get(ProgramCommand_e(1)), kNoValue);
    EXPECT_EQ(command.Get(ProgramCommand_e(2)), kNoValue);
    EXPECT_EQ(command.Get(ProgramCommand_e(3)), kNoValue);
}

TEST(PSProgramCommand, DoesNotConsultTheStatusOfAnEntry)
{
    PSProgramCommand command;
    command.Set(ProgramCommand_e(3), 9);
    command.mValues[3].Status = false;
    EXPECT_EQ(command.Get(ProgramCommand_e(3)), 9);
}

TEST(PSProgramCommand, RefusesNumbersAboveFourAndNegativeOnes)
{
    PSProgramCommand command;
    const std::string before = command.GetString();
    for (const int number : {5, 6, std::numeric_limits<int>::max(), -1, std::numeric_limits<int>::min()}) {
        EXPECT_FALSE(command.Set(ProgramCommand_e(number), 1)) << number;
        EXPECT_EQ(command.Get(ProgramCommand_e(number)), kNoValue) << number;
    }
    EXPECT_EQ(command.GetString(), before);
}

std::string whatSetThrows(PSProgramCommand& command, int number)
{
    try {
        command.Set(ProgramCommand_e(number), 1);
    } catch (const std::out_of_range& error) {
        return error.what();
    }
    return "nothing";
}

TEST(PSProgramCommand, ThrowsForNumberFourThatGetRefuses)
{
    PSProgramCommand command;
    EXPECT_EQ(whatSetThrows(command, 4),
              "vector::_M_range_check: __n (which is 4) >= this->size() (which is 4)");
    EXPECT_EQ(command.Get(ProgramCommand_e(4)), kNoValue);
}

TEST(PSProgramCommand, HasNoEntriesAfterAReset)
{
    PSProgramCommand command;
    command.Set(ProgramCommand_e(0), 1);
    command.mModes.resize(2);
    command.ResetBuffers();
    EXPECT_TRUE(command.mValues.empty());
    EXPECT_EQ(command.mModes.size(), 2U);
    for (int number = 0; number <= 4; ++number) {
        EXPECT_EQ(command.Get(ProgramCommand_e(number)), kNoValue) << number;
        EXPECT_EQ(whatSetThrows(command, number), "vector::_M_range_check: __n (which is " +
                                                      std::to_string(number) +
                                                      ") >= this->size() (which is 0)");
    }
    EXPECT_FALSE(command.Set(ProgramCommand_e(5), 1));
}

TEST(PSProgramCommand, WithThreeEntriesSetsThreeAndGivesNone)
{
    PSProgramCommand command;
    ASSERT_TRUE(command.FromJson(commandJson(3)));
    for (int number = 0; number < 3; ++number) {
        EXPECT_TRUE(command.Set(ProgramCommand_e(number), 8)) << number;
        EXPECT_EQ(command.mValues[static_cast<std::size_t>(number)].Value, 8);
    }
    EXPECT_EQ(whatSetThrows(command, 3),
              "vector::_M_range_check: __n (which is 3) >= this->size() (which is 3)");
    for (int number = 0; number <= 4; ++number) {
        EXPECT_EQ(command.Get(ProgramCommand_e(number)), kNoValue) << number;
    }
}

TEST(PSProgramCommand, WithFiveEntriesSetsFiveAndGivesNone)
{
    PSProgramCommand command;
    ASSERT_TRUE(command.FromJson(commandJson(5)));
    for (int number = 0; number <= 4; ++number) {
        EXPECT_TRUE(command.Set(ProgramCommand_e(number), 8)) << number;
        EXPECT_EQ(command.Get(ProgramCommand_e(number)), kNoValue) << number;
    }
    EXPECT_FALSE(command.Set(ProgramCommand_e(5), 8));
}

TEST(PSProgramCommand, IsUsableAgainAfterACopy)
{
    PSProgramCommand source;
    source.Set(ProgramCommand_GasType, 3);
    PSProgramCommand target;
    target.ResetBuffers();
    ASSERT_EQ(target.copy(&source), 0);
    EXPECT_EQ(target.Get(ProgramCommand_GasType), 3);
    PSCommand other;
    EXPECT_EQ(target.copy(&other), -EINVAL);
    EXPECT_EQ(target.Get(ProgramCommand_GasType), 3);
}

TEST(PSProgramCommand, ReturnsItsTypeLikeACommand)
{
    PSProgramCommand command;
    EXPECT_EQ(command.GetCommandType(), PSCommandType_Program);
    command.SetCommandType(PSCommandType_e(6));
    EXPECT_EQ(command.GetCommandType(), 6);
    command.SetCommandType(PSCommandType_e(-1));
    EXPECT_EQ(command.GetCommandType(), 7);
    EXPECT_EQ(command.mCommandType, -1);
}

} // namespace
} // namespace Telvane

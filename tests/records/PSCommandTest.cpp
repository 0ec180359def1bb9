#include <Telvane/PSCommand.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>
#include <set>
#include <string>

// This program's allocations fail on demand, the library's included, to see what an append makes of it.
namespace
{

enum class Memory
{
    Plenty,
    Exhausted,    ///< throws what the language prescribes
    ThrowsANumber ///< throws something outside the standard exceptions
};

thread_local Memory t_memory = Memory::Plenty;

class MemoryIs
{
public:
    explicit MemoryIs(Memory state) { t_memory = state; }
    ~MemoryIs() { t_memory = Memory::Plenty; }
    MemoryIs(const MemoryIs&) = delete;
    MemoryIs& operator=(const MemoryIs&) = delete;
};

} // namespace

// Not inline: the compiler would see malloc and free apart, and find that they do not match.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    if (t_memory == Memory::ThrowsANumber) {
        throw 42;
    }
    void* const memory = t_memory == Memory::Plenty ? std::malloc(size) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace Telvane
{
namespace
{

const std::string kItem = R"({"Label":1,"Value":2,"Status":true})";

std::string commandJson(const std::string& modes, const std::string& values)
{
    return R"({"mLabel":"x","mCommandType":3,"mResponseFlag":true,"mPublishResponse":true,"mModes":)" +
           modes + R"(,"mValues":)" + values + "}";
}

/// An append, and what it wrote.
struct AppendOutcome
{
    bool success;
    std::string errors;
    std::string output;
};

AppendOutcome appendWithoutMemory(PSCommand& command, bool (PSCommand::*append)(PSValues_e, int),
                                  PSValues_e label, int value)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    bool success = false;
    {
        const MemoryIs exhausted(Memory::Exhausted);
        success = (command.*append)(label, value);
    }
    return {success, testing::internal::GetCapturedStderr(), testing::internal::GetCapturedStdout()};
}

TEST(PSCommand, PackagesItsDefaults)
{
    EXPECT_EQ(defaultJson<PSCommand>(),
              R"({"mLabel":"PSCommand","mCommandType":3,"mResponseFlag":false,"mPublishResponse":false,)"
              R"("mModes":[],"mValues":[]})");
}

TEST(PSCommandBase, PackagesItsDefaults)
{
    EXPECT_EQ(defaultJson<PSCommandBase>(),
              R"({"mLabel":"","mCommandType":0,"mResponseFlag":false,"mPublishResponse":false,)"
              R"("mModes":[],"mValues":[]})");
}

TEST(PSCommandType, HasItsNumbers)
{
    EXPECT_EQ(PSCommandType_Weld, 0);
    EXPECT_EQ(PSCommandType_General, 3);
    EXPECT_EQ(PSCommandType_Program, 4);
    EXPECT_EQ(PSCommandType_OutOfRange, 7);
}

TEST(PSCommand, ReturnsAnyTypeBelowSeven)
{
    PSCommand command;
    EXPECT_EQ(command.GetCommandType(), PSCommandType_General);
    for (int type = 0; type < 7; ++type) {
        command.SetCommandType(PSCommandType_e(type));
        EXPECT_EQ(command.GetCommandType(), type);
    }
}

TEST(PSCommand, ReturnsSevenForTypesFromSevenAndNegativeOnesButKeepsThem)
{
    PSCommand command;
    for (const int type :
         {7, 8, 9, 255, std::numeric_limits<int>::max(), -1, std::numeric_limits<int>::min()}) {
        command.SetCommandType(PSCommandType_e(type));
        EXPECT_EQ(command.GetCommandType(), 7) << type;
        EXPECT_NE(compactJson(command).find("\"mCommandType\":" + std::to_string(type) + ","),
                  std::string::npos);
    }
}

TEST(PSCommand, AppendsModesAndValuesInOrderWithTheirStatusSet)
{
    PSCommand command;
    EXPECT_TRUE(command.InsertMode(PSValues_e(5), 300));
    EXPECT_TRUE(command.InsertMode(PSValues_e(2), -1));
    EXPECT_TRUE(command.InsertValue(PSValues_e(-9), 7));
    EXPECT_EQ(compactJson(command),
              R"({"mLabel":"PSCommand","mCommandType":3,"mResponseFlag":false,"mPublishResponse":false,)"
              R"("mModes":[{"Label":5,"Value":300,"Status":true},{"Label":2,"Value":-1,"Status":true}],)"
              R"("mValues":[{"Label":-9,"Value":7,"Status":true}]})");
}

TEST(PSCommand, ResetsOnlyItsValues)
{
    PSCommand command;
    command.mLabel = "other";
    command.mResponseFlag = true;
    command.SetCommandType(PSCommandType_e(5));
    command.InsertMode(PSValues_e(5), 300);
    command.InsertMode(PSValues_e(2), -1);
    command.InsertValue(PSValues_e(1), 1);
    const std::size_t room = command.mValues.capacity();

    command.ResetBuffers();

    EXPECT_TRUE(command.mValues.empty());
    EXPECT_EQ(command.mValues.capacity(), room);
    EXPECT_EQ(command.mModes.size(), 2U);
    EXPECT_EQ(command.mLabel, "other");
    EXPECT_EQ(command.GetCommandType(), 5);
    EXPECT_TRUE(command.mResponseFlag);
}

TEST(PSCommand, HasRoomForAnOrdinaryCommandFromTheBeginning)
{
    PSCommand command;
    EXPECT_EQ(command.mModes.capacity(), 17U);
    EXPECT_EQ(command.mValues.capacity(), 35U);

    const MemoryIs exhausted(Memory::Exhausted);
    bool success = true;
    for (int i = 0; i < 17; ++i) {
        success = command.InsertMode(PSValues_e(i), i) && success;
    }
    for (int i = 0; i < 35; ++i) {
        success = command.InsertValue(PSValues_e(i), i) && success;
    }
    EXPECT_TRUE(success);
}

TEST(PSCommand, ReportsAModeThatFindsNoMemory)
{
    PSCommand command;
    command.mModes.resize(command.mModes.capacity());
    const AppendOutcome outcome = appendWithoutMemory(command, &PSCommand::InsertMode, PSValues_e(5), 300);
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "PSCommand::InsertMode vector push_back failed - label: 5 value: 300\n");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(command.mModes.size(), 17U);
    EXPECT_TRUE(command.InsertMode(PSValues_e(5), 300));
    EXPECT_EQ(command.mModes.size(), 18U);
}

TEST(PSCommand, ReportsAValueThatFindsNoMemory)
{
    PSCommand command;
    command.mValues.resize(command.mValues.capacity());
    const AppendOutcome outcome = appendWithoutMemory(command, &PSCommand::InsertValue, PSValues_e(5), 300);
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "PSCommand::Insert vector push_back failed - label: 5 value: 300\n");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(command.mValues.size(), 35U);
}

TEST(PSCommand, ReportsTheLabelUnsignedAndTheValueCutToSixteenBits)
{
    PSCommand command;
    command.mModes.resize(command.mModes.capacity());
    EXPECT_EQ(appendWithoutMemory(command, &PSCommand::InsertMode, PSValues_e(-1), -1).errors,
              "PSCommand::InsertMode vector push_back failed - label: 4294967295 value: 65535\n");
    EXPECT_EQ(appendWithoutMemory(command, &PSCommand::InsertMode, PSValues_e(2147483647), 65536 + 7).errors,
              "PSCommand::InsertMode vector push_back failed - label: 2147483647 value: 7\n");
}

TEST(PSCommand, LetsOtherExceptionsPass)
{
    PSCommand command;
    command.mModes.resize(command.mModes.capacity());
    const auto insert = [&command] {
        const MemoryIs strange(Memory::ThrowsANumber);
        command.InsertMode(PSValues_e(1), 1);
    };
    EXPECT_THROW(insert(), int);
    EXPECT_EQ(command.mModes.size(), 17U);
}

TEST(PSCommand, ReadsAHundredItems)
{
    PSCommand command;
    const ReadOutcome outcome = read(command, commandJson(jsonArray(100, kItem), jsonArray(100, kItem)));
    EXPECT_TRUE(outcome.success);
    EXPECT_EQ(outcome.errors + outcome.output, "");
    EXPECT_EQ(command.mModes.size(), 100U);
    EXPECT_EQ(command.mValues.size(), 100U);
    EXPECT_EQ(command.mValues[99].Value, 2);
}

TEST(PSCommand, RefusesAHundredAndOneModesWithoutChangingEitherList)
{
    PSCommand command;
    command.InsertMode(PSValues_e(5), 300);
    const ReadOutcome outcome = read(command, commandJson(jsonArray(101, kItem), jsonArray(1, kItem)));
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _vector_fromJson mModes\n");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(command.mLabel, "x");
    ASSERT_EQ(command.mModes.size(), 1U);
    EXPECT_EQ(command.mModes[0].Value, 300);
    EXPECT_TRUE(command.mValues.empty());
}

TEST(PSCommand, RefusesAHundredAndOneValuesAfterReadingTheModes)
{
    PSCommand command;
    const ReadOutcome outcome = read(command, commandJson(jsonArray(1, kItem), jsonArray(101, kItem)));
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _vector_fromJson mValues\n");
    EXPECT_EQ(command.mModes.size(), 1U);
    EXPECT_TRUE(command.mValues.empty());
}

TEST(PSCommand, ReadsEmptyArraysAsEmptyLists)
{
    PSCommand command;
    command.InsertMode(PSValues_e(1), 1);
    command.InsertValue(PSValues_e(1), 1);
    EXPECT_TRUE(command.FromJson(commandJson("[]", "[]")));
    EXPECT_TRUE(command.mModes.empty());
    EXPECT_TRUE(command.mValues.empty());
}

TEST(PSCommand, RefusesAListThatIsMissingOrNoArray)
{
    PSCommand command;
    EXPECT_EQ(read(command, commandJson("{}", "[]")).errors, "FAIL! _vector_fromJson mModes\n");
    EXPECT_EQ(read(command, R"({"mLabel":"x","mCommandType":3,"mResponseFlag":true,"mPublishResponse":true,)"
                            R"("mModes":[]})")
                  .errors,
              "FAIL! _vector_fromJson mValues\n");
}

TEST(PSCommand, KeepsTheItemsBeforeOneThatIsNoObject)
{
    PSCommand command;
    const ReadOutcome outcome = read(command, commandJson("[" + kItem + ",7," + kItem + "]", "[]"));
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _readFromJsonItem item not an object \nFAIL! _vector_fromJson mModes\n");
    ASSERT_EQ(command.mModes.size(), 3U);
    EXPECT_EQ(command.mModes[0].Value, 2);
    EXPECT_EQ(command.mModes[2].Value, 0);
}

TEST(PSCommand, KeepsTheItemsBeforeOneThatLacksAKey)
{
    PSCommand command;
    const ReadOutcome outcome = read(command, commandJson("[" + kItem + R"(,{"Label":9}])", "[]"));
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _int_fromJson Value\nFAIL! _readFromJsonItem Unpackage Failed \n"
                              "FAIL! _vector_fromJson mModes\n");
    ASSERT_EQ(command.mModes.size(), 2U);
    EXPECT_EQ(command.mModes[0].Value, 2);
    EXPECT_EQ(command.mModes[1].Label, 9);
}

TEST(PSCommand, ReportsTheListsThatCannotBeWritten)
{
    PSCommand command;
    EXPECT_EQ(writeFailures(command), (std::set<std::string>{"FAIL! _toJson Vector Array mModes\n",
                                                             "FAIL! _toJson Vector Array mValues\n"}));
}

TEST(PSCommand, IsCopiedOnlyFromACommandOfItsOwnClass)
{
    PSCommand source;
    source._id = "s";
    source.InsertMode(PSValues_e(5), 300);
    PSCommand target;
    EXPECT_EQ(target.copy(&source), 0);
    EXPECT_EQ(compactJson(target), compactJson(source));

    PSProgramCommand program;
    PSCommandBase base;
    EXPECT_EQ(target.copy(&program), -EINVAL);
    EXPECT_EQ(target.copy(&base), -EINVAL);
    EXPECT_EQ(target.copy(nullptr), -EINVAL);
    EXPECT_EQ(compactJson(target), compactJson(source));
}

TEST(PSCommandBase, IsCopiedFromEveryCommand)
{
    PSProgramCommand program;
    program.Set(ProgramCommand_WireSize, 150);
    PSCommandBase base;
    EXPECT_EQ(base.copy(&program), 0);
    EXPECT_EQ(compactJson(base), compactJson(program));
    PSCommand command;
    EXPECT_EQ(base.copy(&command), 0);
    EXPECT_EQ(compactJson(base), compactJson(command));
}

TEST(PSCommand, PrintsAsAProgramCommandOfTheSameDataDoes)
{
    PSProgramCommand program;
    PSCommand command;
    ASSERT_TRUE(command.FromJson(program.GetString()));
    EXPECT_EQ(command.GetString(), program.GetString());
}

} // namespace
} // namespace Telvane

#include <Telvane/PSMemorySlot.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace Telvane
{
namespace
{

const std::string kEmptyProgram = R"({"PROC":0,"WT":0,"WS":0,"GT":0})";
const std::string kProgram = R"({"PROC":1,"WT":2,"WS":3,"GT":4})";

std::string slotJson(const std::string& programs, const std::string& memory = "0")
{
    return R"({"mMemory":)" + memory + R"(,"mPrograms":)" + programs + "}";
}

TEST(PSMemorySlot, PackagesEightEmptyPrograms)
{
    EXPECT_EQ(defaultJson<PSMemorySlot>(), slotJson(jsonArray(8, kEmptyProgram)));
}

TEST(PSMemorySlotBase, PackagesNoProgram)
{
    EXPECT_EQ(defaultJson<PSMemorySlotBase>(), slotJson("[]"));
}

TEST(PSMemorySlot, TakesItsCountOfProgramsFromWhatItReads)
{
    PSMemorySlot slot;
    ASSERT_TRUE(slot.FromJson(slotJson(jsonArray(3, kProgram), "7")));
    EXPECT_EQ(compactJson(slot), slotJson(jsonArray(3, kProgram), "7"));

    slot.Initialize();
    EXPECT_EQ(compactJson(slot), slotJson(jsonArray(3, kEmptyProgram)));
}

TEST(PSMemorySlot, GivesTheLowEightBitsOfItsNumberAndPackagesAll)
{
    PSMemorySlot slot;
    ASSERT_TRUE(slot.FromJson(slotJson("[]", "300")));
    EXPECT_EQ(slot.GetMemory(), 44);
    EXPECT_EQ(compactJson(slot), slotJson("[]", "300"));
    ASSERT_TRUE(slot.FromJson(slotJson("[]", "-1")));
    EXPECT_EQ(slot.GetMemory(), 255);
}

TEST(PSMemorySlot, GivesBackTheNumberThatWasSet)
{
    PSMemorySlot slot;
    slot.SetMemory(200);
    EXPECT_EQ(slot.GetMemory(), 200);
    EXPECT_EQ(slot.mMemory, 200);
}

TEST(PSMemorySlot, LetsItsProgramsBeChangedInPlace)
{
    PSMemorySlot slot;
    std::vector<ProgramType>& programs = slot.GetPrograms();
    EXPECT_EQ(&programs, &slot.mPrograms);
    programs[7].WS = 5;
    programs.resize(9);
    EXPECT_EQ(slot.mPrograms[7].WS, 5);
    EXPECT_EQ(slot.mPrograms.size(), 9U);
}

TEST(PSMemorySlot, ReadsAHundredProgramsAndNoMore)
{
    PSMemorySlot slot;
    ASSERT_TRUE(slot.FromJson(slotJson(jsonArray(100, kProgram))));
    EXPECT_EQ(slot.mPrograms.size(), 100U);

    const ReadOutcome outcome = read(slot, slotJson(jsonArray(101, kEmptyProgram), "9"));
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _vector_fromJson mPrograms\n");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(compactJson(slot), slotJson(jsonArray(100, kProgram), "9"));
}

TEST(PSMemorySlot, ReportsANumberOfAnotherType)
{
    PSMemorySlot slot;
    const ReadOutcome outcome = read(slot, slotJson("[]", "true"));
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _int_fromJson mMemory\n");
    EXPECT_EQ(slot.mPrograms.size(), 8U);
}

TEST(PSMemorySlot, ReportsAListThatCannotBeWritten)
{
    PSMemorySlot slot;
    EXPECT_EQ(writeFailures(slot), (std::set<std::string>{"FAIL! _toJson Vector Array mPrograms\n"}));
}

TEST(PSMemorySlot, CopiesTheListWithItsLength)
{
    PSMemorySlot source;
    source.mPrograms.resize(2);
    source.mPrograms[1].PROC = 5;
    PSMemorySlot target;
    ASSERT_EQ(target.copy(&source), 0);
    EXPECT_EQ(compactJson(target), compactJson(source));
}

TEST(PSMemorySlot, IsNotCopiedFromItsBase)
{
    PSMemorySlotBase base;
    PSMemorySlot slot;
    EXPECT_EQ(slot.copy(&base), -EINVAL);
    EXPECT_EQ(slot.mPrograms.size(), 8U);
    EXPECT_EQ(base.copy(&slot), 0);
    EXPECT_EQ(base.mPrograms.size(), 8U);
}

} // namespace
} // namespace Telvane

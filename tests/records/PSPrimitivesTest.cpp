#include <Telvane/PSPrimitives.h>

#include "helpers/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace Telvane
{
namespace
{

TEST(PSPrimitives, PackageTheirKeysInOrder)
{
    EXPECT_EQ(defaultJson<ValueType>(), R"({"Value":0,"Status":false})");
    EXPECT_EQ(defaultJson<FlagType>(), R"({"Flag":false,"Status":false})");
    EXPECT_EQ(defaultJson<ValueLabelType>(), R"({"Label":0,"Value":0,"Status":false})");
    EXPECT_EQ(defaultJson<FlagLabelType>(), R"({"Label":0,"Flag":false,"Status":false})");
    EXPECT_EQ(defaultJson<ProgramType>(), R"({"PROC":0,"WT":0,"WS":0,"GT":0})");
    EXPECT_EQ(defaultJson<PSFunctionRequest>(), R"({"RequestID":0,"Value":0})");
}

TEST(ValueLabelType, PackagesTheBaseKeysLast)
{
    ValueLabelType value;
    value.Label = 3;
    value.Value = 120;
    value.Status = true;
    value._id = "a";
    value._sequence_tag = 0;
    EXPECT_EQ(compactJson(value), R"({"Label":3,"Value":120,"Status":true,"_id":"a","_sequence_tag":0})");
}

TEST(ValueLabelType, KeepsWhatItReadBeforeAMissingStatus)
{
    ValueLabelType value;
    value.Status = true;
    const ReadOutcome outcome = read(value, R"({"Label":3,"Value":120})");
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.errors, "FAIL! _bool_fromJson Status\n");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(value.Label, 3);
    EXPECT_EQ(value.Value, 120);
    EXPECT_TRUE(value.Status);
}

TEST(ValueLabelType, IsNotCopiedFromAValueWithoutALabel)
{
    ValueType source;
    source.Value = 5;
    ValueLabelType target;
    target.Label = 1;
    target.Value = 2;
    EXPECT_EQ(target.copy(&source), -EINVAL);
    EXPECT_EQ(compactJson(target), R"({"Label":1,"Value":2,"Status":false})");
}

TEST(ValueLabelType, CarriesLabelsOutsideEveryEnumeration)
{
    ValueLabelType value;
    ASSERT_TRUE(value.FromJson(R"({"Label":-7,"Value":99,"Status":false})"));
    EXPECT_EQ(value.Label, -7);
}

TEST(ProgramType, CarriesNegativeNumbers)
{
    ProgramType program;
    program.PROC = -1;
    program.WT = -2;
    program.WS = -3;
    program.GT = std::numeric_limits<int>::min();
    ProgramType other;
    ASSERT_TRUE(other.FromJson(program.GetString()));
    EXPECT_EQ(compactJson(other), R"({"PROC":-1,"WT":-2,"WS":-3,"GT":-2147483648})");
}

TEST(PSPrimitives, AreCopiedWithTheirBaseMembersAsElementsOfVectors)
{
    ProgramType program;
    program.GT = 4;
    program._id = "p";
    const std::vector<ProgramType> programs(3, program);
    ProgramType last = programs.back();
    EXPECT_EQ(compactJson(last), R"({"PROC":0,"WT":0,"WS":0,"GT":4,"_id":"p"})");
}

} // namespace
} // namespace Telvane

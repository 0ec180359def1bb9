#include "weld/ColumnMapping.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

const std::vector<std::string> kColumns = {"t", "current_dA", "gas-flow", "gas", "a*2"};

ColumnMapping mappingOf(std::string_view text)
{
    std::string error;
    const auto mapping = readColumnMapping(text, kColumns, error);
    EXPECT_TRUE(mapping.has_value()) << text << ": " << error;
    return mapping.value_or(ColumnMapping());
}

std::string errorOf(std::string_view text)
{
    std::string error;
    EXPECT_FALSE(readColumnMapping(text, kColumns, error).has_value()) << text;
    return error;
}

TEST(ColumnMapping, TakesAColumnAsItIs)
{
    const ColumnMapping mapping = mappingOf("current_dA");
    EXPECT_EQ(mapping.column, 1U);
    EXPECT_EQ(mapping.apply(5.0), 5.0);
}

TEST(ColumnMapping, ScalesAndShifts)
{
    EXPECT_EQ(mappingOf("current_dA*0.1").apply(50.0), 5.0);
    EXPECT_EQ(mappingOf("current_dA/4").apply(50.0), 12.5);
    EXPECT_EQ(mappingOf("current_dA*2+1").apply(3.0), 7.0);
    EXPECT_EQ(mappingOf("current_dA*2-1").apply(3.0), 5.0);
    EXPECT_EQ(mappingOf("current_dA-1").apply(3.0), 2.0);
    EXPECT_EQ(mappingOf(" current_dA * 2 + 1 ").apply(3.0), 7.0);
}

TEST(ColumnMapping, ScalesByNegativeAndSmallNumbers)
{
    EXPECT_EQ(mappingOf("current_dA*-2").apply(3.0), -6.0);
    EXPECT_EQ(mappingOf("current_dA*5e-1").apply(3.0), 1.5);
}

TEST(ColumnMapping, PrefersTheWholeNameOfAColumn)
{
    EXPECT_EQ(mappingOf("gas-flow").column, 2U);
    EXPECT_EQ(mappingOf("a*2").column, 4U);
    EXPECT_EQ(mappingOf("a*2*3").column, 4U);
    EXPECT_EQ(mappingOf("gas-flow*2-1").column, 2U);
}

TEST(ColumnMapping, CanBeAConstant)
{
    const ColumnMapping mapping = mappingOf("210.5");
    EXPECT_FALSE(mapping.column.has_value());
    EXPECT_EQ(mapping.apply(0.0), 210.5);
}

TEST(ColumnMapping, ListsTheColumnsIfThereIsNoSuchColumn)
{
    EXPECT_EQ(errorOf("amps*0.1"),
              "there is no column \"amps\"; the columns are t, current_dA, gas-flow, gas, a*2");
}

TEST(ColumnMapping, RefusesDivisionByZero)
{
    EXPECT_EQ(errorOf("gas/0"), "\"gas/0\" divides by zero");
}

TEST(ColumnMapping, RefusesAScaleThatIsNotANumber)
{
    EXPECT_NE(errorOf("gas*x").find("there is no column"), std::string::npos);
}

} // namespace
} // namespace TelvaneTool

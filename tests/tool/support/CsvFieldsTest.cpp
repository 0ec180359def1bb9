#include "common/support/CsvFields.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using testing::ElementsAre;

std::vector<std::string_view> fieldsOf(std::string_view line, char delimiter = ',')
{
    std::vector<std::string_view> fields;
    EXPECT_TRUE(splitFields(line, delimiter, fields));
    return fields;
}

TEST(CsvFields, AreSeparatedByTheDelimiter)
{
    EXPECT_THAT(fieldsOf("1,two,3"), ElementsAre("1", "two", "3"));
    EXPECT_THAT(fieldsOf("1,5;2,5", ';'), ElementsAre("1,5", "2,5"));
}

TEST(CsvFields, MayBeEmpty)
{
    EXPECT_THAT(fieldsOf(""), ElementsAre(""));
    EXPECT_THAT(fieldsOf(",,"), ElementsAre("", "", ""));
}

TEST(CsvFields, LoseTheBlanksAround)
{
    EXPECT_THAT(fieldsOf(" 1 ,\t2 2\t, "), ElementsAre("1", "2 2", ""));
}

TEST(CsvFields, MayBeQuotedAndThenHoldDelimiters)
{
    EXPECT_THAT(fieldsOf(R"("8/17/2022, morning", "x" ,7)"), ElementsAre("8/17/2022, morning", "x", "7"));
    EXPECT_THAT(fieldsOf(R"("","a")"), ElementsAre("", "a"));
}

TEST(CsvFields, KeepDoubledQuotesAsTheyStand)
{
    EXPECT_THAT(fieldsOf(R"("the ""B"" side",1)"), ElementsAre(R"(the ""B"" side)", "1"));
}

TEST(CsvFields, CannotBeReadWhenAQuoteIsNotClosed)
{
    std::vector<std::string_view> fields;
    EXPECT_FALSE(splitFields(R"(1,"two,3)", ',', fields));
}

TEST(CsvNumber, IsAWholeFieldInDecimal)
{
    double number = 0.0;
    EXPECT_TRUE(readDecimal("-12.5e1", number));
    EXPECT_EQ(number, -125.0);
    EXPECT_TRUE(readDecimal("+3", number));
    EXPECT_EQ(number, 3.0);
    EXPECT_TRUE(readDecimal(".5", number));
    EXPECT_EQ(number, 0.5);
}

TEST(CsvNumber, IsNothingElse)
{
    double number = 7.0;
    for (const char* text :
         {"", "+", "-", "+-1", "1 2", "1,5", "0x10", "12a", "nan", "inf", "1e999", "--1"}) {
        EXPECT_FALSE(readDecimal(text, number)) << text;
    }
}

TEST(ReadNumber, ReadsDecimalCommas)
{
    double number = 0.0;
    EXPECT_TRUE(readDecimal("-1,25", number, ','));
    EXPECT_EQ(number, -1.25);
    EXPECT_TRUE(readDecimal("7", number, ','));
    EXPECT_EQ(number, 7.0);
    EXPECT_FALSE(readDecimal("1.234,5", number, ','));
    EXPECT_FALSE(readDecimal("1.5", number, ','));
    EXPECT_FALSE(readDecimal("1,2,3", number, ','));
    EXPECT_FALSE(readDecimal("1,5", number));
}

} // namespace
} // namespace TelvaneTool

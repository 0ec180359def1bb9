#include "common/support/Table.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

Table animals()
{
    Table table({{"name"}, {"legs", true}, {"note"}});
    table.add({"dog", "4", ""});
    table.add({"centipede", "354", {"most \u00b1 2", "<red>"}});
    return table;
}

TEST(Table, AlignsItsColumns)
{
    EXPECT_EQ(animals().print(), "name       legs  note\n"
                                 "dog           4\n"
                                 "centipede   354  most \u00b1 2\n");
}

TEST(Table, PrintsNoHeadingWithoutTitles)
{
    Table table({{}, {"", true}});
    table.add({"a", "1"});
    table.add({"bc", "23"});
    EXPECT_EQ(table.print({1}), " a    1\n bc  23\n");
}

TEST(Table, CutsLinesAtTheirWidth)
{
    EXPECT_EQ(animals().print({0, 13}), "name       le\ndog\ncentipede   3\n");
}

TEST(Table, StylesCellsAndTheHeadingOnATerminalWithColours)
{
    const std::string text = animals().print({0, 30, "<inverse>"});
    EXPECT_EQ(text.substr(0, text.find('\n')), "<inverse>name       legs  note         \x1b[0m");
    EXPECT_NE(text.find("354  <red>most \u00b1 2\x1b[0m\n"), std::string::npos) << text;
}

TEST(Cut, DoesNotSplitCharacters)
{
    EXPECT_EQ(cut("a\u2581\u2582b", 2), "a\u2581");
    EXPECT_EQ(cut("ab", 5), "ab");
}

} // namespace
} // namespace TelvaneTool

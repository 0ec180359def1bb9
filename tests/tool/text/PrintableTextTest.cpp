// Text from strangers must not control the terminal, forge log lines or make JSON invalid.

#include "common/text/PrintableText.h"
#include "common/support/Json.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

TEST(PrintableText, KeepsText)
{
    for (const char* const text : {"", "plain", "\u00a0 \u00fc \u20ac \U0001F525", "\ud7ff \U0010FFFF"}) {
        EXPECT_EQ(printable(text, Lines::Remove), text);
    }
}

TEST(PrintableText, ReplacesControlCharacters)
{
    EXPECT_EQ(printable("a\x1b[2Jb\x7f\rc", Lines::Remove), "a?[2Jb??c");
    EXPECT_EQ(printable("csi \xC2\x9B"
                        "31m nel \xC2\x85",
                        Lines::Remove),
              "csi ?31m nel ?");
    EXPECT_EQ(printable(std::string_view("zero\0end", 8), Lines::Remove), "zero?end");
}

TEST(PrintableText, KeepsLinesOnlyWhereTheyAreWanted)
{
    EXPECT_EQ(printable("a\tb\nc\v", Lines::Keep), "a\tb\nc?");
    EXPECT_EQ(printable("a\tb\nc\v", Lines::Remove), "a?b?c?");
}

TEST(PrintableText, ReplacesInvalidUtf8)
{
    const std::string mark = "\uFFFD";
    EXPECT_EQ(printable("a\xFFz", Lines::Remove), "a" + mark + "z");
    EXPECT_EQ(printable("\x9B"
                        "31m",
                        Lines::Remove),
              mark + "31m");
    EXPECT_EQ(printable("\xC0\x9B", Lines::Remove), mark + mark) << "longer than necessary";
    EXPECT_EQ(printable("\xE0\x82\x9B", Lines::Remove), mark + mark + mark) << "longer than necessary";
    EXPECT_EQ(printable("\xED\xA0\x80", Lines::Remove), mark + mark + mark) << "a surrogate";
    EXPECT_EQ(printable("\xF4\x90\x80\x80", Lines::Remove), mark + mark + mark + mark) << "beyond U+10FFFF";
    EXPECT_EQ(printable("\xF0\x82\x82\x9B", Lines::Remove), mark + mark + mark + mark);
    EXPECT_EQ(printable("\xE2\x82", Lines::Remove), mark + mark) << "cut";
}

TEST(PrintableText, CutsLongQuotations)
{
    const std::string longText(100000, 'x');
    EXPECT_EQ(withShortQuotes("field \"" + longText + "\" is wrong"),
              "field \"" + std::string(200, 'x') + "...\" is wrong");
    EXPECT_EQ(withShortQuotes("\"" + std::string(200, 'y') + "\" \"b\""),
              "\"" + std::string(200, 'y') + "\" \"b\"");
    EXPECT_EQ(withShortQuotes("no quotation"), "no quotation");
    EXPECT_EQ(withShortQuotes("open \"end"), "open \"end");
    EXPECT_EQ(withShortQuotes(""), "");
}

TEST(PrintableText, DoesNotCutACharacterInTwo)
{
    std::string text = "\"" + std::string(199, 'x');
    for (int i = 0; i < 50; ++i) {
        text += "\u20ac";
    }
    EXPECT_EQ(withShortQuotes(text + "\""), "\"" + std::string(199, 'x') + "...\"");
}

TEST(PrintableText, LimitsMessagesWhoseQuotationsContainQuotes)
{
    const std::string message = "got \"a\"" + std::string(1 << 20, 'x') + "\"";
    EXPECT_LE(withShortQuotes(message).size(), 4003U);
}

TEST(PrintableText, MakesJsonValidWithoutLossOfControlCharacters)
{
    std::string json = "{\n\t\"a\": \"\x7f \xC2\x9B \u20ac\"}";
    EXPECT_EQ(makeJsonPrintable(json), 0U);
    EXPECT_EQ(json, "{\n\t\"a\": \"\\u007f \\u009b \u20ac\"}");
    std::string error;
    const JsonTree tree = parseJson(json, error);
    EXPECT_STREQ(cJSON_GetObjectItem(tree.get(), "a")->valuestring, "\x7f \xC2\x9B \u20ac");
}

TEST(PrintableText, CountsWhatItReplacesInJson)
{
    const JsonTree tree(cJSON_CreateString("a\xFF\xFE b\xC3"));
    std::uint64_t replaced = 0;
    EXPECT_EQ(printJson(tree.get(), false, &replaced), "\"a\uFFFD\uFFFD b\uFFFD\"");
    EXPECT_EQ(replaced, 3U);
    const JsonTree valid(cJSON_CreateString("a"));
    EXPECT_EQ(printJson(valid.get(), false, &replaced), "\"a\"");
    EXPECT_EQ(replaced, 0U);
}

} // namespace
} // namespace TelvaneTool

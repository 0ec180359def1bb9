#include "common/support/TextLines.h"

#include "helpers/TestFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::TemporaryDirectory;
using testing::ElementsAre;

std::vector<std::string> linesOf(const std::string& text)
{
    const TemporaryDirectory directory;
    TextLines lines;
    EXPECT_EQ(lines.open(directory.write("text", text)), 0);
    std::vector<std::string> all;
    std::string_view line;
    while (lines.next(line)) {
        all.emplace_back(line);
        EXPECT_EQ(lines.number(), all.size());
    }
    EXPECT_EQ(lines.error(), 0);
    return all;
}

TEST(TextLines, EndAtLineFeeds)
{
    EXPECT_THAT(linesOf("one\n\nthree\n"), ElementsAre("one", "", "three"));
}

TEST(TextLines, NeedNoLineFeedAtTheEnd)
{
    EXPECT_THAT(linesOf("one\ntwo"), ElementsAre("one", "two"));
}

TEST(TextLines, OfAnEmptyFileAreNone)
{
    EXPECT_TRUE(linesOf("").empty());
}

TEST(TextLines, LoseCarriageReturnsAndTheByteOrderMark)
{
    EXPECT_THAT(linesOf("\xEF\xBB\xBFone\r\ntwo\r\n"), ElementsAre("one", "two"));
}

TEST(TextLines, MayBeLongerThanAnyBuffer)
{
    const std::string longLine(700'000, 'x');
    EXPECT_THAT(linesOf("a\n" + longLine + "\nb\n"), ElementsAre("a", longLine, "b"));
}

TEST(TextLines, MayBeMoreThanAnyBufferHolds)
{
    std::string text;
    for (int i = 0; i < 100'000; ++i) {
        text += "line " + std::to_string(i) + "\n";
    }
    const auto all = linesOf(text);
    ASSERT_EQ(all.size(), 100'000U);
    EXPECT_EQ(all[99'999], "line 99999");
}

TEST(TextLines, TellWhyAFileCannotBeOpened)
{
    const TemporaryDirectory directory;
    TextLines lines;
    EXPECT_EQ(lines.open(directory.path("missing")), ENOENT);
}

TEST(TextLines, TellWhyReadingFailed)
{
    const TemporaryDirectory directory;
    TextLines lines;
    EXPECT_EQ(lines.open(directory.path(".")), 0);
    std::string_view line;
    EXPECT_FALSE(lines.next(line));
    EXPECT_EQ(lines.error(), EISDIR);
}

TEST(TextLines, EndWhereTheirWaiterWantsThemToAndHandNoPartOfALineOut)
{
    const TemporaryDirectory directory;
    const std::string longLine(300'000, 'x'); // takes two reads
    TextLines lines;
    int reads = 0;
    ASSERT_EQ(
        lines.open(directory.write("text", "one\n" + longLine + "\n"), [&reads](int) { return reads++ < 1; }),
        0);
    std::string_view line;
    EXPECT_TRUE(lines.next(line));
    EXPECT_EQ(line, "one");
    EXPECT_FALSE(lines.next(line));
    EXPECT_TRUE(lines.stopped());
    EXPECT_EQ(lines.error(), 0);
}

} // namespace
} // namespace TelvaneTool

#include "recording/PreTriggerBuffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace TelvaneTool
{
namespace
{

using testing::ElementsAre;

std::vector<std::string> linesOf(const PreTriggerBuffer& ring)
{
    std::vector<std::string> lines;
    for (const PreTriggerBuffer::Line& line : ring.lines()) {
        lines.push_back(line.text);
    }
    return lines;
}

TEST(PreTriggerBuffer, KeepsLinesWithinItsSpan)
{
    PreTriggerBuffer ring(10, 1000);
    ring.add("a", 0);
    ring.add("b", 1);
    ring.add("c", 10);
    EXPECT_THAT(linesOf(ring), ElementsAre("a", "b", "c"));
    ring.add("d", 11);
    EXPECT_THAT(linesOf(ring), ElementsAre("b", "c", "d"));
    EXPECT_FALSE(ring.truncated());
    ring.add("e", 100);
    EXPECT_THAT(linesOf(ring), ElementsAre("e"));
}

TEST(PreTriggerBuffer, DropsTheOldestAboveItsMaximumSize)
{
    PreTriggerBuffer ring(1000, 5);
    ring.add("aa", 0);
    ring.add("bb", 1);
    EXPECT_EQ(ring.bytes(), 4U);
    ring.add("cc", 2);
    EXPECT_THAT(linesOf(ring), ElementsAre("bb", "cc"));
    EXPECT_TRUE(ring.truncated());
    EXPECT_EQ(ring.bytes(), 4U);
}

TEST(PreTriggerBuffer, IsNotTruncatedAnyMoreWhenItsSpanFits)
{
    PreTriggerBuffer ring(10, 5);
    ring.add("aa", 0);
    ring.add("bb", 1);
    ring.add("cc", 2);
    EXPECT_TRUE(ring.truncated());
    ring.add("dd", 12);
    EXPECT_FALSE(ring.truncated());
}

TEST(PreTriggerBuffer, KeepsOneLineOfAnyLength)
{
    PreTriggerBuffer ring(1000, 5);
    ring.add("a long line", 0);
    EXPECT_THAT(linesOf(ring), ElementsAre("a long line"));
}

} // namespace
} // namespace TelvaneTool

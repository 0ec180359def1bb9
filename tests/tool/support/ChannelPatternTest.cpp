#include "common/support/ChannelPattern.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

TEST(ChannelName, HasLettersAndUnderscoresOnly)
{
    EXPECT_EQ(checkChannel("PS_Feedback"), "");
    for (const char* const name : {"", "Channel1", "a b", "PS*", "\u00e9"}) {
        EXPECT_NE(checkChannel(name), "") << name;
    }
}

TEST(ChannelPattern, MayContainWildcards)
{
    EXPECT_EQ(checkChannelPattern("PS*"), "");
    EXPECT_EQ(checkChannelPattern("*"), "");
    EXPECT_EQ(checkChannelPattern("LogData"), "");
    for (const char* const pattern : {"", "PS*1", "P-?"}) {
        EXPECT_NE(checkChannelPattern(pattern), "") << pattern;
    }
}

TEST(ChannelPattern, MatchesTheWholeName)
{
    EXPECT_TRUE(matchesPattern("PS*", "PSFeedback"));
    EXPECT_TRUE(matchesPattern("PS*", "PS"));
    EXPECT_FALSE(matchesPattern("PS*", "XPS"));
    EXPECT_TRUE(matchesPattern("*Data", "LogData"));
    EXPECT_FALSE(matchesPattern("*Data", "DataLog"));
    EXPECT_TRUE(matchesPattern("LogData", "LogData"));
    EXPECT_FALSE(matchesPattern("LogData", "LogDat"));
    EXPECT_FALSE(matchesPattern("LogDat", "LogData"));
    EXPECT_FALSE(matchesPattern("logdata", "LogData"));
}

TEST(ChannelPattern, GoesBackToTheLastStar)
{
    EXPECT_TRUE(matchesPattern("*ab*abc", "ababababc"));
    EXPECT_TRUE(matchesPattern("a*b?d*", "axxbxbcd"));
    EXPECT_FALSE(matchesPattern("a*b?d", "axxbxbcdx"));
    EXPECT_TRUE(matchesPattern("**", ""));
    EXPECT_TRUE(matchesPattern("", ""));
    EXPECT_FALSE(matchesPattern("", "a"));
    EXPECT_FALSE(matchesPattern("?", ""));
}

TEST(ChannelPattern, IsOneWithAStarOrAQuestionMark)
{
    EXPECT_TRUE(isPattern("PS*"));
    EXPECT_TRUE(isPattern("PS?"));
    EXPECT_FALSE(isPattern("PS"));
}

TEST(ChannelPattern, MatchesEverythingWhereThereIsNone)
{
    EXPECT_TRUE(matchesAnyPattern({}, "LogData"));
    EXPECT_TRUE(matchesAnyPattern({"PS*", "Log*"}, "LogData"));
    EXPECT_FALSE(matchesAnyPattern({"PS*", "Weld*"}, "LogData"));
}

} // namespace
} // namespace TelvaneTool

#include "common/support/HumanReadable.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace TelvaneTool
{
namespace
{

TEST(Number, IsTheWholeTextAndFinite)
{
    double number = 0.0;
    for (const char* text : {"-12.5", "+12.5", " 1.25e1", "0xc.8"}) {
        EXPECT_TRUE(readNumber(text, number)) << text;
        EXPECT_DOUBLE_EQ(std::abs(number), 12.5) << text;
    }
    for (const std::string_view text : {"", " ", "1 ", "1x", "inf", "nan", "1e999"}) {
        EXPECT_FALSE(readNumber(text, number)) << text;
    }
    EXPECT_FALSE(readNumber({"1\0", 2}, number));
}

TEST(TrimmedText, HasNoBlanksAtItsEnds)
{
    EXPECT_EQ(trimmed(" \ta b\r"), "a b");
    EXPECT_EQ(trimmed(" \ta b\r", " "), "\ta b\r");
    EXPECT_EQ(trimmed(" \t"), "");
    EXPECT_EQ(trimmed(""), "");
}

TEST(Duration, IsReadInSecondsUnlessAUnitIsGiven)
{
    for (const auto& [text, expected] : {std::pair<const char*, Nanoseconds>{"30", 30 * kSecond},
                                         {"1.5s", 1500 * kMillisecond},
                                         {"250ms", 250 * kMillisecond},
                                         {"100us", 100 * kMicrosecond},
                                         {"2m", 120 * kSecond},
                                         {"2min", 120 * kSecond},
                                         {"1h", 3600 * kSecond},
                                         {"0", 0}}) {
        Nanoseconds duration = -1;
        EXPECT_TRUE(readDuration(text, duration)) << text;
        EXPECT_EQ(duration, expected) << text;
    }
}

TEST(Duration, IsRefusedWhenItIsNone)
{
    Nanoseconds duration = 0;
    for (const char* text :
         {"", "s", ".", "-1", "+1", "1 s", "1d", "0x10", "nan", "inf", "1e3", "1.2.3", "1000000h"}) {
        EXPECT_FALSE(readDuration(text, duration)) << text;
    }
}

TEST(Size, IsReadInPowersOf1024)
{
    std::uint64_t bytes = 0;
    EXPECT_TRUE(readSize("4096", bytes));
    EXPECT_EQ(bytes, 4096U);
    EXPECT_TRUE(readSize("1.5k", bytes));
    EXPECT_EQ(bytes, 1536U);
    EXPECT_TRUE(readSize("2M", bytes));
    EXPECT_EQ(bytes, 2U * 1024 * 1024);
    EXPECT_TRUE(readSize("3G", bytes));
    EXPECT_EQ(bytes, 3ULL * 1024 * 1024 * 1024);
    EXPECT_FALSE(readSize("4 MB", bytes));
    EXPECT_FALSE(readSize("1.5", bytes));
    EXPECT_FALSE(readSize("99999999999G", bytes));
}

TEST(Amounts, ArePrintedInShort)
{
    EXPECT_EQ(printBytes(812), "812 B");
    EXPECT_EQ(printBytes(1234), "1.2 KB");
    EXPECT_EQ(printBytes(34'500'000), "34.5 MB");
    EXPECT_EQ(printBytes(2.5e9), "2.50 GB");
    EXPECT_EQ(printCount(7), "7");
    EXPECT_EQ(printCount(9.25), "9.2");
    EXPECT_EQ(printCount(1234), "1234");
    EXPECT_EQ(printCount(12'345), "12.3k");
    EXPECT_EQ(printCount(4'560'000), "4.56M");
    EXPECT_EQ(printSpan(1250 * kMillisecond), "1.250 s");
    EXPECT_EQ(printSpan(200 * kSecond), "3 min 20.0 s");
    EXPECT_EQ(printSpan(7500 * kSecond), "2 h 05 min");
}

TEST(PrintedDuration, HasTheUnitThatSuitsIt)
{
    EXPECT_EQ(printDuration(85'400), "85 us");
    EXPECT_EQ(printDuration(1'254'000), "1.25 ms");
    EXPECT_EQ(printDuration(76'500'000), "76.5 ms");
    EXPECT_EQ(printDuration(3'100'000'000), "3.1 s");
}

TEST(Moment, IsPrintedWithMicrosecondsInUtc)
{
    EXPECT_EQ(printMoment(1'704'164'645 * kSecond + 678'901 * kMicrosecond), "2024-01-02T03:04:05.678901Z");
}

TEST(Moment, HasAsManyDecimalsAsAsked)
{
    EXPECT_EQ(printMoment(1'704'164'645 * kSecond + 8'901'999, 3), "2024-01-02T03:04:05.008Z");
    EXPECT_EQ(printMoment(1'704'164'645 * kSecond + 8'901'999, 9), "2024-01-02T03:04:05.008901999Z");
}

TEST(Moment, CountsForwardBefore1970)
{
    EXPECT_EQ(printMoment(-1), "1969-12-31T23:59:59.999999Z");
    EXPECT_EQ(printMoment(-250 * kMillisecond), "1969-12-31T23:59:59.750000Z");
    EXPECT_EQ(printMoment(-kSecond), "1969-12-31T23:59:59.000000Z");
    EXPECT_EQ(printMoment(0), "1970-01-01T00:00:00.000000Z");
}

TEST(Moment, IsPrintedAtTheLimitsOfTime)
{
    if (sizeof(time_t) > 4) {
        EXPECT_EQ(printMoment(std::numeric_limits<Nanoseconds>::max()), "2262-04-11T23:47:16.854775Z");
        EXPECT_EQ(printMoment(std::numeric_limits<Nanoseconds>::min()), "1677-09-21T00:12:43.145224Z");
    }
}

} // namespace
} // namespace TelvaneTool

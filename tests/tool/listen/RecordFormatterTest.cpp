#include "listen/RecordFormatter.h"

#include <gtest/gtest.h>

#include <limits>

namespace TelvaneTool
{
namespace
{

const std::string kChannel = "PSFeedback";
const std::string kOther = "LogData";

std::string print(RecordFormatter& lines, const std::string& payload, Nanoseconds time = 0,
                  const std::string& channel = kChannel)
{
    return lines.print({channel, 17, payload, nullptr, 1'704'164'645'678'901'999 + time, time});
}

RecordFormatter formatted(const std::string& format)
{
    EXPECT_EQ(checkFormat(format), "");
    RecordFormatter::Settings settings;
    settings.format = format;
    return RecordFormatter(settings);
}

TEST(RecordFormatter, PrintsJsonWithTheUnchangedPayload)
{
    RecordFormatter lines({});
    EXPECT_EQ(print(lines, R"({"b":1.5,"a":null})"),
              R"({"time":"2024-01-02T03:04:05.678901Z","channel":"PSFeedback","sequence":17,)"
              R"("payload":{"b":1.5,"a":null}})"
              "\n");
}

TEST(RecordFormatter, AddsTheTimeSinceThePreviousLine)
{
    RecordFormatter::Settings settings;
    settings.delta = true;
    RecordFormatter lines(settings);
    EXPECT_NE(print(lines, "{}", kSecond).find(R"("delta":0.000000,)"), std::string::npos);
    EXPECT_NE(print(lines, "{}", kSecond + 20 * kMicrosecond).find(R"("delta":0.000020,)"),
              std::string::npos);
}

TEST(RecordFormatter, PrintsOnlyWhatAllFiltersAccept)
{
    RecordFormatter::Settings settings;
    EXPECT_EQ(settings.filters.emplace_back().read("amps>100"), "");
    EXPECT_EQ(settings.filters.emplace_back().read("volts<20"), "");
    RecordFormatter lines(settings);
    EXPECT_NE(print(lines, R"({"amps":101,"volts":19})"), "");
    EXPECT_EQ(print(lines, R"({"amps":101,"volts":20})"), "");
    EXPECT_EQ(print(lines, R"({"amps":100,"volts":19})"), "");
}

TEST(RecordFormatter, FollowsAFormat)
{
    RecordFormatter lines = formatted("%t|%u|%c|%n|%p|%l|%{a.b[1]}|%{log}|%{none}|%%\\t\\\\x");
    EXPECT_EQ(print(lines, R"({"a":{"b":[1,{"c":2}]},"log":"x \"y\""})"),
              "2024-01-02T03:04:05.678901Z|1704164645.678901|PSFeedback|17|"
              R"({"a":{"b":[1,{"c":2}]},"log":"x \"y\""}|39|{"c":2}|x "y"||%)"
              "\t\\x\n");
}

TEST(RecordFormatter, PrintsTheTimesSinceThePreviousRecordOnAnyAndOnTheSameChannel)
{
    RecordFormatter lines = formatted("%d %D");
    EXPECT_EQ(print(lines, "{}", 1 * kSecond), "0.000000 0.000000\n");
    EXPECT_EQ(print(lines, "{}", 3 * kSecond, kOther), "2.000000 0.000000\n");
    EXPECT_EQ(print(lines, "{}", 4 * kSecond), "1.000000 3.000000\n");
    EXPECT_EQ(print(lines, "{}", 6 * kSecond), "2.000000 2.000000\n");
}

TEST(RecordFormatter, QuotesCsvFieldsThatWouldBreakTheirRow)
{
    RecordFormatter::Settings settings;
    settings.csvFields = {"log"};
    RecordFormatter lines(settings);
    const std::string begin = "2024-01-02T03:04:05.678901Z,PSFeedback,17,";
    EXPECT_EQ(print(lines, R"({"log":"plain"})"), begin + "plain\n");
    EXPECT_EQ(print(lines, R"({"log":"a,b"})"), begin + "\"a,b\"\n");
    EXPECT_EQ(print(lines, R"({"log":"say \"x\""})"), begin + "\"say \"\"x\"\"\"\n");
    EXPECT_EQ(print(lines, R"({"log":"two\nlines"})"), begin + "\"two\nlines\"\n");
    EXPECT_EQ(print(lines, R"({"log":"two\rlines"})"), begin + "\"two\rlines\"\n");
}

TEST(RecordFormatter, PrintsMicrosecondsWithLeadingZeros)
{
    RecordFormatter lines = formatted("%u");
    EXPECT_EQ(print(lines, "{}", 321'140'001), "1704164646.000042\n");
}

TEST(RecordFormatter, ListsTheFieldsOfAFormat)
{
    EXPECT_EQ(fieldsOfFormat("%t %{a.b} %% %p %{c}"), (std::vector<std::string>{"a.b", "c"}));
}

TEST(RecordFormatter, RefusesInvalidFormats)
{
    for (const char* format : {"%", "%x", "100%", "%{a", "%{}"}) {
        EXPECT_NE(checkFormat(format), "") << format;
    }
    EXPECT_EQ(checkFormat("100%% \\"), "");
}

TEST(RecordFormatter, PrintsTheTimeSinceARecordFromBeforeTheRecording)
{
    RecordFormatter lines = formatted("%d");
    EXPECT_EQ(print(lines, "{}", -5 * kSecond), "0.000000\n");
    EXPECT_EQ(print(lines, "{}", -3 * kSecond), "2.000000\n");
}

TEST(RecordFormatter, PrintsTimesAtTheirLimits)
{
    constexpr Nanoseconds kMin = std::numeric_limits<Nanoseconds>::min();
    constexpr Nanoseconds kMax = std::numeric_limits<Nanoseconds>::max();
    RecordFormatter lines = formatted("%u %d %D");
    EXPECT_EQ(lines.print({kChannel, 1, "{}", nullptr, -kSecond / 4, kMin}), "-0.250000 0.000000 0.000000\n");
    EXPECT_EQ(lines.print({kChannel, 1, "{}", nullptr, kMin, kMax}),
              "-9223372036.854775 9223372036.854776 9223372036.854776\n");
    EXPECT_EQ(lines.print({kChannel, 1, "{}", nullptr, kMax, kMin}),
              "9223372036.854775 -9223372036.854776 -9223372036.854776\n");
}

} // namespace
} // namespace TelvaneTool

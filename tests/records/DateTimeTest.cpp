#include <Telvane/DateTime.h>

#include <Telvane/WeldRecords.h>

#include "helpers/JsonTestSupport.h"
#include "helpers/ProcessTestSupport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <stdexcept>

namespace Telvane
{
namespace
{

using Testing::compact;
using Testing::Diagnostics;
using Testing::diagnosticsOf;
using Testing::parse;

constexpr long kMillisecond = 1'000'000;

DateTime at(time_t seconds, long nanoseconds)
{
    timespec moment = {};
    moment.tv_sec = seconds;
    moment.tv_nsec = nanoseconds;
    return DateTime(&moment);
}

/// The process in another time zone, named the way POSIX writes it, so that no time-zone data is needed.
class TimeZone
{
public:
    explicit TimeZone(const char* name) : m_variable("TZ", name) { tzset(); }

private:
    Testing::ScopedEnvironment m_variable;
};

constexpr const char* kUtc = "UTC0";
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* kKolkata = "IST-5:30";

int fromIso(const std::string& text, DateTime& result)
{
    std::string copy = text;
    int code = 1;
    diagnosticsOf([&] { code = DateTime::FromISO8601String(copy, result); });
    return code;
}

TEST(DateTime, StartsAtTheEpoch)
{
    const DateTime moment;
    EXPECT_EQ(moment.time.tv_sec, 0);
    EXPECT_EQ(moment.time.tv_nsec, 0);
    EXPECT_EQ(moment._id, "");
    EXPECT_EQ(moment._sequence_tag, -1);
}

TEST(DateTime, TakesBothPartsOfATime)
{
    const DateTime moment = at(1'700'000'000, 123'456'789);
    EXPECT_EQ(moment.time.tv_sec, 1'700'000'000);
    EXPECT_EQ(moment.time.tv_nsec, 123'456'789);
}

TEST(DateTimeNow, ReadsTheRealTimeClock)
{
    timespec before = {};
    timespec after = {};
    clock_gettime(CLOCK_REALTIME, &before);
    const DateTime now = DateTime::Now();
    clock_gettime(CLOCK_REALTIME, &after);
    EXPECT_LE(before.tv_sec, now.time.tv_sec);
    EXPECT_LE(now.time.tv_sec, after.tv_sec);
    EXPECT_GE(now.time.tv_nsec, 0);
    EXPECT_LT(now.time.tv_nsec, 1000 * kMillisecond);
}

TEST(DateTimeCheckForLeapYear, FollowsTheGregorianCalendar)
{
    for (const int year : {2024, 2000, 2020, 2400, 1904, 0}) {
        EXPECT_TRUE(DateTime::CheckForLeapYear(year)) << year;
    }
    for (const int year : {2023, 1900, 2100, 2200, 2019, 1}) {
        EXPECT_FALSE(DateTime::CheckForLeapYear(year)) << year;
    }
}

TEST(DateTimeValidateTime, AcceptsTheYears2018To2099)
{
    EXPECT_TRUE(DateTime::ValidateTime("2018-01-01T00:00:00"));
    EXPECT_TRUE(DateTime::ValidateTime("2099-12-31T23:59:59"));
    EXPECT_FALSE(DateTime::ValidateTime("2017-12-31T10:00:00"));
    EXPECT_FALSE(DateTime::ValidateTime("2100-01-01T00:00:00"));
}

TEST(DateTimeValidateTime, KnowsTheLengthOfEachMonth)
{
    const int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (int month = 1; month <= 12; ++month) {
        char text[64];
        std::snprintf(text, sizeof text, "2023-%02d-%02dT12:00:00", month, lengths[month - 1]);
        EXPECT_TRUE(DateTime::ValidateTime(text)) << text;
        std::snprintf(text, sizeof text, "2023-%02d-%02dT12:00:00", month, lengths[month - 1] + 1);
        EXPECT_FALSE(DateTime::ValidateTime(text)) << text;
        std::snprintf(text, sizeof text, "2023-%02d-00T12:00:00", month);
        EXPECT_FALSE(DateTime::ValidateTime(text)) << text;
    }
}

TEST(DateTimeValidateTime, KnowsLeapDays)
{
    EXPECT_TRUE(DateTime::ValidateTime("2024-02-29T00:00:00"));
    EXPECT_FALSE(DateTime::ValidateTime("2024-02-30T00:00:00"));
    EXPECT_FALSE(DateTime::ValidateTime("2023-02-29T00:00:00"));
    EXPECT_FALSE(DateTime::ValidateTime("2024-04-31T00:00:00"));
}

TEST(DateTimeValidateTime, RefusesWhatIsNoDateAndTime)
{
    for (const char* const text :
         {"", "nonsense", "2024-02-29", "2024-02-29 00:00:00", "2024-13-01T00:00:00", "2024-00-01T00:00:00",
          "2024-01-01T24:00:00", "2024-01-01T00:60:00", "2024-01-01T00:00"}) {
        EXPECT_FALSE(DateTime::ValidateTime(text)) << text;
    }
}

TEST(DateTimeValidateTime, OverlooksWhatFollows)
{
    EXPECT_TRUE(DateTime::ValidateTime("2024-01-02T03:04:05.678Z"));
}

TEST(DateTimeToString, CountsMilliseconds)
{
    EXPECT_EQ(DateTime().ToString(), "/Date(0)/");
    EXPECT_EQ(at(1'700'000'000, 123'456'789).ToString(), "/Date(1700000000123)/");
    EXPECT_EQ(at(0, 999'999).ToString(), "/Date(0)/");
    EXPECT_EQ(at(2'147'483'647, 999'999'999).ToString(), "/Date(2147483647999)/");
}

TEST(DateTimeToString, CutsNegativePartsTowardZero)
{
    EXPECT_EQ(at(-5, 0).ToString(), "/Date(-5000)/");
    EXPECT_EQ(at(-1, 500 * kMillisecond).ToString(), "/Date(-500)/");
    EXPECT_EQ(at(0, -1'999'999).ToString(), "/Date(-1)/");
}

TEST(DateTimeToIso8601String, PrintsLocalTimeWithoutZone)
{
    DateTime moment = at(1'700'000'000, 123'456'789);
    {
        const TimeZone zone(kUtc);
        EXPECT_EQ(moment.ToISO8601String(), "2023-11-14T22:13:20.123");
    }
    {
        const TimeZone zone(kNewYork);
        EXPECT_EQ(moment.ToISO8601String(), "2023-11-14T17:13:20.123");
    }
    {
        const TimeZone zone(kKolkata);
        EXPECT_EQ(moment.ToISO8601String(), "2023-11-15T03:43:20.123");
    }
}

TEST(DateTimeToIso8601String, FollowsSummerTime)
{
    const TimeZone zone(kNewYork);
    EXPECT_EQ(at(1'719'835'200, 0).ToISO8601String(), "2024-07-01T08:00:00.000");
}

TEST(DateTimeToIso8601String, PadsEveryPart)
{
    const TimeZone zone(kUtc);
    EXPECT_EQ(DateTime().ToISO8601String(), "1970-01-01T00:00:00.000");
    EXPECT_EQ(at(86'400 + 3'661, 7 * kMillisecond).ToISO8601String(), "1970-01-02T01:01:01.007");
}

TEST(DateTimeToIso8601String, PrintsMillisecondsModulo65536)
{
    const TimeZone zone(kUtc);
    EXPECT_EQ(at(0, -kMillisecond).ToISO8601String(), "1970-01-01T00:00:00.65535");
    EXPECT_EQ(at(0, 1234 * kMillisecond).ToISO8601String(), "1970-01-01T00:00:00.1234");
}

TEST(DateTimeFromString, ReadsMilliseconds)
{
    DateTime moment;
    EXPECT_EQ(DateTime::FromString("/Date(1700000000123)/", moment), 0);
    EXPECT_EQ(moment.time.tv_sec, 1'700'000'000);
    EXPECT_EQ(moment.time.tv_nsec, 123 * kMillisecond);
}

TEST(DateTimeFromString, IgnoresASign)
{
    DateTime moment;
    EXPECT_EQ(DateTime::FromString("/Date(-5000)/", moment), 0);
    EXPECT_EQ(moment.time.tv_sec, 5);
    EXPECT_EQ(moment.time.tv_nsec, 0);
}

TEST(DateTimeFromString, ReadsTheFirstDigitsInAnyText)
{
    DateTime moment;
    EXPECT_EQ(DateTime::FromString("at 1500 or 9999", moment), 0);
    EXPECT_EQ(moment.time.tv_sec, 1);
    EXPECT_EQ(moment.time.tv_nsec, 500 * kMillisecond);
    EXPECT_EQ(DateTime::FromString("0002", moment), 0);
    EXPECT_EQ(moment.time.tv_sec, 0);
    EXPECT_EQ(moment.time.tv_nsec, 2 * kMillisecond);
}

TEST(DateTimeFromString, ResetsTheBaseMembers)
{
    DateTime moment;
    moment._id = "old";
    moment._sequence_tag = 5;
    EXPECT_EQ(DateTime::FromString("7", moment), 0);
    EXPECT_EQ(moment._id, "");
    EXPECT_EQ(moment._sequence_tag, -1);
}

TEST(DateTimeFromString, RaisesOutOfRangeWithoutDigitsAndBeyond64Bits)
{
    DateTime moment = at(3, 4);
    moment._id = "old";
    for (const char* const text : {"", "/Date()/", "none", "/Date(9223372036854775808)/"}) {
        EXPECT_THROW(DateTime::FromString(text, moment), std::out_of_range) << text;
    }
    EXPECT_EQ(moment.time.tv_sec, 3);
    EXPECT_EQ(moment.time.tv_nsec, 4);
    EXPECT_EQ(moment._id, "old");
}

TEST(DateTimeFromIso8601String, ReadsLocalTime)
{
    DateTime moment;
    {
        const TimeZone zone(kUtc);
        EXPECT_EQ(fromIso("2024-01-02T03:04:05.678Z", moment), 0);
        EXPECT_EQ(moment.time.tv_sec, 1'704'164'645);
        EXPECT_EQ(moment.time.tv_nsec, 678 * kMillisecond);
    }
    {
        const TimeZone zone(kKolkata);
        EXPECT_EQ(fromIso("2024-01-02T03:04:05.678Z", moment), 0);
        EXPECT_EQ(moment.time.tv_sec, 1'704'164'645 - 19'800);
    }
}

TEST(DateTimeFromIso8601String, ReadsEveryTimeAsStandardTime)
{
    const TimeZone zone(kNewYork);
    DateTime moment;
    EXPECT_EQ(fromIso("2024-07-01T12:00:00", moment), 0);
    EXPECT_EQ(moment.time.tv_sec, 1'719'835'200 + 5 * 3600);
}

TEST(DateTimeFromIso8601String, TakesTheFractionAsACountOfMilliseconds)
{
    const TimeZone zone(kUtc);
    const std::vector<std::pair<std::string, long>> fractions = {
        {"", 0},      {".5Z", 5},       {".123Z", 123},      {".Z", 0},   {".", 0},
        {".123", 12}, {".1234Z", 1234}, {".678+01:00", 678}, {".-2Z", -2}};
    for (const auto& [fraction, milliseconds] : fractions) {
        DateTime moment = at(0, 99);
        EXPECT_EQ(fromIso("2024-01-02T03:04:05" + fraction, moment), 0) << fraction;
        EXPECT_EQ(moment.time.tv_sec, 1'704'164'645) << fraction;
        EXPECT_EQ(moment.time.tv_nsec, milliseconds * kMillisecond) << fraction;
    }
}

TEST(DateTimeFromIso8601String, MultipliesTheFractionIn32Bits)
{
    const TimeZone zone(kUtc);
    DateTime moment;
    EXPECT_EQ(fromIso("2024-01-02T03:04:05.5000Z", moment), 0);
    EXPECT_EQ(moment.time.tv_nsec, 705'032'704);
}

TEST(DateTimeFromIso8601String, PrintsTheTextThatItReads)
{
    const TimeZone zone(kUtc);
    DateTime moment;
    std::string text = "2024-01-02T03:04:05.678Z";
    const Diagnostics told = diagnosticsOf([&] { DateTime::FromISO8601String(text, moment); });
    EXPECT_EQ(told.output, "---- timestring: 2024-01-02T03:04:05\n");
    EXPECT_EQ(told.error, "");
}

TEST(DateTimeFromIso8601String, ReportsATextThatCannotBeRead)
{
    DateTime moment = at(3, 4);
    std::string text = "yesterday.5Z";
    const Diagnostics told = diagnosticsOf([&] { EXPECT_EQ(DateTime::FromISO8601String(text, moment), -1); });
    EXPECT_EQ(told.output, "---- timestring: yesterday\n---- strptime Failed to convert time: \n");
    EXPECT_EQ(told.error, "");
    EXPECT_EQ(moment.time.tv_sec, 3);
    EXPECT_EQ(moment.time.tv_nsec, 4);
}

TEST(DateTimeFromIso8601String, ReturnsATimeBeforeTheEpochInsteadOfSettingIt)
{
    const TimeZone zone(kUtc);
    DateTime moment = at(3, 4);
    EXPECT_EQ(fromIso("1969-12-31T00:00:00.500Z", moment), -86'400);
    EXPECT_EQ(moment.time.tv_sec, 3);
    EXPECT_EQ(moment.time.tv_nsec, 4);
}

TEST(DateTimeFromIso8601String, RaisesInvalidArgumentForAFractionThatIsNoNumber)
{
    const TimeZone zone(kUtc);
    DateTime moment = at(3, 4);
    EXPECT_THROW(fromIso("2024-01-02T03:04:05.xyZ", moment), std::invalid_argument);
}

TEST(DateTimeJson, IsAStringWithoutBaseKeys)
{
    DateTime moment = at(1'700'000'000, 123'456'789);
    moment._id = "abc";
    moment._sequence_tag = 5;
    EXPECT_EQ(moment.GetString(), "\"/Date(1700000000123)/\"");

    WeldTraceData sample;
    sample.timestamp = moment;
    cJSON* packaged = nullptr;
    ASSERT_EQ(sample.Package(&packaged), 0);
    const Testing::Tree owned(packaged);
    EXPECT_EQ(compact(cJSON_GetObjectItem(packaged, "timestamp")), "\"/Date(1700000000123)/\"");
}

TEST(DateTimeJson, ReadsBackWholeMilliseconds)
{
    DateTime read;
    EXPECT_TRUE(read.FromJson(at(1'700'000'000, 123'456'789).GetString()));
    EXPECT_EQ(read.time.tv_sec, 1'700'000'000);
    EXPECT_EQ(read.time.tv_nsec, 123'000'000);
}

TEST(DateTimeJson, KeepsItsBaseMembersWhenRead)
{
    DateTime read;
    read._id = "mine";
    read._sequence_tag = 5;
    EXPECT_TRUE(read.FromJson("\"/Date(1000)/\""));
    EXPECT_EQ(read._id, "mine");
    EXPECT_EQ(read._sequence_tag, 5);
}

TEST(DateTimeJson, RefusesWhatIsNoString)
{
    DateTime moment = at(3, 4);
    const Diagnostics told = diagnosticsOf([&] {
        EXPECT_FALSE(moment._unpackageData(nullptr));
        for (const char* const value : {"5", "{}", "[]", "null", "true"}) {
            EXPECT_FALSE(moment._unpackageData(parse(value).get())) << value;
        }
    });
    EXPECT_EQ(moment.time.tv_sec, 3);
    EXPECT_EQ(moment.time.tv_nsec, 4);
    EXPECT_EQ(told.output + told.error, "");
}

TEST(DateTimeJson, LetsOutOfRangePassThroughReading)
{
    DateTime moment = at(3, 4);
    EXPECT_THROW(moment.FromJson("\"/Date()/\""), std::out_of_range);
    WeldTraceData sample;
    EXPECT_THROW(sample.FromJson(R"({"sequence": 1, "timestamp": "none"})"), std::out_of_range);
    TelvaneDataTypeBase* output = nullptr;
    EXPECT_THROW(sample.Unpackage(parse(R"({"sequence": 1, "timestamp": "none"})").get(), &output),
                 std::out_of_range);
    EXPECT_EQ(moment.time.tv_sec, 3);
}

TEST(DateTimeJson, FailsARecordsReadThroughItsFieldsLine)
{
    WeldTraceData sample;
    const Diagnostics told =
        diagnosticsOf([&] { EXPECT_FALSE(sample.FromJson(R"({"sequence": 1, "timestamp": 1000})")); });
    EXPECT_EQ(told.error, "FAIL! _object_fromJson timestamp\n");
    EXPECT_EQ(sample.sequence, 1);
}

TEST(DateTimeCopy, TakesEveryMember)
{
    DateTime from = at(3, 4);
    from._id = "abc";
    from._sequence_tag = 5;
    DateTime to;
    EXPECT_EQ(to.copy(&from), 0);
    EXPECT_EQ(to.time.tv_sec, 3);
    EXPECT_EQ(to.time.tv_nsec, 4);
    EXPECT_EQ(to._id, "abc");
    EXPECT_EQ(to._sequence_tag, 5);
}

TEST(DateTimeCopy, RefusesNullAndOtherClasses)
{
    DateTime moment = at(3, 4);
    LogData other;
    other._id = "other";
    EXPECT_EQ(moment.copy(nullptr), -EINVAL);
    EXPECT_EQ(moment.copy(&other), -EINVAL);
    EXPECT_EQ(moment.time.tv_sec, 3);
    EXPECT_EQ(moment._id, "");
}

TEST(DateTimeBuildNewDataType, GivesTheEpoch)
{
    const DateTime moment = at(3, 4);
    const std::unique_ptr<TelvaneDataTypeBase> built(moment.BuildNewDataType());
    const auto* const epoch = dynamic_cast<DateTime*>(built.get());
    ASSERT_NE(epoch, nullptr);
    EXPECT_EQ(epoch->time.tv_sec, 0);
    EXPECT_EQ(epoch->time.tv_nsec, 0);
}

} // namespace
} // namespace Telvane

// What becomes of moments that a time_t of 32 bits cannot hold: those after 2038-01-19T03:14:07Z and those
// before 1901-12-13T20:45:52Z. Every test runs on both kinds of machine and states what each of them does.

#include <Telvane/DateTime.h>

#include <cjson/cJSON.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <string>

namespace Telvane
{
namespace
{

constexpr bool kNarrow = sizeof(std::time_t) < sizeof(std::int64_t);
constexpr std::int64_t kLastNarrowSecond = std::numeric_limits<std::int32_t>::max();

/// What the platform's time_t keeps of a count of seconds: all of it, or its lowest 32 bits.
std::int64_t kept(std::int64_t seconds)
{
    return kNarrow ? static_cast<std::int32_t>(static_cast<std::uint32_t>(seconds)) : seconds;
}

DateTime at(std::time_t seconds, long milliseconds)
{
    timespec moment = {};
    moment.tv_sec = seconds;
    moment.tv_nsec = milliseconds * 1'000'000;
    return DateTime(&moment);
}

std::string textOf(std::int64_t seconds, int milliseconds)
{
    return "/Date(" + std::to_string(seconds * 1000 + milliseconds) + ")/";
}

/// Local time is universal time while one of these stands, named so that no time-zone data is needed.
class DateTimeRange : public ::testing::Test
{
protected:
    DateTimeRange()
    {
        if (const char* const zone = std::getenv("TZ")) {
            m_before = zone;
        }
        setenv("TZ", "UTC0", 1);
        tzset();
    }
    ~DateTimeRange() override
    {
        if (m_before) {
            setenv("TZ", m_before->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

private:
    std::optional<std::string> m_before;
};

TEST_F(DateTimeRange, HoldsTheLastSecondOf32BitsOnEveryMachine)
{
    DateTime moment;
    ASSERT_EQ(DateTime::FromString("/Date(2147483647999)/", moment), 0);
    EXPECT_EQ(moment.time.tv_sec, kLastNarrowSecond);
    EXPECT_EQ(moment.time.tv_nsec, 999'000'000);
    EXPECT_EQ(moment.ToString(), "/Date(2147483647999)/");
    EXPECT_EQ(moment.ToISO8601String(), "2038-01-19T03:14:07.999");
}

TEST_F(DateTimeRange, KeepsTheLowest32BitsOfLaterSecondsInANarrowTime)
{
    for (const std::int64_t seconds :
         {kLastNarrowSecond + 1, std::int64_t{4'102'444'800}, std::int64_t{UINT32_MAX},
          std::int64_t{UINT32_MAX} + 1, std::int64_t{253'402'300'799}}) {
        DateTime moment;
        ASSERT_EQ(DateTime::FromString(textOf(seconds, 250), moment), 0) << seconds;
        EXPECT_EQ(moment.time.tv_sec, kept(seconds));
        EXPECT_EQ(moment.time.tv_nsec, 250'000'000);
        EXPECT_EQ(moment.ToString(), textOf(kept(seconds), 250));
    }
}

TEST_F(DateTimeRange, TurnsTheSecondAfterTheLastInto1901InANarrowTime)
{
    DateTime moment;
    ASSERT_EQ(DateTime::FromString("/Date(2147483648000)/", moment), 0);
    EXPECT_EQ(moment.ToString(), kNarrow ? "/Date(-2147483648000)/" : "/Date(2147483648000)/");
    EXPECT_EQ(moment.ToISO8601String(), kNarrow ? "1901-12-13T20:45:52.000" : "2038-01-19T03:14:08.000");
}

TEST_F(DateTimeRange, TakesMillisecondsUpTo64Bits)
{
    DateTime moment;
    ASSERT_EQ(DateTime::FromString("9223372036854775807", moment), 0);
    EXPECT_EQ(moment.time.tv_sec, kept(9'223'372'036'854'775));
    EXPECT_EQ(moment.time.tv_nsec, 807'000'000);
}

TEST_F(DateTimeRange, PrintsBothEndsOf32BitsToTheMillisecond)
{
    EXPECT_EQ(at(INT32_MAX, 999).ToString(), "/Date(2147483647999)/");
    EXPECT_EQ(at(INT32_MIN, 1).ToString(), "/Date(-2147483647999)/");
    EXPECT_EQ(at(INT32_MIN, 0).ToISO8601String(), "1901-12-13T20:45:52.000");
}

TEST_F(DateTimeRange, RefusesIsoTextsThatANarrowTimeCannotHold)
{
    std::string last = "2038-01-19T03:14:07.5Z";
    DateTime moment;
    ASSERT_EQ(DateTime::FromISO8601String(last, moment), 0);
    EXPECT_EQ(moment.time.tv_sec, kLastNarrowSecond);

    for (std::string text : {"2038-01-19T03:14:08.6Z", "2099-12-31T23:59:59.6Z", "9999-12-31T23:59:59.6Z"}) {
        DateTime later = at(7, 8);
        EXPECT_EQ(DateTime::FromISO8601String(text, later), kNarrow ? -1 : 0) << text;
        if (kNarrow) {
            EXPECT_EQ(later.ToString(), "/Date(7008)/") << text;
        } else {
            EXPECT_EQ(later.ToISO8601String(), text.substr(0, 20) + "006");
        }
    }
}

TEST_F(DateTimeRange, ReturnsANegativeResultForEveryIsoTextBeforeTheEpoch)
{
    for (std::string text :
         {"1969-12-31T23:59:58", "1901-12-13T20:45:52", "1901-12-13T20:45:51", "0001-01-01T00:00:00"}) {
        DateTime moment = at(7, 8);
        EXPECT_LT(DateTime::FromISO8601String(text, moment), 0) << text;
        EXPECT_EQ(moment.ToString(), "/Date(7008)/") << text;
    }
}

TEST_F(DateTimeRange, CallsATextValidThatANarrowTimeCannotHold)
{
    EXPECT_TRUE(DateTime::ValidateTime("2038-01-19T03:14:08"));
    EXPECT_TRUE(DateTime::ValidateTime("2099-12-31T23:59:59"));
}

TEST_F(DateTimeRange, ReadsAndPackagesInARecordAsItDoesOnItsOwn)
{
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> node(cJSON_CreateString("/Date(4102444800001)/"),
                                                               &cJSON_Delete);
    DateTime moment;
    ASSERT_TRUE(moment._unpackageData(node.get()));
    EXPECT_EQ(moment.time.tv_sec, kept(4'102'444'800));
    ASSERT_TRUE(moment._packageData(node.get()));
    EXPECT_STREQ(node->valuestring, kNarrow ? "/Date(-192522495999)/" : "/Date(4102444800001)/");
}

} // namespace
} // namespace Telvane

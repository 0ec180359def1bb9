#include "common/support/TimestampParser.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace TelvaneTool
{
namespace
{

/// A zone with summer time, one hour ahead of the other one in winter.
class ClockTimeTest : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
    void TearDown() override
    {
        unsetenv("TZ");
        tzset();
    }

    Nanoseconds read(std::string_view date, std::string_view time)
    {
        Nanoseconds moment = -1;
        EXPECT_TRUE(m_clock.read(date, time, moment)) << date << " " << time;
        return moment;
    }

    TimestampParser m_clock;
};

constexpr Nanoseconds kNoonUtc = 1660737600 * kSecond; // 2022-08-17T12:00:00Z

TEST_F(ClockTimeTest, ReadsTheDateByItsSeparator)
{
    EXPECT_EQ(read("8/17/2022", "14:00:00"), kNoonUtc);
    EXPECT_EQ(read("17.8.2022", "14:00:00"), kNoonUtc);
    EXPECT_EQ(read("2022-08-17", "14:00:00"), kNoonUtc);
}

TEST_F(ClockTimeTest, ReadsFractionsOfAnyLength)
{
    EXPECT_EQ(read("8/17/2022", "14:00:01.295"), kNoonUtc + kSecond + 295 * kMillisecond);
    EXPECT_EQ(read("8/17/2022", "14:00:01.5"), kNoonUtc + kSecond + 500 * kMillisecond);
    EXPECT_EQ(read("8/17/2022", "14:00:01.0000000019"), kNoonUtc + kSecond + 1);
}

TEST_F(ClockTimeTest, ReadsTimesWithoutSeconds)
{
    EXPECT_EQ(read("8/17/2022", "14:01"), kNoonUtc + 60 * kSecond);
}

TEST_F(ClockTimeTest, HeedsAZoneThatIsGiven)
{
    EXPECT_EQ(read("2022-08-17", "12:00:00Z"), kNoonUtc);
    EXPECT_EQ(read("2022-08-17", "13:30:00.5+01:30"), kNoonUtc + 500 * kMillisecond);
    EXPECT_EQ(read("2022-08-17", "07:00:00-0500"), kNoonUtc);
}

TEST_F(ClockTimeTest, IsNotConfusedByAZoneInBetween)
{
    EXPECT_EQ(read("2022-08-17", "14:00:00"), kNoonUtc);
    EXPECT_EQ(read("2022-08-17", "14:00:00Z"), kNoonUtc + 7200 * kSecond);
    EXPECT_EQ(read("2022-08-17", "14:00:00"), kNoonUtc);
}

TEST_F(ClockTimeTest, CountsDaysAsTheCalendarDoes)
{
    constexpr time_t kDay = 86400;
    for (time_t day = 0; day * kDay < 2145916800; ++day) { // up to 2038, where 32 bits end
        const time_t seconds = day * kDay;
        tm parts = {};
        ::gmtime_r(&seconds, &parts);
        char date[16] = {};
        std::strftime(date, sizeof date, "%Y-%m-%d", &parts);
        ASSERT_EQ(read(date, "00:00:00Z"), seconds * kSecond);
    }
    EXPECT_EQ(read("2064-02-29", "00:00:00Z"), 2971468800 * kSecond);
    EXPECT_EQ(read("2095-12-31", "00:00:00Z"), 3976128000 * kSecond);
}

TEST_F(ClockTimeTest, FollowsSummerTime)
{
    EXPECT_EQ(read("2022-03-27", "03:00:00") - read("2022-03-27", "01:59:59"), kSecond);
    EXPECT_EQ(read("2022-01-17", "13:00:00"), 1642420800 * kSecond);
}

TEST_F(ClockTimeTest, ReadsDateAndTimeOfOneField)
{
    Nanoseconds moment = 0;
    EXPECT_TRUE(m_clock.read("2022-08-17T14:00:00.25", moment));
    EXPECT_EQ(moment, kNoonUtc + 250 * kMillisecond);
    EXPECT_TRUE(m_clock.read("2022-08-17 12:00:00Z", moment));
    EXPECT_EQ(moment, kNoonUtc);
}

TEST_F(ClockTimeTest, RefusesWhatIsNoDate)
{
    Nanoseconds moment = 0;
    for (const char* date : {"17/8/2022", "2/30/2022", "8-17-2022x", "2022-8", "8/17.2022", "", "0/1/2022",
                             "2023-02-29", "4/31/2022"}) {
        EXPECT_FALSE(m_clock.read(date, "14:00:00", moment)) << date;
    }
}

TEST_F(ClockTimeTest, RefusesYearsWhoseNanosecondsLeaveNoRoomToCalculate)
{
    Nanoseconds moment = 0;
    EXPECT_TRUE(m_clock.read("2095-12-31", "23:59:60Z", moment));
    // The clock of the place is the C library's, which ends in 2038 where time_t has 32 bits.
    EXPECT_EQ(m_clock.read("2095-12-31", "23:59:60", moment), sizeof(time_t) > 4);
    EXPECT_FALSE(m_clock.read("2096-01-01", "00:00:00", moment));
    EXPECT_FALSE(m_clock.read("4044-08-17", "00:00:00Z", moment));
}

TEST_F(ClockTimeTest, RefusesWhatIsNoTime)
{
    Nanoseconds moment = 0;
    for (const char* time :
         {"24:00:00", "12:60:00", "12", "12:00:00.", "12:00:00+1", "x", "", "12:00:00 pm"}) {
        EXPECT_FALSE(m_clock.read("8/17/2022", time, moment)) << time;
    }
}

TEST(ClockTimeOfDay, CountsFromMidnight)
{
    Nanoseconds time = 0;
    EXPECT_TRUE(TimestampParser::readTimeOfDay("1:02:03.5", time));
    EXPECT_EQ(time, 3723 * kSecond + 500 * kMillisecond);
    EXPECT_FALSE(TimestampParser::readTimeOfDay("1.5", time));
}

} // namespace
} // namespace TelvaneTool

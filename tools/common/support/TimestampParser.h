#pragma once

#include "common/support/Clock.h"

#include <string_view>

namespace TelvaneTool
{

/// Parses the dates and times in recordings. Times without a zone are local.
class TimestampParser
{
public:
    /// Parses a date and a time.
    /// \param date "8/17/2022" (month first), "17.8.2022" (day first) or "2022-08-17"
    /// \param time "7:50:26.295", fraction and zone ("Z" or "+02:00") are optional
    /// \param[out] moment since the Unix epoch
    bool read(std::string_view date, std::string_view time, Nanoseconds& moment);

    /// Parses a date and a time that are separated by "T" or a blank.
    bool read(std::string_view text, Nanoseconds& moment);

    /// Parses a time of day.
    /// \param[out] sinceMidnight may exceed a day: hours are not limited to 23
    static bool readTimeOfDay(std::string_view time, Nanoseconds& sinceMidnight);

private:
    struct Date
    {
        int year = 0;
        int month = 0;
        int day = 0;
        bool operator==(const Date& other) const
        {
            return year == other.year && month == other.month && day == other.day;
        }
    };
    static bool readDate(std::string_view text, Date& date);

    // Converting a local time takes longer than parsing the rest of a row, so the result for the last hour is kept.
    Date m_date;
    int m_hour = -1;
    Nanoseconds m_hourBegin = 0;
};

} // namespace TelvaneTool

#pragma once

#include "common/support/Clock.h"

#include <string_view>

namespace TelvaneTool
{

/// Reads the dates and times of day that recordings carry. Times without a zone are local.
class TimestampParser
{
public:
    /// Reads a moment.
    /// \param date "8/17/2022" (month first), "17.8.2022" (day first) or "2022-08-17"
    /// \param time "7:50:26.295", with or without a fraction, with or without "Z" or "+02:00" behind it
    /// \param[out] moment since the Unix epoch
    bool read(std::string_view date, std::string_view time, Nanoseconds& moment);

    /// Reads a moment whose date and time are separated by "T" or a blank.
    bool read(std::string_view text, Nanoseconds& moment);

    /// Reads a time of day alone.
    /// \param[out] sinceMidnight hours are not limited to 23
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

    // Asking the C library for a local time takes longer than all else in a row, and rows of one hour share
    // the answer.
    Date m_date;
    int m_hour = -1;
    Nanoseconds m_hourBegin = 0;
};

} // namespace TelvaneTool

/// \file
/// The time-stamp record.
#pragma once

#include <Telvane/RecordTable.h>

#include <ctime>
#include <string>

namespace Telvane
{

/// A point in time as seconds and nanoseconds since the Unix epoch.
///
/// Unlike the other records it stands in JSON as a string, "/Date(" milliseconds ")/", and carries neither
/// "_id" nor "_sequence_tag" there. The ISO 8601 forms are in local time; see ISO 8601-1 for the notation.
///
/// A `time_t` of 32 bits ends at 2038-01-19T03:14:07Z, while the text on the bus goes on: what each operation
/// does with a later moment is told with it.
class TELVANE_EXPORT DateTime : public TelvaneDataTypeBase
{
public:
    timespec time = {}; ///< seconds (`time_t`, 32 bits wide on some targets) and nanoseconds

    /// The epoch.
    DateTime() = default;
    /// \param moment copied; not kept
    explicit DateTime(timespec* moment);

    /// \return the system's real-time clock (`CLOCK_REALTIME`); the epoch once `time_t` cannot hold it
    static DateTime Now();

    /// \return true when \p year is a leap year of the Gregorian calendar
    static bool CheckForLeapYear(int year);

    /// \return true when \p text begins with a valid date and time, year-month-dayThours:minutes:seconds,
    ///         of the years 2018 to 2099
    static bool ValidateTime(const std::string& text);

    /// \return "/Date(" milliseconds since the epoch ")/"
    std::string ToString();

    /// \return year-month-dayThours:minutes:seconds.milliseconds in local time, without a zone
    std::string ToISO8601String();

    /// Reads the first run of decimal digits in \p text as milliseconds; all else, a minus sign included, is
    /// ignored. A `time_t` of 32 bits keeps the lowest 32 bits of the seconds, so the moments after its last
    /// read as 1901 and later.
    /// \param[out] result set on success, with empty base members
    /// \return 0, or -1 when the number cannot be converted
    /// \throws std::out_of_range when there is no digit or the number exceeds 64 bits
    static int FromString(const std::string& text, DateTime& result);

    /// Reads a local time, year-month-dayThours:minutes:seconds, with an optional fraction behind the last
    /// ".": a count of milliseconds, whatever its number of digits, followed by one character for the zone
    /// ("Z"), which is dropped unread. Tells what it reads on standard output.
    /// \param[out] result set on success
    /// \return 0; -1 when \p text cannot be read or `time_t` cannot hold it; another negative value for a
    ///         time before the epoch
    /// \throws std::invalid_argument when the fraction is not a number
    static int FromISO8601String(std::string& text, DateTime& result);

    TELVANE_RECORD_WITHOUT_FIELDS(DateTime)
};

} // namespace Telvane

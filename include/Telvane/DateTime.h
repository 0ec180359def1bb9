/// \file
/// The time-stamp record.
#pragma once

#include <Telvane/RecordTable.h>

#include <ctime>
#include <string>

namespace Telvane
{

/// A point in time.
///
/// Unlike other records it is a string in JSON: "/Date(" milliseconds since 1970-01-01T00:00:00Z ")/",
/// without "_id" and "_sequence_tag". The ISO 8601 forms are in local time.
///
/// Where `time_t` has 32 bits, it ends at 2038-01-19T03:14:07Z. Each operation documents its result for later
/// times.
class TELVANE_EXPORT DateTime : public TelvaneDataTypeBase
{
public:
    timespec time = {}; ///< seconds and nanoseconds since 1970-01-01T00:00:00Z

    /// Creates the time 1970-01-01T00:00:00Z.
    DateTime() = default;
    /// Creates a time.
    /// \param moment the time, which is copied; must not be null
    explicit DateTime(timespec* moment);

    /// \return the time of the system clock (`CLOCK_REALTIME`); 1970-01-01T00:00:00Z if `time_t` cannot hold
    ///         it
    static DateTime Now();

    /// \return true if \p year is a leap year of the Gregorian calendar
    static bool CheckForLeapYear(int year);

    /// \return true if \p text starts with a valid time in the form YYYY-MM-DDThh:mm:ss from 2018 to 2099
    static bool ValidateTime(const std::string& text);

    /// \return the string for JSON; fractions of a millisecond are cut off
    std::string ToString();

    /// \return the local time in the form YYYY-MM-DDThh:mm:ss.sss, without a time zone
    std::string ToISO8601String();

    /// Reads the first decimal digits in \p text as milliseconds since 1970-01-01T00:00:00Z. Ignores
    /// everything else, even a minus sign. A `time_t` of 32 bits keeps the lowest 32 bits of the seconds, so
    /// times after its end become times from 1901 on.
    /// \param      text   normally the string in JSON
    /// \param[out] result set to the time, with empty `_id` and without `_sequence_tag`; unchanged on failure
    /// \return 0; -1 if the number cannot be converted
    /// \throws std::out_of_range if \p text has no digits or the number needs more than 63 bits
    static int FromString(const std::string& text, DateTime& result);

    /// Reads a local time in the form YYYY-MM-DDThh:mm:ss, with optional milliseconds after the last ".": any
    /// count of digits and one character for the time zone ("Z"), which is ignored. Prints the text that it
    /// reads to standard output.
    /// \param      text   the time
    /// \param[out] result set to the time; unchanged on failure
    /// \return 0; -1 if \p text does not have that form or `time_t` cannot hold the time; another negative
    ///         number for a time before 1970
    /// \throws std::invalid_argument if there are no digits after the "."
    /// \throws std::out_of_range if the digits after the "." exceed an `int`
    static int FromISO8601String(std::string& text, DateTime& result);

    TELVANE_RECORD_WITHOUT_FIELDS(DateTime)
};

} // namespace Telvane

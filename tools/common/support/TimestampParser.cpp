// Loggers write dates in the format of their country, which the separator identifies. That is simpler for users
// than a format option.

#include "common/support/TimestampParser.h"

#include <charconv>
#include <ctime>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kMinute = 60 * kSecond;
constexpr Nanoseconds kHour = 60 * kMinute;
constexpr Nanoseconds kDay = 24 * kHour;
constexpr int kMaxYear = 2095; // 64-bit nanoseconds, with room to calculate

bool isLeapYear(int year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysIn(int month, int year)
{
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

/// \return the days since 1970-01-01. timegm() would fail after 2038 if time_t has 32 bits.
int daysTo(int year, int month, int day)
{
    int days = day - 1;
    for (int i = 1970; i < year; ++i) {
        days += isLeapYear(i) ? 366 : 365;
    }
    for (int i = 1; i < month; ++i) {
        days += daysIn(i, year);
    }
    return days;
}

/// Removes an unsigned integer from the front of the text.
bool takeNumber(std::string_view& text, int& number, std::size_t maxDigits)
{
    if (text.empty() || text.front() < '0' || text.front() > '9') {
        return false;
    }
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const auto length = static_cast<std::size_t>(rest - text.data());
    if (error != std::errc() || length > maxDigits) {
        return false;
    }
    text.remove_prefix(length);
    return true;
}

bool take(std::string_view& text, char expected)
{
    if (text.empty() || text.front() != expected) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

/// Removes ":minutes:seconds.fraction" from the front; seconds and fraction are optional.
bool takeMinutes(std::string_view& text, Nanoseconds& time)
{
    int minutes = 0;
    int seconds = 0;
    if (!take(text, ':') || !takeNumber(text, minutes, 2) || minutes > 59) {
        return false;
    }
    if (take(text, ':') && (!takeNumber(text, seconds, 2) || seconds > 60)) {
        return false;
    }
    time = minutes * kMinute + seconds * kSecond;
    if (take(text, '.') || take(text, ',')) {
        const std::size_t before = text.size();
        for (Nanoseconds digit = kSecond / 10; !text.empty() && text.front() >= '0' && text.front() <= '9';
             digit /= 10) {
            time += (text.front() - '0') * digit;
            text.remove_prefix(1);
        }
        return text.size() < before;
    }
    return true;
}

/// Reads "Z", "+02:00" or "+0200".
bool readZone(std::string_view text, Nanoseconds& offset)
{
    offset = 0;
    if (text == "Z") {
        return true;
    }
    const bool west = !text.empty() && text.front() == '-';
    if (!take(text, '+') && !take(text, '-')) {
        return false;
    }
    int hours = 0;
    int minutes = 0;
    if (text.size() == 4) {
        std::string_view hoursText = text.substr(0, 2);
        text.remove_prefix(2);
        if (!takeNumber(hoursText, hours, 2)) {
            return false;
        }
    } else if (!takeNumber(text, hours, 2) || !take(text, ':')) {
        return false;
    }
    if (!takeNumber(text, minutes, 2) || !text.empty()) {
        return false;
    }
    offset = (hours * kHour + minutes * kMinute) * (west ? -1 : 1);
    return true;
}

} // namespace

bool TimestampParser::readDate(std::string_view text, Date& date)
{
    int first = 0;
    int second = 0;
    int third = 0;
    if (!takeNumber(text, first, 4) || text.empty()) {
        return false;
    }
    // cppcheck-suppress containerOutOfBounds ; not empty here
    const char separator = text.front();
    if ((separator != '-' && separator != '/' && separator != '.') || !take(text, separator) ||
        !takeNumber(text, second, 2) || !take(text, separator) || !takeNumber(text, third, 4) ||
        !text.empty()) {
        return false;
    }
    if (separator == '-') {
        date = {first, second, third};
    } else if (separator == '/') {
        date = {third, first, second};
    } else {
        date = {third, second, first};
    }
    return date.year >= 1970 && date.year <= kMaxYear && date.month >= 1 && date.month <= 12 &&
           date.day >= 1 && date.day <= daysIn(date.month, date.year);
}

bool TimestampParser::readTimeOfDay(std::string_view time, Nanoseconds& sinceMidnight)
{
    int hours = 0;
    Nanoseconds rest = 0;
    if (!takeNumber(time, hours, 4) || !takeMinutes(time, rest) || !time.empty()) {
        return false;
    }
    sinceMidnight = hours * kHour + rest;
    return true;
}

bool TimestampParser::read(std::string_view dateText, std::string_view time, Nanoseconds& moment)
{
    Date date;
    int hour = 0;
    Nanoseconds rest = 0;
    if (!readDate(dateText, date) || !takeNumber(time, hour, 2) || hour > 23 || !takeMinutes(time, rest)) {
        return false;
    }
    Nanoseconds zone = 0;
    const bool zoned = !time.empty();
    if (zoned && !readZone(time, zone)) {
        return false;
    }
    if (zoned) {
        moment = daysTo(date.year, date.month, date.day) * kDay + hour * kHour + rest - zone;
        return true;
    }
    if (!(date == m_date) || hour != m_hour) {
        tm parts = {};
        parts.tm_year = date.year - 1900;
        parts.tm_mon = date.month - 1;
        parts.tm_mday = date.day;
        parts.tm_hour = hour;
        parts.tm_isdst = -1;
        const time_t seconds = mktime(&parts);
        if (seconds == static_cast<time_t>(-1)) {
            return false;
        }
        m_hourBegin = static_cast<Nanoseconds>(seconds) * kSecond;
        m_date = date;
        m_hour = hour;
    }
    moment = m_hourBegin + rest;
    return true;
}

bool TimestampParser::read(std::string_view text, Nanoseconds& moment)
{
    const std::size_t separator = text.find_first_of("T ");
    return separator != std::string_view::npos &&
           read(text.substr(0, separator), text.substr(separator + 1), moment);
}

} // namespace TelvaneTool

#pragma once

#include "common/support/Clock.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace TelvaneTool
{

/// \return \p text without these characters at its beginning and end
std::string_view trimmed(std::string_view text, const char* blanks = " \t\r");

/// Reads a whole text as a finite number, in one of the forms that strtod() reads.
bool readNumber(std::string_view text, double& number);

/// Reads a duration such as "30s", "1.5m", "250ms", "2h" or "100us". The default unit is the second.
/// \return false if \p text is not a duration of 0 to 30 years
bool readDuration(const std::string& text, Nanoseconds& duration);

/// Reads a size such as "4096", "64K", "100M" or "2G". The units are powers of 1024.
/// \return false if \p text is not a size below 9e18
bool readSize(const std::string& text, std::uint64_t& bytes);

/// \return "812 B", "1.2 KB", "34.5 MB", in powers of 1000
std::string printBytes(double bytes);

/// \return "1234", "12.3k", "4.56M"
std::string printCount(double count);

/// \return "85 us", "1.25 ms", "3.1 s"
std::string printDuration(Nanoseconds time);

/// \return "1.250 s", "3 min 20.0 s", "2 h 05 min"
std::string printSpan(Nanoseconds span);

/// \param decimals of the seconds, 1 to 9
/// \return "2024-01-02T03:04:05.678901Z"
std::string printMoment(Nanoseconds sinceEpoch, std::size_t decimals = 6);

/// \return "1 record", "2 records"
std::string printNumber(std::uint64_t count, const std::string& noun);

/// Formats as printf() does. \return at most 255 characters; the rest is cut
[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...);

} // namespace TelvaneTool

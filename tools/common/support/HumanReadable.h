#pragma once

#include "common/support/Clock.h"

#include <cstdint>
#include <string>

namespace TelvaneTool
{

/// Reads "30", "30s", "1.5m", "250ms", "2h" or "100us"; without a unit seconds are meant.
/// \return false when the text is no duration, is negative or is longer than 30 years
bool readDuration(const std::string& text, Nanoseconds& duration);

/// Reads "4096", "64K", "100M" or "2G", in powers of 1024.
bool readSize(const std::string& text, std::uint64_t& bytes);

/// \return "812 B", "1.2 KB", "34.5 MB", in powers of 1000
std::string printBytes(double bytes);

/// \return "1234", "12.3k", "4.56M"
std::string printCount(double count);

/// \return "1.250 s", "3 min 20.0 s", "2 h 05 min"
std::string printSpan(Nanoseconds span);

/// \return a moment since the Unix epoch as "2024-01-02T03:04:05.678901Z"
std::string printMoment(Nanoseconds sinceEpoch);

} // namespace TelvaneTool

#pragma once

// Numbers as the JSON library prints them, only faster.

namespace Telvane
{

/// Room for the longest text that formatNumber() writes.
constexpr int kNumberTextSize = 32;

/// Writes \p value digit for digit as cJSON's printer would, terminated.
/// \return the terminator's position
char* formatNumber(double value, char* text);

} // namespace Telvane

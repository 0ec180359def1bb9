#pragma once

// Formats numbers like the JSON library, but faster.

namespace Telvane
{

/// Size of a buffer for formatNumber().
constexpr int kNumberTextSize = 32;

/// Writes \p value as cJSON prints it, and a terminator.
/// \return the terminator's position
char* formatNumber(double value, char* text);

} // namespace Telvane

#pragma once

// Checks in one pass, without a tree, that a text equals the JSON library's printed form of it. Such a text
// need not be parsed and printed again.

namespace Telvane
{

/// \name Skipping
/// The text must be terminated; the functions stop at the terminator.
/// \return the position after the token; null if the library would print it differently or not read it
/// @{

/// \param text at the opening quote
const char* skipPrintedString(const char* text);

const char* skipPrintedNumber(const char* text);

/// \param depth count of objects and arrays around the value; more than 63 levels in all are refused, which
///        no message needs
const char* skipPrintedValue(const char* text, int depth);
/// @}

} // namespace Telvane

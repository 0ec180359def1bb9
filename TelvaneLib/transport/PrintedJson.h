#pragma once

// Proves that a text is exactly what the JSON library would print for it, in one pass and without a tree.
// What holds need not be parsed and printed: it is its own printed form.

namespace Telvane
{

/// \name Skipping
/// The text ends with a zero, which none of them passes.
/// \return the position after the token; null when the library would print it otherwise, or not read it
/// @{

/// \param text at the opening quote
const char* skipPrintedString(const char* text);

const char* skipPrintedNumber(const char* text);

/// \param depth objects and arrays around the value; more than 63 levels in all are refused, since nothing
///        that is published gets near that
const char* skipPrintedValue(const char* text, int depth);
/// @}

} // namespace Telvane

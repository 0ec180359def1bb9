#pragma once

// Text from other processes, made safe for terminals, logs and JSON: it must neither control the terminal nor be
// invalid UTF-8.

#include <cstdint>
#include <string>
#include <string_view>

namespace TelvaneTool
{

enum class Lines
{
    Keep,   ///< newlines and tabs stay
    Remove, ///< the text is one line
};

/// \return the text with '?' in place of control characters (C0, delete and C1) and U+FFFD in place of invalid UTF-8
std::string printable(std::string_view text, Lines lines);

/// \return \p message with long quotations cut, which it has between double quotes, and cut itself if it is much too
///         long
std::string withShortQuotes(std::string_view message);

/// Makes printed JSON safe in the same way, without loss: escapes the control characters that JSON allows in strings.
/// \return the number of sequences of invalid UTF-8, each of which U+FFFD replaces
std::uint64_t makeJsonPrintable(std::string& json);

} // namespace TelvaneTool

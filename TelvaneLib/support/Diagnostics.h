#pragma once

// The library's diagnostics are single lines on the process's standard streams.

#include <string_view>

namespace Telvane
{

/// Write a line made of up to two texts. Never throw.
/// @{
void writeErrorLine(std::string_view text, std::string_view rest = {});
void writeOutputLine(std::string_view text, std::string_view rest = {});
/// @}

} // namespace Telvane

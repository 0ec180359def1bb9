#pragma once

// Error messages and other lines on the process's standard streams.

#include <string_view>

namespace Telvane
{

/// Write a line that consists of both texts. Never throw.
/// @{
void writeErrorLine(std::string_view text, std::string_view rest = {});
void writeOutputLine(std::string_view text, std::string_view rest = {});
/// @}

} // namespace Telvane

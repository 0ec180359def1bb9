#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace TelvaneTool
{

/// Reads a consumable's code: its name in the table, in any letter case, or its number.
/// \param names the library's table
std::optional<int> readConsumableCode(const std::string& text, const std::string* names, std::size_t count);

} // namespace TelvaneTool

#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace TelvaneTool
{

/// Parses a consumable's code: a name of the table, in any letter case, or a number.
/// \param names the library's table
std::optional<int> readConsumableCode(const std::string& text, const std::string* names, std::size_t count);

} // namespace TelvaneTool

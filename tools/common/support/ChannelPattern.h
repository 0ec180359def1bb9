#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// \return true when \p text has '*' (any characters, also none) or '?' (any one character) in it
bool isPattern(std::string_view text);

/// \return true when the whole of \p name is what \p pattern says
bool matchesPattern(std::string_view pattern, std::string_view name);

/// \return true when any of the patterns matches, or when there are none
bool matchesAnyPattern(const std::vector<std::string>& patterns, std::string_view name);

} // namespace TelvaneTool

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// Checks the name of a channel to subscribe to: ASCII letters and underscores.
/// \return an error message, or an empty text
std::string checkChannel(const std::string& name);

/// As checkChannel(), for a name that may contain the wildcards '*' and '?'.
std::string checkChannelPattern(const std::string& pattern);

/// \return whether \p text contains '*' (any number of characters) or '?' (one character)
bool isPattern(std::string_view text);

/// \return whether \p pattern matches the whole of \p name
bool matchesPattern(std::string_view pattern, std::string_view name);

/// \return whether any pattern matches; true for an empty list
bool matchesAnyPattern(const std::vector<std::string>& patterns, std::string_view name);

} // namespace TelvaneTool

#pragma once

#include <string>

namespace TelvaneTool::Mqtt
{

/// Checks a value, which may come from the command line or from the configuration file.
/// \param key name of the option without dashes
/// \return an error message, or an empty text
std::string valueError(const std::string& key, const std::string& value);

} // namespace TelvaneTool::Mqtt

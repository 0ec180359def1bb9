#pragma once

#include <cjson/cJSON.h>

#include <string>

namespace TelvaneTool
{

/// \return the value on one line, as `cJSON_PrintUnformatted` prints it, but in a tenth of the time; an empty text if it
///         holds anything that cannot be printed
std::string printOnOneLine(const cJSON* tree);

/// Appends a number in the same way.
void appendNumber(std::string& json, double value);

} // namespace TelvaneTool

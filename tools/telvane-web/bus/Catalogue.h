#pragma once

#include <string>

namespace TelvaneTool
{

/// \return all record classes with their fields as JSON: [{"name", "fields": [{"key", "kind", "class", "limit"}]}]
std::string catalogueJson();

} // namespace TelvaneTool

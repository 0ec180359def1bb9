#pragma once

#include "common/support/Json.h"

#include <string>

namespace TelvaneTool
{

/// \param path keys and indices, as in settings.CommandWFS.Value or mModes[0].Label or mModes.0.Label; keys
///             match without regard to letter case, as they do for records
/// \return null when there is no such value
const cJSON* findField(const cJSON* object, const std::string& path);

/// \return a string without its quotes, any other value as JSON; empty for null pointers
std::string fieldText(const cJSON* field);

} // namespace TelvaneTool

#pragma once

#include "common/support/Json.h"

#include <string>
#include <vector>

namespace TelvaneTool
{

/// \return the keys and indices of a path: mModes[0].Label and mModes.0.Label are both "mModes", "0", "Label"
std::vector<std::string> splitPath(const std::string& path);

/// \return the index that a step of a path names; negative if it is not an index
int readIndex(const std::string& step);

/// Finds a value inside a JSON value. Keys match in any letter case, as in records.
/// \param path as in settings.CommandWFS.Value or mModes[0].Label
/// \return null if there is no such value
const cJSON* findField(const cJSON* object, const std::string& path);

/// \return a string without its quotes, any other value as JSON; empty for null
std::string fieldText(const cJSON* field);

} // namespace TelvaneTool

#pragma once

#include <Telvane/RecordCatalogue.h>

#include <cjson/cJSON.h>

namespace TelvaneTool
{

/// \param table all fields of a class, as `_recordTable()` returns it
/// \return whether a value is exactly what a record of the class would be written as after it was read from the value;
///         false also for classes that write themselves
bool isAsWritten(const cJSON* value, const Telvane::RecordTable& table);

} // namespace TelvaneTool

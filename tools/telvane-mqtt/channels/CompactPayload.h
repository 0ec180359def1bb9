#pragma once

#include <Telvane/RecordTable.h>

#include <string>
#include <string_view>

namespace TelvaneTool::Mqtt
{

/// Copies a payload without the white space between its tokens.
/// \param      table all fields of the class that the payload must be a record of; null for any value
/// \param[out] json  set to the copy, on one line
/// \return false if parsing the payload and printing it, as a record of the class, may give another text; \p json is then
///         undefined
bool compactPayload(std::string_view payload, const Telvane::RecordTable* table, std::string& json);

} // namespace TelvaneTool::Mqtt

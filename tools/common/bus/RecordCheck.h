#pragma once

#include <Telvane/RecordCatalogue.h>

#include <cjson/cJSON.h>

#include <string>

namespace TelvaneTool
{

/// How closely a JSON value is held against a record class.
enum class Strictness
{
    Receiving, ///< as the library reads it: further keys are ignored, fractions of integers are cut off
    Sending,   ///< nothing that would get lost or changed on the way: no unknown key, whole integers in range
};

/// Looks for what keeps \p value from being a record of a class.
/// \return what is wrong with the first wrong key ("settings.CommandWFS.Value: expected a number, got a
///         string"), or an empty text when the value is a record
std::string checkRecord(const cJSON* value, const Telvane::RecordTable& table, Strictness strictness);

/// \return true when the class stands in JSON as a time text and not as an object
bool isTimeStamp(const Telvane::RecordTable& table);

} // namespace TelvaneTool

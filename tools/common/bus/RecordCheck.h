#pragma once

#include "common/support/Json.h"

#include <Telvane/RecordCatalogue.h>

#include <cjson/cJSON.h>

#include <string>
#include <string_view>

namespace TelvaneTool
{

/// How strictly a JSON value is checked against a record class.
enum class Strictness
{
    Receiving, ///< as the library reads it: ignores unknown keys and truncates fractions of integers
    Sending,   ///< refuses everything that would be lost or changed: unknown keys, integers out of range
};

/// Checks whether a JSON value is a record of a class.
/// \return the first error, such as "settings.CommandWFS.Value: expected a number, got a string", or an empty text
std::string checkRecord(const cJSON* value, const Telvane::RecordTable& table, Strictness strictness);

/// Reads a record from JSON text. The library alone would report each invalid key on standard output or standard error.
/// \return false if the text is not a record of the class
template <class Record>
bool readRecord(std::string_view text, Record& record)
{
    std::string error;
    const JsonTree tree = parseJson(std::string(text), error);
    return checkRecord(tree.get(), Record::recordTable(), Strictness::Receiving).empty() &&
           record.Unpackage(tree.get()) == 0;
}

/// \return whether the class is a string in JSON (a time stamp) and not an object
bool isTimeStamp(const Telvane::RecordTable& table);

} // namespace TelvaneTool

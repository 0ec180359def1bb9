#pragma once

#include <Telvane/RecordTable.h>

#include <cjson/cJSON.h>

#include <array>
#include <cstddef>
#include <string>

namespace TelvaneTool
{

/// One of the library's tables of names.
struct ConsumableTable
{
    const char* name;         ///< as on the command line: "wire-type"
    const char* title;        ///< "wire types"
    const std::string* texts; ///< the library's table, by code
    std::size_t count;
};

/// The five tables in display order.
const std::array<ConsumableTable, 5>& consumableTables();

/// \return the table of that name, or null
const ConsumableTable* findConsumableTable(const std::string& name);

/// \return the name of a code; "unknown" for 255 and for codes outside the table
std::string consumableName(const ConsumableTable& table, int code);

/// Adds the names of consumable codes to a record's JSON: "processName" after "process".
/// \param table the fields of the record's class
void addConsumableNames(cJSON* object, const Telvane::RecordTable& table);

} // namespace TelvaneTool

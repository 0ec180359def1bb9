// The mapping of fields to tables of codes. The library has no such mapping: its records contain numbers only. A key
// matches only integer fields: the "gas" of a trace sample is a flow.

#include "catalogue/ConsumableNames.h"

#include <Telvane/Consumables.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace TelvaneTool
{

namespace
{

using Telvane::FieldKind;
using Telvane::RecordField;
using Telvane::RecordTable;

constexpr std::size_t kProcess = 0;
constexpr std::size_t kWireType = 1;
constexpr std::size_t kWireSize = 2;
constexpr std::size_t kGas = 3;
constexpr std::size_t kAlloy = 4;

constexpr std::array<std::pair<const char*, std::size_t>, 9> kCodeKeys = {{{"process", kProcess},
                                                                           {"PROC", kProcess},
                                                                           {"wireType", kWireType},
                                                                           {"WT", kWireType},
                                                                           {"wireSize", kWireSize},
                                                                           {"WS", kWireSize},
                                                                           {"gas", kGas},
                                                                           {"GT", kGas},
                                                                           {"alloy", kAlloy}}};

const ConsumableTable* tableOfKey(const char* key)
{
    const auto* const found = std::find_if(kCodeKeys.begin(), kCodeKeys.end(), [key](const auto& entry) {
        return std::strcmp(entry.first, key) == 0;
    });
    return found != kCodeKeys.end() ? &consumableTables()[found->second] : nullptr;
}

const RecordField* findField(const RecordTable& table, const char* key)
{
    const auto& fields = table.fields();
    const auto found = std::find_if(fields.begin(), fields.end(), [key](const RecordField& field) {
        return std::strcmp(field.key, key) == 0;
    });
    return found != fields.end() ? &*found : nullptr;
}

void addNamesWithin(cJSON* item, const RecordField& field)
{
    if (field.kind == FieldKind::Record && cJSON_IsObject(item) != 0) {
        addConsumableNames(item, field.nested->table());
    } else if (field.kind == FieldKind::RecordVector) {
        for (cJSON* element = item->child; element != nullptr; element = element->next) {
            addConsumableNames(element, field.nested->table());
        }
    }
}

} // namespace

const std::array<ConsumableTable, 5>& consumableTables()
{
    static const std::array<ConsumableTable, 5> tables = {
        {{"process", "weld processes", Telvane::ProcessIDStrings, Telvane::kProcessIDCount},
         {"wire-type", "wire types", Telvane::WireTypeStrings, Telvane::kWireTypeCount},
         {"wire-size", "wire sizes, inches", Telvane::WireSizeStrings, Telvane::kWireSizeCount},
         {"gas", "shielding gases", Telvane::GasIDStrings, Telvane::kGasIDCount},
         {"alloy", "wire alloys", Telvane::AlloyIDStrings, Telvane::kAlloyIDCount}}};
    return tables;
}

const ConsumableTable* findConsumableTable(const std::string& name)
{
    const auto& tables = consumableTables();
    const auto* const found = std::find_if(
        tables.begin(), tables.end(), [&name](const ConsumableTable& table) { return name == table.name; });
    return found != tables.end() ? found : nullptr;
}

std::string consumableName(const ConsumableTable& table, int code)
{
    return code >= 0 && static_cast<std::size_t>(code) < table.count ? table.texts[code] : "unknown";
}

void addConsumableNames(cJSON* object, const RecordTable& table)
{
    // Move each member from the front to the back once, followed by its name, if any.
    for (int members = cJSON_GetArraySize(object); members > 0; --members) {
        cJSON* const item = cJSON_DetachItemFromArray(object, 0);
        cJSON_AddItemToArray(object, item);
        const RecordField* const field = findField(table, item->string);
        if (field == nullptr) {
            continue;
        }
        const ConsumableTable* const names = tableOfKey(field->key);
        if (names != nullptr && field->kind == FieldKind::Integer && cJSON_IsNumber(item) != 0) {
            cJSON_AddStringToObject(object, (std::string(field->key) + "Name").c_str(),
                                    consumableName(*names, item->valueint).c_str());
        }
        addNamesWithin(item, *field);
    }
}

} // namespace TelvaneTool

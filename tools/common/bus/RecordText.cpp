// Nearly every record on the bus was written by the library: its keys are in the order of the list, and nothing is missing
// or added. Such a value need not become a record and be written again.

#include "common/bus/RecordText.h"

#include "common/bus/RecordCheck.h"

#include <Telvane/DateTime.h>

#include <cmath>
#include <cstring>

namespace TelvaneTool
{

using Telvane::FieldKind;
using Telvane::RecordField;
using Telvane::RecordTable;

namespace
{

bool isInteger(const cJSON* value)
{
    return cJSON_IsNumber(value) != 0 && value->valuedouble == static_cast<double>(value->valueint) &&
           !(value->valueint == 0 && std::signbit(value->valuedouble)); // an int has no negative zero
}

bool isTime(const cJSON* value, const Telvane::TextForm& form)
{
    if (cJSON_IsString(value) == 0) {
        return false;
    }
    Telvane::DateTime time;
    char text[Telvane::TextForm::kSize + 1] = {};
    const char* const given = value->valuestring;
    const std::size_t length = std::strlen(given);
    return form.read(time, given, given + length) &&
           static_cast<std::size_t>(form.write(time, text) - text) == length &&
           std::memcmp(text, given, length) == 0;
}

bool isNested(const cJSON* value, const RecordField& field)
{
    const RecordTable& table = field.nested->table();
    return table.ifCovers(*field.nested->recordClass) != nullptr && isAsWritten(value, table);
}

bool isElement(const cJSON* value, const RecordField& field)
{
    switch (field.kind) {
    case FieldKind::FlagArray:
        return cJSON_IsBool(value) != 0;
    case FieldKind::IntegerArray:
        return isInteger(value);
    default:
        return isNested(value, field);
    }
}

bool isArray(const cJSON* value, const RecordField& field)
{
    if (cJSON_IsArray(value) == 0) {
        return false;
    }
    std::size_t size = 0;
    for (const cJSON* element = value->child; element != nullptr; element = element->next, ++size) {
        if (!isElement(element, field)) {
            return false;
        }
    }
    // Elements that were not received would be written as well.
    return field.kind == FieldKind::RecordVector ? size <= field.limit : size == field.limit;
}

bool isField(const cJSON* value, const RecordField& field)
{
    switch (field.kind) {
    case FieldKind::Integer:
        return isInteger(value);
    case FieldKind::Number:
        return cJSON_IsNumber(value) != 0;
    case FieldKind::Flag:
        return cJSON_IsBool(value) != 0;
    case FieldKind::Text:
        return cJSON_IsString(value) != 0;
    case FieldKind::Record:
        return isNested(value, field);
    case FieldKind::Value:
        return false;
    default:
        return isArray(value, field);
    }
}

bool hasKey(const cJSON* item, const char* key)
{
    return item != nullptr && std::strcmp(item->string, key) == 0;
}

} // namespace

bool isAsWritten(const cJSON* value, const RecordTable& table)
{
    if (const Telvane::TextForm* const form = table.textForm()) {
        return isTimeStamp(table) && isTime(value, *form);
    }
    if (cJSON_IsObject(value) == 0) {
        return false;
    }
    const cJSON* item = value->child;
    for (const RecordField& field : table.fields()) {
        if (!hasKey(item, field.key) || !isField(item, field)) {
            return false;
        }
        item = item->next;
    }
    if (hasKey(item, "_id")) {
        if (cJSON_IsString(item) == 0 || *item->valuestring == '\0') {
            return false;
        }
        item = item->next;
    }
    if (hasKey(item, "_sequence_tag")) {
        if (!isInteger(item) || item->valueint < 0) {
            return false;
        }
        item = item->next;
    }
    return item == nullptr;
}

} // namespace TelvaneTool

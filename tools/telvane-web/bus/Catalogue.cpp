#include "telvane-web/bus/Catalogue.h"

#include "common/support/Json.h"

#include <Telvane/RecordCatalogue.h>

namespace TelvaneTool
{

namespace
{

using Telvane::FieldKind;

/// \return the kind as the page names it in its own language
const char* nameOf(FieldKind kind)
{
    switch (kind) {
    case FieldKind::Integer:
        return "integer";
    case FieldKind::Number:
        return "number";
    case FieldKind::Flag:
        return "flag";
    case FieldKind::Text:
        return "text";
    case FieldKind::Record:
        return "record";
    case FieldKind::FlagArray:
        return "flags";
    case FieldKind::IntegerArray:
        return "integers";
    case FieldKind::RecordArray:
        return "records";
    case FieldKind::RecordVector:
    case FieldKind::Value: // not in the catalogue of the library
        break;
    }
    return "list";
}

} // namespace

std::string catalogueJson()
{
    const JsonTree root(cJSON_CreateArray());
    for (const Telvane::RecordClass& recordClass : Telvane::RecordCatalogue::classes()) {
        cJSON* const item = cJSON_CreateObject();
        addText(item, "name", recordClass.name);
        cJSON* const fields = cJSON_AddArrayToObject(item, "fields");
        for (const Telvane::RecordField& field : recordClass.table().fields()) {
            cJSON* const entry = cJSON_CreateObject();
            addText(entry, "key", field.key);
            addText(entry, "kind", nameOf(field.kind));
            if (field.nested != nullptr) {
                addText(entry, "class", field.nested->table().className());
            }
            if (field.limit != 0) {
                addNumber(entry, "limit", field.limit);
            }
            cJSON_AddItemToArray(fields, entry);
        }
        cJSON_AddItemToArray(root.get(), item);
    }
    return printJson(root.get());
}

} // namespace TelvaneTool

#include "catalogue/RecordSchema.h"
#include "commands/Commands.h"
#include "common/bus/RecordCheck.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/Messages.h"
#include "common/support/Json.h"
#include "common/support/Table.h"

#include <Telvane/RecordCatalogue.h>

#include <algorithm>
#include <memory>

namespace TelvaneTool
{

namespace
{

using Telvane::FieldKind;
using Telvane::RecordCatalogue;
using Telvane::RecordClass;
using Telvane::RecordField;
using Telvane::RecordTable;

struct Options
{
    const RecordClass* recordClass = nullptr;
    bool schema = false;
    bool json = false;
};

/// \return "integer", "array of records", ...: the kind for programs
const char* nameOfKind(FieldKind kind)
{
    switch (kind) {
    case FieldKind::Integer:
        return "integer";
    case FieldKind::Number:
        return "number";
    case FieldKind::Flag:
        return "boolean";
    case FieldKind::Text:
        return "string";
    case FieldKind::Record:
        return "record";
    case FieldKind::FlagArray:
        return "array of booleans";
    case FieldKind::IntegerArray:
        return "array of integers";
    case FieldKind::RecordArray:
        return "array of records";
    case FieldKind::RecordVector:
        return "list of records";
    case FieldKind::Value:
        break; // in applications' own records only
    }
    return "unknown";
}

std::string kindOfField(const RecordField& field)
{
    std::string nested = field.nested != nullptr ? field.nested->table().className() : "";
    if (field.kind == FieldKind::Record) {
        return nested;
    }
    if (field.limit == 0) {
        return nameOfKind(field.kind);
    }
    const char* const simple = field.kind == FieldKind::FlagArray ? "booleans" : "integers";
    return (field.kind == FieldKind::RecordVector ? "up to " : "array of ") + std::to_string(field.limit) +
           " " + (nested.empty() ? simple : nested);
}

/// Remarks on the kinds of a class's fields.
std::string notesOnKinds(const RecordTable& table)
{
    const auto has = [&table](auto condition) {
        const auto& fields = table.fields();
        return std::any_of(fields.begin(), fields.end(), condition);
    };
    std::string text = "integers have 32 bits";
    if (has([](const RecordField& field) {
            return field.limit != 0 && field.kind != FieldKind::RecordVector;
        })) {
        text += "; arrays are written in full and may have fewer elements when read, at least 1";
    }
    return text;
}

/// The default as JSON, shortened for records and for equal elements.
std::string describeDefault(const RecordField& field, const cJSON* value)
{
    if (field.kind == FieldKind::Record && cJSON_IsObject(value) != 0) {
        return "its own defaults";
    }
    const int size = cJSON_IsArray(value) != 0 ? cJSON_GetArraySize(value) : 0;
    const cJSON* const first = size > 1 ? value->child : nullptr;
    const cJSON* element = first;
    while (element != nullptr && cJSON_Compare(element, first, 1) != 0) {
        element = element->next;
    }
    const bool alike = first != nullptr && element == nullptr;
    return alike ? std::to_string(size) + " times " + printJson(first) : printJson(value);
}

std::string describeCatalogue()
{
    Table table({{}, {}});
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        std::string fields;
        for (const RecordField& field : recordClass.table().fields()) {
            fields += (fields.empty() ? "" : ", ") + std::string(field.key);
        }
        constexpr std::size_t kWidth = 70;
        if (fields.size() > kWidth) {
            fields.replace(fields.rfind(',', kWidth), std::string::npos, ", ...");
        }
        table.add({recordClass.name, isTimeStamp(recordClass.table()) ? "a time text" : fields});
    }
    return table.print();
}

std::string describeClass(const RecordClass& recordClass)
{
    const JsonTree defaults = packagedDefault(recordClass);
    std::string text = std::string(recordClass.name) + " (derives from " + recordClass.base + ")\n\n";
    Table table({{"key"}, {"kind"}, {"default"}});
    for (const RecordField& field : recordClass.table().fields()) {
        const cJSON* const value = cJSON_GetObjectItemCaseSensitive(defaults.get(), field.key);
        table.add({field.key, kindOfField(field), describeDefault(field, value)});
    }
    if (isTimeStamp(recordClass.table())) {
        text += "  A string in JSON: milliseconds since the Unix epoch.\n";
    } else {
        table.add({"_id", "string", "omitted; optional"});
        table.add({"_sequence_tag", "integer", "omitted; optional"});
        text += table.print({2}) + "\n  (" + notesOnKinds(recordClass.table()) + ")\n";
    }
    text += "\nA default record:\n" + printJson(defaults.get(), true) + "\n";
    return text;
}

JsonTree asJson(const RecordClass& recordClass)
{
    JsonTree object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "class", recordClass.name);
    cJSON_AddStringToObject(object.get(), "base", recordClass.base);
    cJSON* const fields = cJSON_AddArrayToObject(object.get(), "fields");
    for (const RecordField& field : recordClass.table().fields()) {
        cJSON* const entry = cJSON_CreateObject();
        cJSON_AddItemToArray(fields, entry);
        cJSON_AddStringToObject(entry, "key", field.key);
        cJSON_AddStringToObject(entry, "kind", nameOfKind(field.kind));
        if (field.nested != nullptr) {
            cJSON_AddStringToObject(entry, "class", field.nested->table().className());
        }
        if (field.limit != 0) {
            cJSON_AddNumberToObject(entry, "limit", static_cast<double>(field.limit));
        }
    }
    cJSON_AddItemToObject(object.get(), "default", packagedDefault(recordClass).release());
    return object;
}

JsonTree catalogueAsJson()
{
    JsonTree array(cJSON_CreateArray());
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        cJSON_AddItemToArray(array.get(), asJson(recordClass).release());
    }
    return array;
}

int show(const Options& options)
{
    const RecordClass* const recordClass = options.recordClass;
    std::string text;
    if (options.schema) {
        const JsonTree schema = recordClass != nullptr ? recordSchema(*recordClass) : catalogueSchema();
        text = printJson(schema.get(), true) + "\n";
    } else if (options.json) {
        const JsonTree tree = recordClass != nullptr ? asJson(*recordClass) : catalogueAsJson();
        text = printJson(tree.get()) + "\n";
    } else {
        text = recordClass != nullptr ? describeClass(*recordClass) : describeCatalogue();
    }
    return writeResult(text);
}

} // namespace

void addRecordsCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "records", "List record classes, their fields and defaults");
    addClass(command, "CLASS", options->recordClass, "Print the fields and defaults of this class");
    command.flag("--schema", options->schema,
                 "Print a JSON Schema (draft 2020-12) of the class, or of all classes");
    command.flag("--json", options->json, "Print fields and defaults as JSON").excludes("--schema");
    command.examples("# all classes, or one of them\n"
                     "telvane records\n"
                     "telvane records WeldMetrics\n"
                     "# for programs\n"
                     "telvane records WeldMetrics --json | jq '.fields[].key'\n"
                     "telvane records WeldMetrics --schema\n");
    command.run([options] { return show(*options); });
}

} // namespace TelvaneTool

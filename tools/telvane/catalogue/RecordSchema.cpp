// The schema describes what a sender should write: every key, integers without fractions. The library also reads keys
// in any letter case, unknown keys and fractions of integers, which a schema for editors and code generators should not
// suggest.

#include "catalogue/RecordSchema.h"

#include "common/bus/RecordCheck.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

namespace TelvaneTool
{

using Telvane::FieldKind;
using Telvane::RecordCatalogue;
using Telvane::RecordClass;
using Telvane::RecordField;
using Telvane::RecordTable;

namespace
{

cJSON* add(cJSON* object, const char* key, cJSON* value)
{
    cJSON_AddItemToObject(object, key, value);
    return value;
}

JsonTree ofType(const char* type)
{
    JsonTree schema(cJSON_CreateObject());
    addText(schema.get(), "type", type);
    return schema;
}

JsonTree integer()
{
    JsonTree schema = ofType("integer");
    add(schema.get(), "minimum", cJSON_CreateNumber(std::numeric_limits<int>::min()));
    add(schema.get(), "maximum", cJSON_CreateNumber(std::numeric_limits<int>::max()));
    return schema;
}

/// Collects the referenced classes, so that each is defined once under "$defs".
class SchemaWriter
{
public:
    JsonTree ofClass(const RecordClass& recordClass)
    {
        const RecordTable& table = recordClass.table();
        if (isTimeStamp(table)) {
            JsonTree schema = ofType("string");
            addText(schema.get(), "description", "Time stamp: milliseconds since the Unix epoch");
            addText(schema.get(), "pattern", R"(^/Date\([0-9]+\)/$)");
            return schema;
        }
        JsonTree schema = ofType("object");
        cJSON* const properties = add(schema.get(), "properties", cJSON_CreateObject());
        JsonTree required(cJSON_CreateArray());
        const JsonTree defaults = packagedDefault(recordClass);
        for (const RecordField& field : table.fields()) {
            JsonTree property = ofField(field);
            const cJSON* const value = cJSON_GetObjectItemCaseSensitive(defaults.get(), field.key);
            if (field.kind != FieldKind::Record && value != nullptr) {
                add(property.get(), "default", cJSON_Duplicate(value, 1));
            }
            add(properties, field.key, property.release());
            cJSON_AddItemToArray(required.get(), cJSON_CreateString(field.key));
        }
        add(properties, "_id", ofType("string").release());
        add(properties, "_sequence_tag", integer().release());
        add(schema.get(), "required", required.release());
        return schema;
    }

    /// Adds the referenced classes, and the classes that they reference.
    void addDefinitions(cJSON* schema)
    {
        cJSON* const definitions = add(schema, "$defs", cJSON_CreateObject());
        for (std::size_t done = 0; done < m_names.size(); ++done) {
            const std::string name = m_names[done];
            if (const RecordClass* const found = RecordCatalogue::find(name)) {
                add(definitions, name.c_str(), ofClass(*found).release());
            }
        }
    }

    JsonTree reference(const std::string& name)
    {
        if (std::find(m_names.begin(), m_names.end(), name) == m_names.end()) {
            m_names.push_back(name);
        }
        JsonTree schema(cJSON_CreateObject());
        addText(schema.get(), "$ref", "#/$defs/" + name);
        return schema;
    }

private:
    JsonTree nestedReference(const RecordField& field)
    {
        return reference(field.nested->table().className());
    }

    JsonTree ofField(const RecordField& field)
    {
        switch (field.kind) {
        case FieldKind::Integer:
            return integer();
        case FieldKind::Number:
            return ofType("number");
        case FieldKind::Flag:
            return ofType("boolean");
        case FieldKind::Text:
            return ofType("string");
        case FieldKind::Record:
            return nestedReference(field);
        case FieldKind::FlagArray:
            return arrayOf(ofType("boolean"), field, 1);
        case FieldKind::IntegerArray:
            return arrayOf(integer(), field, 1);
        case FieldKind::RecordArray:
            return arrayOf(nestedReference(field), field, 1);
        case FieldKind::RecordVector:
            return arrayOf(nestedReference(field), field, 0);
        case FieldKind::Value:
            break; // in applications' own records only
        }
        return JsonTree(cJSON_CreateObject());
    }

    static JsonTree arrayOf(JsonTree items, const RecordField& field, int minItems)
    {
        JsonTree schema = ofType("array");
        add(schema.get(), "items", items.release());
        add(schema.get(), "minItems", cJSON_CreateNumber(minItems));
        add(schema.get(), "maxItems", cJSON_CreateNumber(field.limit));
        return schema;
    }

    std::vector<std::string> m_names; ///< referenced classes, in order of reference
};

JsonTree head(const char* title)
{
    JsonTree schema(cJSON_CreateObject());
    addText(schema.get(), "$schema", "https://json-schema.org/draft/2020-12/schema");
    addText(schema.get(), "title", title);
    return schema;
}

} // namespace

JsonTree packagedDefault(const RecordClass& recordClass)
{
    cJSON* tree = nullptr;
    const std::unique_ptr<Telvane::TelvaneDataTypeBase> record(recordClass.build());
    record->Package(&tree);
    return JsonTree(tree);
}

JsonTree recordSchema(const RecordClass& recordClass)
{
    SchemaWriter writer;
    JsonTree schema = head(recordClass.name);
    JsonTree body = writer.ofClass(recordClass);
    while (cJSON* const member = body->child) {
        const std::string key = member->string;
        add(schema.get(), key.c_str(), cJSON_DetachItemViaPointer(body.get(), member));
    }
    writer.addDefinitions(schema.get());
    if (cJSON_GetObjectItemCaseSensitive(schema.get(), "$defs")->child == nullptr) {
        cJSON_DeleteItemFromObjectCaseSensitive(schema.get(), "$defs");
    }
    return schema;
}

JsonTree catalogueSchema()
{
    SchemaWriter writer;
    JsonTree schema = head("Records of libTelvane");
    for (const RecordClass& recordClass : RecordCatalogue::classes()) {
        writer.reference(recordClass.name);
    }
    writer.addDefinitions(schema.get());
    return schema;
}

} // namespace TelvaneTool

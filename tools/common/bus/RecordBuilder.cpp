// A record is built and checked as a JSON tree first, because a tree can hold errors that a record cannot: wrong
// types, unknown keys, numbers out of range.

#include "common/bus/RecordBuilder.h"

#include "common/bus/RecordCheck.h"
#include "common/support/JsonPath.h"

#include <Telvane/DateTime.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace TelvaneTool
{

using Telvane::DateTime;
using Telvane::FieldKind;
using Telvane::RecordCatalogue;
using Telvane::RecordClass;
using Telvane::RecordField;
using Telvane::RecordTable;
using Telvane::TelvaneDataTypeBase;

bool RawRecord::_packageData(cJSON* output)
{
    for (const cJSON* item = m_object != nullptr ? m_object->child : nullptr; item != nullptr;
         item = item->next) {
        cJSON_AddItemToObject(output, item->string, cJSON_Duplicate(item, 1));
    }
    return true;
}

bool RawRecord::_unpackageData(cJSON* input)
{
    m_object = JsonTree(cJSON_Duplicate(input, 1));
    return m_object != nullptr;
}

int RawRecord::copy(TelvaneDataTypeBase* other)
{
    const auto* const source = dynamic_cast<RawRecord*>(other);
    if (source == nullptr) {
        return -EINVAL;
    }
    m_object = source->m_object;
    return TelvaneDataTypeBase::copy(other);
}

TelvaneDataTypeBase* RawRecord::BuildNewDataType() const
{
    return new RawRecord();
}

namespace
{

const RecordField* findField(const RecordTable& table, const std::string& key)
{
    for (const RecordField& field : table.fields()) {
        if (strcasecmp(field.key, key.c_str()) == 0) {
            return &field;
        }
    }
    return nullptr;
}

JsonTree readValue(const std::string& text, bool isText, const RecordTable* nested)
{
    if (nested != nullptr && isTimeStamp(*nested)) {
        return JsonTree(
            cJSON_CreateString(text == "now" ? DateTime::Now().ToString().c_str() : text.c_str()));
    }
    std::string ignored;
    JsonTree value = isText ? nullptr : parseJson(text, ignored);
    // Invalid JSON stays a string; checkRecord() then reports the expected type.
    return value != nullptr ? std::move(value) : JsonTree(cJSON_CreateString(text.c_str()));
}

/// Applies one "key=value" to the tree of a record.
class Setting
{
public:
    explicit Setting(const std::string& text)
        : m_text(text), m_path(text.substr(0, text.find('='))), m_steps(splitPath(m_path))
    {}

    /// \return an error message, or an empty text
    std::string apply(cJSON* record, const RecordTable& table)
    {
        if (m_steps.empty() || m_path.size() == m_text.size()) {
            return "\"" + m_text + "\" is not of the form key=value";
        }
        m_value = m_text.substr(m_path.size() + 1);
        return applyToRecord(record, table, 0);
    }

private:
    std::string applyToRecord(cJSON* record, const RecordTable& table, std::size_t at)
    {
        const std::string& key = m_steps[at++];
        const bool last = at == m_steps.size();
        if (last && (key == "_id" || key == "_sequence_tag")) {
            put(record, key.c_str(), readValue(m_value, key == "_id", nullptr));
            return {};
        }
        const RecordField* const field = findField(table, key);
        if (field == nullptr) {
            return m_path + ": " + table.className() + " has no key \"" + key + "\"";
        }
        const RecordTable* const nested = field->nested != nullptr ? &field->nested->table() : nullptr;
        if (last && field->kind == FieldKind::Number && isNotFinite(m_value)) {
            return m_path + ": " + m_value + " cannot be sent; it would arrive as null";
        }
        if (last) {
            put(record, field->key, readValue(m_value, field->kind == FieldKind::Text, nested));
            return {};
        }
        cJSON* const item = cJSON_GetObjectItem(record, field->key);
        if (nested != nullptr && cJSON_IsObject(item) != 0) {
            return applyToRecord(item, *nested, at);
        }
        if (cJSON_IsArray(item) != 0) {
            return applyToElement(item, *field, at);
        }
        return m_path + ": " + field->key + " is not a record or an array";
    }

    std::string applyToElement(cJSON* array, const RecordField& field, std::size_t at)
    {
        const std::string& step = m_steps[at++];
        const int index = readIndex(step);
        const int size = cJSON_GetArraySize(array);
        const RecordTable* const nested = field.nested != nullptr ? &field.nested->table() : nullptr;
        // A vector may grow by one element at its end.
        const bool grows = nested != nullptr && field.kind == FieldKind::RecordVector && index == size &&
                           size < static_cast<int>(field.limit);
        if (index < 0 || (index >= size && !grows)) {
            return m_path + ": " + field.key + " has no element " + step + "; its size is " +
                   std::to_string(size);
        }
        if (grows) {
            cJSON* element = nullptr;
            RecordCatalogue::build(nested->className())->Package(&element);
            cJSON_AddItemToArray(array, element);
        }
        if (at < m_steps.size()) {
            if (nested == nullptr) {
                return m_path + ": the elements of " + field.key + " are not records";
            }
            return applyToRecord(cJSON_GetArrayItem(array, index), *nested, at);
        }
        cJSON_ReplaceItemInArray(array, index, readValue(m_value, false, nested).release());
        return {};
    }

    static bool isNotFinite(const std::string& text)
    {
        char* end = nullptr;
        const double number = std::strtod(text.c_str(), &end);
        return !text.empty() && *end == '\0' && !std::isfinite(number);
    }

    static void put(cJSON* object, const char* key, JsonTree value)
    {
        if (cJSON_GetObjectItem(object, key) != nullptr) {
            cJSON_ReplaceItemInObject(object, key, value.release());
        } else {
            cJSON_AddItemToObject(object, key, value.release());
        }
    }

    const std::string m_text;
    const std::string m_path;
    const std::vector<std::string> m_steps;
    std::string m_value;
};

/// \return the path of the first number that a double cannot hold; empty if there is none
std::string findInfinite(const cJSON* value, const std::string& path)
{
    if (cJSON_IsNumber(value) != 0) {
        return std::isfinite(value->valuedouble) ? std::string() : path.empty() ? "the record" : path;
    }
    int index = 0;
    for (const cJSON* item = value->child; item != nullptr; item = item->next) {
        const std::string step = item->string != nullptr
                                     ? (path.empty() ? "" : ".") + std::string(item->string)
                                     : "[" + std::to_string(index++) + "]";
        std::string found = findInfinite(item, path + step);
        if (!found.empty()) {
            return found;
        }
    }
    return {};
}

JsonTree defaultTree(const RecordClass& recordClass)
{
    cJSON* tree = nullptr;
    const std::unique_ptr<TelvaneDataTypeBase> record(recordClass.build());
    record->Package(&tree);
    return JsonTree(tree);
}

} // namespace

std::unique_ptr<TelvaneDataTypeBase> buildRecord(const RecordRequest& request, const std::string* json,
                                                 std::string& error)
{
    JsonTree tree;
    if (json != nullptr) {
        tree = parseJson(*json, error);
    } else if (request.recordClass != nullptr) {
        tree = defaultTree(*request.recordClass);
    } else {
        error = "no record given; pass its JSON text, or a class with --as";
    }
    if (tree == nullptr) {
        return nullptr;
    }
    if (const std::string key = findInfinite(tree.get(), {}); !key.empty()) {
        error = key + ": the number is too large"; // it would be sent as null
        return nullptr;
    }
    if (request.recordClass == nullptr) {
        if (!request.settings.empty()) {
            error = "--set requires a class; pass one with --as";
        } else if (cJSON_IsObject(tree.get()) == 0) {
            error = std::string("a record must be a JSON object, not ") + kindOf(tree.get());
        } else {
            return std::make_unique<RawRecord>(std::move(tree));
        }
        return nullptr;
    }
    const RecordTable& table = request.recordClass->table();
    for (const std::string& setting : request.settings) {
        error = Setting(setting).apply(tree.get(), table);
        if (!error.empty()) {
            return nullptr;
        }
    }
    error = checkRecord(tree.get(), table, Strictness::Sending);
    if (!error.empty()) {
        return nullptr;
    }
    std::unique_ptr<TelvaneDataTypeBase> record(request.recordClass->build());
    if (record->Unpackage(tree.get()) != 0) {
        error = std::string("cannot read the record as ") + request.recordClass->name;
        return nullptr;
    }
    return record;
}

std::size_t publicationSize(const std::string& channel, TelvaneDataTypeBase& record)
{
    JsonTree envelope(cJSON_CreateObject());
    cJSON_AddItemToObject(envelope.get(), "header", cJSON_CreateString(channel.c_str()));
    cJSON* payload = nullptr;
    record.Package(&payload);
    cJSON_AddItemToObject(envelope.get(), "payload", payload);
    const JsonText text(cJSON_Print(envelope.get())); // as it is sent
    return text != nullptr ? std::strlen(text.get()) : 0;
}

std::string checkPublicationSize(std::size_t size)
{
    if (size <= kMaxPublicationSize) {
        return {};
    }
    return "the message is too large: " + std::to_string(size) + " bytes; the limit is " +
           std::to_string(kMaxPublicationSize) + " bytes";
}

} // namespace TelvaneTool

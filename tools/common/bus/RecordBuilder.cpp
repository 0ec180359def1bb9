// Everything is put together and checked as a JSON tree first, since a tree can hold what a record cannot:
// wrong types, unknown keys, numbers that do not fit. Only a tree without fault becomes a record.

#include "common/bus/RecordBuilder.h"

#include "common/bus/RecordCheck.h"

#include <Telvane/DateTime.h>

#include <cerrno>
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

/// Takes "name" or "name[3]" or "name.3" apart at its first step.
std::string takeStep(std::string& path)
{
    const std::size_t end = path.find_first_of(".[", path.empty() ? 0 : 1);
    std::string step = path.substr(0, end);
    path.erase(0, end);
    if (!path.empty() && path.front() == '.') {
        path.erase(0, 1);
    }
    if (!step.empty() && step.front() == '[' && step.back() == ']') {
        step = step.substr(1, step.size() - 2);
    }
    return step;
}

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
    // What is no JSON stays a string, and the check of the whole record tells what was expected there.
    return value != nullptr ? std::move(value) : JsonTree(cJSON_CreateString(text.c_str()));
}

/// One "key=value", applied to the tree of a record.
class Setting
{
public:
    explicit Setting(const std::string& text) : m_text(text)
    {
        const std::size_t equals = text.find('=');
        m_valid = equals != std::string::npos && equals > 0;
        m_path = text.substr(0, equals);
        m_value = m_valid ? text.substr(equals + 1) : "";
    }

    bool apply(cJSON* record, const RecordTable& table, std::string& error)
    {
        if (!m_valid) {
            error = "\"" + m_text + "\" is not of the form key=value";
            return false;
        }
        std::string rest = m_path;
        return applyToRecord(record, table, rest, error);
    }

private:
    bool applyToRecord(cJSON* record, const RecordTable& table, std::string& rest, std::string& error)
    {
        const std::string key = takeStep(rest);
        if (rest.empty() && (key == "_id" || key == "_sequence_tag")) {
            put(record, key.c_str(), readValue(m_value, key == "_id", nullptr));
            return true;
        }
        const RecordField* const field = findField(table, key);
        if (field == nullptr) {
            error = m_path + ": there is no key \"" + key + "\" in " + table.className();
            return false;
        }
        const RecordTable* const nested = field->nested != nullptr ? &field->nested->table() : nullptr;
        if (rest.empty()) {
            put(record, field->key, readValue(m_value, field->kind == FieldKind::Text, nested));
            return true;
        }
        cJSON* const item = cJSON_GetObjectItem(record, field->key);
        if (nested != nullptr && cJSON_IsObject(item) != 0) {
            return applyToRecord(item, *nested, rest, error);
        }
        if (cJSON_IsArray(item) != 0) {
            return applyToElement(item, *field, rest, error);
        }
        error = m_path + ": " + field->key + " has no parts";
        return false;
    }

    bool applyToElement(cJSON* array, const RecordField& field, std::string& rest, std::string& error)
    {
        const std::string step = takeStep(rest);
        char* end = nullptr;
        const unsigned long index = std::strtoul(step.c_str(), &end, 10);
        const auto size = static_cast<unsigned long>(cJSON_GetArraySize(array));
        const RecordTable* const nested = field.nested != nullptr ? &field.nested->table() : nullptr;
        // A growing sequence may be grown by one element at its end.
        const bool grows = nested != nullptr && field.kind == FieldKind::RecordVector && index == size &&
                           index < field.limit;
        if (step.empty() || *end != '\0' || (index >= size && !grows)) {
            error = m_path + ": there is no element " + step + " in " + field.key + ", which has " +
                    std::to_string(size);
            return false;
        }
        if (grows) {
            cJSON* element = nullptr;
            RecordCatalogue::build(nested->className())->Package(&element);
            cJSON_AddItemToArray(array, element);
        }
        if (!rest.empty() && nested != nullptr) {
            return applyToRecord(cJSON_GetArrayItem(array, static_cast<int>(index)), *nested, rest, error);
        }
        cJSON_ReplaceItemInArray(array, static_cast<int>(index), readValue(m_value, false, nested).release());
        return true;
    }

    static void put(cJSON* object, const char* key, JsonTree value)
    {
        if (cJSON_GetObjectItem(object, key) != nullptr) {
            cJSON_ReplaceItemInObject(object, key, value.release());
        } else {
            cJSON_AddItemToObject(object, key, value.release());
        }
    }

    std::string m_text;
    bool m_valid = false;
    std::string m_path;
    std::string m_value;
};

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
        error = "no record: give its JSON text, or a class with --as";
    }
    if (tree == nullptr) {
        return nullptr;
    }
    if (request.recordClass == nullptr) {
        if (!request.settings.empty()) {
            error = "--set needs to know the class: name it with --as";
        } else if (cJSON_IsObject(tree.get()) == 0) {
            error = std::string("a record is a JSON object, this is ") + kindOf(tree.get());
        } else {
            return std::make_unique<RawRecord>(std::move(tree));
        }
        return nullptr;
    }
    const RecordTable& table = request.recordClass->table();
    for (const std::string& setting : request.settings) {
        if (!Setting(setting).apply(tree.get(), table, error)) {
            return nullptr;
        }
    }
    error = checkRecord(tree.get(), table, Strictness::Sending);
    if (!error.empty()) {
        return nullptr;
    }
    std::unique_ptr<TelvaneDataTypeBase> record(request.recordClass->build());
    if (record->Unpackage(tree.get()) != 0) {
        error = std::string("cannot be read as ") + request.recordClass->name;
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
    return printJson(envelope.get(), true).size();
}

std::string checkPublicationSize(std::size_t size)
{
    if (size <= kLargestPublication) {
        return {};
    }
    return "the record makes a message of " + std::to_string(size) + " bytes, and only messages of up to " +
           std::to_string(kLargestPublication) + " bytes are sure to arrive whole";
}

} // namespace TelvaneTool

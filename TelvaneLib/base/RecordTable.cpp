// Writes all record classes to JSON trees and reads them, from their lists of fields.
//
// Both follow the order of the list and stop at the first field that fails, which is reported in one line.
// Reading first compares field i with member i of the JSON object, because keys nearly always arrive in the
// order in which they are written: while all fields so far have matched, a match is the first one for the
// field. After a mismatch, each field is searched in the whole object. The result is the same.

#include <Telvane/RecordTable.h>

#include "base/ArrayReading.h"
#include "base/RecordEngine.h"
#include "support/Diagnostics.h"
#include "support/JsonTree.h"

#include <cstring>
#include <memory>
#include <strings.h>

namespace Telvane
{

RecordTable::~RecordTable()
{
    for (const RecordField& field : m_fields) {
        delete[] field.key;
    }
}

// Not a static object in each class: what is the same for all classes is here, which saves modules 10 kB of flash.
const RecordTable& RecordTable::create(std::atomic<const RecordTable*>& list, TelvaneDataTypeBase* (*build)(),
                                       RecordTable* (*describe)(TelvaneDataTypeBase& prototype),
                                       const std::type_info& recordClass)
{
    const std::unique_ptr<TelvaneDataTypeBase> prototype(build());
    std::unique_ptr<RecordTable> created(describe(*prototype));
    created->coverExactly(recordClass);
    const RecordTable* existing = nullptr;
    if (list.compare_exchange_strong(existing, created.get(), std::memory_order_acq_rel)) {
        return *created.release();
    }
    return *existing; // another thread was faster
}

void RecordTable::append(TelvaneDataTypeBase& base, const char*& names, FieldKind kind, const void* member,
                         std::size_t limit, const RecordField::NestedOperations* nested)
{
    // The preprocessor makes one text of all names: "first, second, third".
    const std::size_t length = std::strcspn(names, ", ");
    char* const key = new char[length + 1];
    std::memcpy(key, names, length);
    key[length] = '\0';
    names += length;
    names += std::strspn(names, ", ");

    const std::ptrdiff_t offset = static_cast<const char*>(member) - reinterpret_cast<const char*>(&base);
    m_fields.push_back(
        {key, kind, static_cast<std::uint16_t>(length), static_cast<std::uint32_t>(limit), offset, nested});
}

void RecordTable::appendValue(TelvaneDataTypeBase& base, const char*& names, const void* member,
                              const ValueOperations& operations)
{
    append(base, names, FieldKind::Value, member, 0, nullptr);
    m_fields.back().value = &operations;
}

void RecordTable::add(TelvaneDataTypeBase& base, const char*& names, int& member)
{
    append(base, names, FieldKind::Integer, &member, 0, nullptr);
}

void RecordTable::add(TelvaneDataTypeBase& base, const char*& names, double& member)
{
    append(base, names, FieldKind::Number, &member, 0, nullptr);
}

void RecordTable::add(TelvaneDataTypeBase& base, const char*& names, bool& member)
{
    append(base, names, FieldKind::Flag, &member, 0, nullptr);
}

void RecordTable::add(TelvaneDataTypeBase& base, const char*& names, std::string& member)
{
    append(base, names, FieldKind::Text, &member, 0, nullptr);
}

namespace
{

/// Adds \p item without copying \p key, which exists longer than any tree.
bool addItem(cJSON* output, const char* key, JsonTree item)
{
    if (item == nullptr || cJSON_AddItemToObjectCS(output, key, item.get()) == 0) {
        return false;
    }
    item.release();
    return true;
}

const char* readFailure(FieldKind kind)
{
    switch (kind) {
    case FieldKind::Integer:
        return "FAIL! _int_fromJson ";
    case FieldKind::Number:
        return "FAIL! _double_fromJson ";
    case FieldKind::Flag:
        return "FAIL! _bool_fromJson ";
    case FieldKind::Text:
        return "FAIL! _str_fromJson ";
    case FieldKind::Record:
        return "FAIL! _object_fromJson ";
    case FieldKind::RecordVector:
        return "FAIL! _vector_fromJson ";
    case FieldKind::Value:
        return "FAIL! _value_fromJson ";
    default:
        return "FAIL! _array_fromJson ";
    }
}

} // namespace

bool RecordEngine::write(TelvaneDataTypeBase& record, const RecordTable& table, cJSON* output)
{
    for (const RecordField& field : table.fields()) {
        if (!writeField(record, field, output)) {
            writeErrorLine(writeFailure(field.kind), field.key);
            return false;
        }
    }
    return writeBaseMembers(record, output);
}

bool RecordEngine::writeBaseMembers(const TelvaneDataTypeBase& record, cJSON* output)
{
    if (!record._id.empty()) {
        addItem(output, kIdKey, JsonTree(cJSON_CreateString(record._id.c_str())));
    }
    if (record._sequence_tag >= 0) {
        addItem(output, kSequenceTagKey, JsonTree(cJSON_CreateNumber(record._sequence_tag)));
    }
    return true;
}

bool RecordEngine::writeField(TelvaneDataTypeBase& record, const RecordField& field, cJSON* output)
{
    // A scalar is left out if memory runs out. That is not a failure of the field.
    switch (field.kind) {
    case FieldKind::Integer:
        addItem(output, field.key, JsonTree(cJSON_CreateNumber(fieldOf<int>(record, field))));
        return true;
    case FieldKind::Number:
        addItem(output, field.key, JsonTree(cJSON_CreateNumber(fieldOf<double>(record, field))));
        return true;
    case FieldKind::Flag:
        addItem(output, field.key, JsonTree(cJSON_CreateBool(fieldOf<bool>(record, field) ? 1 : 0)));
        return true;
    case FieldKind::Text:
        addItem(output, field.key, JsonTree(cJSON_CreateString(fieldOf<std::string>(record, field).c_str())));
        return true;
    case FieldKind::Record: {
        JsonTree object(cJSON_CreateObject());
        if (!fieldOf<TelvaneDataTypeBase>(record, field)._packageData(object.get())) {
            return false;
        }
        addItem(output, field.key, std::move(object));
        return true;
    }
    case FieldKind::Value: {
        if (isAbsent(record, field)) {
            return true;
        }
        JsonTree value(field.value->write(addressOf(record, field)));
        if (value == nullptr) {
            return false;
        }
        addItem(output, field.key, std::move(value));
        return true;
    }
    default:
        return writeArray(record, field, output);
    }
}

bool RecordEngine::writeArray(TelvaneDataTypeBase& record, const RecordField& field, cJSON* output)
{
    JsonTree array(cJSON_CreateArray());
    if (array == nullptr) {
        return false;
    }
    void* const first = addressOf(record, field);
    if (field.nested != nullptr) {
        const std::size_t size = field.nested->size(first);
        for (std::size_t i = 0; i < size; ++i) {
            record._addItemToJsonArray(array.get(), field.nested->element(first, i));
        }
    } else {
        for (std::uint32_t i = 0; i < field.limit; ++i) {
            if (field.kind == FieldKind::FlagArray) {
                record._addItemToJsonArray(array.get(), static_cast<const bool*>(first)[i]);
            } else {
                record._addItemToJsonArray(array.get(), static_cast<const int*>(first)[i]);
            }
        }
    }
    // If memory ran out for one element, the others would have wrong indices.
    if (field.kind != FieldKind::RecordVector &&
        cJSON_GetArraySize(array.get()) != static_cast<int>(field.limit)) {
        return false;
    }
    addItem(output, field.key, std::move(array));
    return true;
}

namespace
{

/// Finds members of a JSON object, fastest in the order of the object.
class FieldReader
{
public:
    explicit FieldReader(cJSON* object)
        : m_object(object), m_next(object != nullptr ? object->child : nullptr), m_inStep(object != nullptr)
    {}

    cJSON* find(const char* key)
    {
        if (m_inStep) {
            if (m_next != nullptr && matches(*m_next, key)) {
                cJSON* const item = m_next;
                m_next = m_next->next;
                return item;
            }
            m_inStep = false;
        }
        return cJSON_GetObjectItem(m_object, key);
    }

    /// Finds an optional member. While in step, it cannot be among the members before m_next.
    cJSON* findOptional(const char* key) const
    {
        if (!m_inStep) {
            return cJSON_GetObjectItem(m_object, key);
        }
        cJSON* item = m_next;
        while (item != nullptr && !matches(*item, key)) {
            item = item->next;
        }
        return item;
    }

private:
    static bool matches(const cJSON& item, const char* key)
    {
        return item.string != nullptr &&
               (std::strcmp(item.string, key) == 0 || strcasecmp(item.string, key) == 0);
    }

    cJSON* const m_object;
    cJSON* m_next;
    bool m_inStep;
};

} // namespace

bool RecordEngine::read(TelvaneDataTypeBase& record, const RecordTable& table, cJSON* input)
{
    FieldReader reader(input);
    for (const RecordField& field : table.fields()) {
        if (!readField(record, field, reader.find(field.key), input)) {
            writeErrorLine(readFailure(field.kind), field.key);
            return false;
        }
    }
    if (const cJSON* const id = reader.findOptional(kIdKey); cJSON_IsString(id) != 0) {
        record._id = id->valuestring;
    }
    if (const cJSON* const tag = reader.findOptional(kSequenceTagKey); cJSON_IsNumber(tag) != 0) {
        record._sequence_tag = tag->valueint;
    }
    return true;
}

bool RecordEngine::readField(TelvaneDataTypeBase& record, const RecordField& field, cJSON* item,
                             const cJSON* input)
{
    switch (field.kind) {
    case FieldKind::Integer:
        if (cJSON_IsNumber(item) == 0) {
            return false;
        }
        fieldOf<int>(record, field) = item->valueint;
        return true;
    case FieldKind::Number:
        if (cJSON_IsNumber(item) == 0) {
            return false;
        }
        fieldOf<double>(record, field) = item->valuedouble;
        return true;
    case FieldKind::Flag:
        if (cJSON_IsBool(item) == 0) {
            return false;
        }
        fieldOf<bool>(record, field) = cJSON_IsTrue(item) != 0;
        return true;
    case FieldKind::Text:
        if (cJSON_IsString(item) == 0 || item->valuestring == nullptr) {
            return false;
        }
        fieldOf<std::string>(record, field) = item->valuestring;
        return true;
    case FieldKind::Record:
        return readNested(item, fieldOf<TelvaneDataTypeBase>(record, field));
    case FieldKind::FlagArray:
        return readArray(item, field.limit, input, [&](cJSON* element, int index) {
            return record._readFromJsonItem(element, (&fieldOf<bool>(record, field))[index]);
        });
    case FieldKind::IntegerArray:
        return readArray(item, field.limit, input, [&](cJSON* element, int index) {
            return record._readFromJsonItem(element, (&fieldOf<int>(record, field))[index]);
        });
    case FieldKind::RecordArray:
        return readArray(item, field.limit, input, [&](cJSON* element, int index) {
            const auto read = [](void* source, TelvaneDataTypeBase& target) {
                return readElement(static_cast<cJSON*>(source), target);
            };
            return field.nested->readElement(addressOf(record, field), static_cast<std::size_t>(index), read,
                                             element);
        });
    case FieldKind::RecordVector:
        return readVector(record, field, item);
    case FieldKind::Value:
        return field.value->read(addressOf(record, field), item);
    }
    return false;
}

bool RecordEngine::readElement(cJSON* item, TelvaneDataTypeBase& element)
{
    return element._readFromJsonItem(item, &element);
}

bool RecordEngine::readVector(TelvaneDataTypeBase& record, const RecordField& field, const cJSON* array)
{
    if (cJSON_IsArray(array) == 0) {
        return false;
    }
    const auto size = static_cast<std::size_t>(cJSON_GetArraySize(array));
    if (size > field.limit) {
        return false;
    }
    void* const vector = addressOf(record, field);
    field.nested->resize(vector, size);
    std::size_t index = 0;
    for (cJSON* item = array->child; item != nullptr; item = item->next, ++index) {
        if (!readElement(item, field.nested->element(vector, index))) {
            return false;
        }
    }
    return true;
}

} // namespace Telvane

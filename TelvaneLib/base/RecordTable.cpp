// The one engine that writes and reads every record class from its table of fields.
//
// Writing and reading follow the table's order and stop at the first field that fails, after one line that
// names it. Reading goes in step with the members of the JSON object: keys nearly always arrive in the order
// in which they were written, and as long as member i has matched field i for all fields so far, the next
// member is, if it matches, provably the first match for the next field. Only when the step is lost does a
// field need the search through the whole object. What is read is the same either way.

#include <Telvane/RecordTable.h>

#include <Telvane/PSPrimitives.h>

#include "base/RecordEngine.h"
#include "base/Repackaging.h"
#include "support/Diagnostics.h"
#include "support/JsonTree.h"

#include <cstring>
#include <strings.h>

namespace Telvane
{

RecordTable::~RecordTable()
{
    for (const RecordField& field : m_fields) {
        delete[] field.key;
    }
}

void RecordTable::append(TelvaneDataTypeBase& base, const char*& names, FieldKind kind, const void* member,
                         std::size_t limit, const RecordField::NestedOperations* nested)
{
    // The names come as one text, as the preprocessor leaves them: "first, second, third".
    const std::size_t length = std::strcspn(names, ", ");
    char* const key = new char[length + 1];
    std::memcpy(key, names, length);
    key[length] = '\0';
    names += length;
    names += std::strspn(names, ", ");

    const std::ptrdiff_t offset = static_cast<const char*>(member) - reinterpret_cast<const char*>(&base);
    m_fields.push_back({key, kind, static_cast<std::uint32_t>(limit), offset, nested});
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

/// Adds \p item under a key that outlives every tree: the key is not copied.
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
    default:
        return "FAIL! _array_fromJson ";
    }
}

} // namespace

bool TelvaneDataTypeBase::_packageFields(const RecordTable& table, const std::type_info& tableClass,
                                         cJSON* output)
{
    if (Repackaging::begins(*this, output, typeid(*this) == tableClass)) {
        return rewriteFields(table, output);
    }
    for (const RecordField& field : table.fields()) {
        if (!writeField(field, output)) {
            writeErrorLine(writeFailure(field.kind), field.key);
            return false;
        }
    }
    return writeBaseMembers(output);
}

bool TelvaneDataTypeBase::writeBaseMembers(cJSON* output)
{
    if (!_id.empty()) {
        addItem(output, kIdKey, JsonTree(cJSON_CreateString(_id.c_str())));
    }
    return writeSequenceTag(output);
}

bool TelvaneDataTypeBase::writeSequenceTag(cJSON* output)
{
    if (_sequence_tag >= 0) {
        addItem(output, kSequenceTagKey, JsonTree(cJSON_CreateNumber(_sequence_tag)));
    }
    return true;
}

bool TelvaneDataTypeBase::writeField(const RecordField& field, cJSON* output)
{
    // A scalar that cannot be added for want of memory is left out, and that is not a failure of the field.
    switch (field.kind) {
    case FieldKind::Integer:
        addItem(output, field.key, JsonTree(cJSON_CreateNumber(fieldOf<int>(*this, field))));
        return true;
    case FieldKind::Number:
        addItem(output, field.key, JsonTree(cJSON_CreateNumber(fieldOf<double>(*this, field))));
        return true;
    case FieldKind::Flag:
        addItem(output, field.key, JsonTree(cJSON_CreateBool(fieldOf<bool>(*this, field) ? 1 : 0)));
        return true;
    case FieldKind::Text:
        addItem(output, field.key, JsonTree(cJSON_CreateString(fieldOf<std::string>(*this, field).c_str())));
        return true;
    case FieldKind::Record: {
        JsonTree object(cJSON_CreateObject());
        if (!fieldOf<TelvaneDataTypeBase>(*this, field)._packageData(object.get())) {
            return false;
        }
        addItem(output, field.key, std::move(object));
        return true;
    }
    default:
        return writeArray(field, output);
    }
}

bool TelvaneDataTypeBase::writeArray(const RecordField& field, cJSON* output)
{
    JsonTree array(cJSON_CreateArray());
    if (array == nullptr) {
        return false;
    }
    void* const first = addressOf(*this, field);
    if (field.nested != nullptr) {
        const std::size_t size = field.nested->size(first);
        for (std::size_t i = 0; i < size; ++i) {
            _addItemToJsonArray(array.get(), field.nested->element(first, i));
        }
    } else {
        for (std::uint32_t i = 0; i < field.limit; ++i) {
            if (field.kind == FieldKind::FlagArray) {
                _addItemToJsonArray(array.get(), static_cast<const bool*>(first)[i]);
            } else {
                _addItemToJsonArray(array.get(), static_cast<const int*>(first)[i]);
            }
        }
    }
    // One element lost for want of memory would shift the others to places that are not theirs.
    if (field.kind != FieldKind::RecordVector &&
        cJSON_GetArraySize(array.get()) != static_cast<int>(field.limit)) {
        return false;
    }
    addItem(output, field.key, std::move(array));
    return true;
}

/// Finds the members of a JSON object in the order in which a record asks for them.
class TelvaneDataTypeBase::FieldReader
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

    /// Finds a member that may be missing. In step, the members passed so far were all somebody else's.
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

bool TelvaneDataTypeBase::_unpackageFields(const RecordTable& table, cJSON* input)
{
    FieldReader reader(input);
    for (const RecordField& field : table.fields()) {
        if (!readField(field, reader.find(field.key), input)) {
            writeErrorLine(readFailure(field.kind), field.key);
            return false;
        }
    }
    if (const cJSON* const id = reader.findOptional(kIdKey); cJSON_IsString(id) != 0) {
        _id = id->valuestring;
    }
    if (const cJSON* const tag = reader.findOptional(kSequenceTagKey); cJSON_IsNumber(tag) != 0) {
        _sequence_tag = tag->valueint;
    }
    return true;
}

bool TelvaneDataTypeBase::readField(const RecordField& field, cJSON* item, const cJSON* input)
{
    switch (field.kind) {
    case FieldKind::Integer:
        if (cJSON_IsNumber(item) == 0) {
            return false;
        }
        fieldOf<int>(*this, field) = item->valueint;
        return true;
    case FieldKind::Number:
        if (cJSON_IsNumber(item) == 0) {
            return false;
        }
        fieldOf<double>(*this, field) = item->valuedouble;
        return true;
    case FieldKind::Flag:
        if (cJSON_IsBool(item) == 0) {
            return false;
        }
        fieldOf<bool>(*this, field) = cJSON_IsTrue(item) != 0;
        return true;
    case FieldKind::Text:
        if (cJSON_IsString(item) == 0 || item->valuestring == nullptr) {
            return false;
        }
        fieldOf<std::string>(*this, field) = item->valuestring;
        return true;
    case FieldKind::Record:
        return readNested(item, fieldOf<TelvaneDataTypeBase>(*this, field));
    case FieldKind::FlagArray:
        return readArray(item, &fieldOf<bool>(*this, field), field.limit, input);
    case FieldKind::IntegerArray:
        return readArray(item, &fieldOf<int>(*this, field), field.limit, input);
    case FieldKind::RecordArray:
        return readArray(item, &fieldOf<FlagType>(*this, field), field.limit, input);
    case FieldKind::RecordVector:
        return readVector(field, item);
    }
    return false;
}

bool TelvaneDataTypeBase::readVector(const RecordField& field, const cJSON* array)
{
    if (cJSON_IsArray(array) == 0) {
        return false;
    }
    const auto size = static_cast<std::size_t>(cJSON_GetArraySize(array));
    if (size > field.limit) {
        return false;
    }
    void* const vector = addressOf(*this, field);
    field.nested->resize(vector, size);
    std::size_t index = 0;
    for (cJSON* item = array->child; item != nullptr; item = item->next, ++index) {
        if (!_readFromJsonItem(item, &field.nested->element(vector, index))) {
            return false;
        }
    }
    return true;
}

} // namespace Telvane

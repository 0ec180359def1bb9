// The operations of all records. Operations for fields return true or false and never throw; operations for
// whole records return 0 or a negated error number. A failure of a field is reported in one line. Users filter logs by
// its text and stream, so neither may change.

#include <Telvane/TelvaneDataTypeBase.h>

#include "base/ArrayReading.h"
#include "base/RecordEngine.h"
#include "support/Diagnostics.h"
#include "support/JsonTree.h"

#include <cerrno>
#include <memory>
#include <new>
#include <sstream>
#include <uuid/uuid.h>

namespace Telvane
{

TelvaneDataTypeBase::~TelvaneDataTypeBase() = default;

bool TelvaneDataTypeBase::_packageData(cJSON* output)
{
    if (!_id.empty()) {
        _toJson("_id", _id, output);
    }
    if (_sequence_tag >= 0) {
        _toJson("_sequence_tag", _sequence_tag, output);
    }
    return true;
}

bool TelvaneDataTypeBase::_unpackageData(cJSON* input)
{
    if (input == nullptr) {
        return true;
    }
    _str_fromJson("_id", &_id, input);
    _int_fromJson("_sequence_tag", &_sequence_tag, input);
    return true;
}

int TelvaneDataTypeBase::copy(TelvaneDataTypeBase* other)
{
    _id = other->_id;
    _sequence_tag = other->_sequence_tag;
    return 0;
}

const RecordTable* TelvaneDataTypeBase::_recordTable() const
{
    return nullptr;
}

int TelvaneDataTypeBase::_extension(int /*operation*/, void* /*argument*/)
{
    return -ENOSYS;
}

int TelvaneDataTypeBase::Package(cJSON** output)
{
    *output = cJSON_CreateObject();
    if (*output == nullptr) {
        return -ENOMEM;
    }
    try {
        return _packageData(*output) ? 0 : -1;
    } catch (const std::bad_alloc&) {
        cJSON_Delete(*output);
        *output = nullptr;
        return -ENOMEM;
    }
}

int TelvaneDataTypeBase::Unpackage(cJSON* input)
{
    try {
        return _unpackageData(input) ? 0 : -EINVAL;
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
}

int TelvaneDataTypeBase::Unpackage(cJSON* input, TelvaneDataTypeBase** output)
{
    std::unique_ptr<TelvaneDataTypeBase> record;
    try {
        record.reset(BuildNewDataType());
    } catch (const std::bad_alloc&) {
        // Handled below.
    }
    *output = record.get();
    const int result = record != nullptr ? record->Unpackage(input) : -ENOMEM;
    if (result == 0) {
        record.release();
    }
    return result;
}

bool TelvaneDataTypeBase::ToJson(std::string& text)
{
    cJSON* packaged = nullptr;
    const int result = Package(&packaged);
    const JsonTree object(packaged);
    if (result != 0) {
        return false;
    }
    const JsonText printed(cJSON_Print(object.get()));
    if (printed == nullptr) {
        return false;
    }
    try {
        text = printed.get();
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool TelvaneDataTypeBase::FromJson(const std::string& text)
{
    const JsonTree object(cJSON_Parse(text.c_str()));
    if (object == nullptr) {
        return false;
    }
    // The whole process shares the error position. Unless it is in this text, it belongs to another thread,
    // which may have freed its text.
    const char* const position = cJSON_GetErrorPtr();
    if (position >= text.c_str() && position <= text.c_str() + text.size()) {
        writeErrorLine(position);
    }
    return Unpackage(object.get()) == 0;
}

std::string TelvaneDataTypeBase::GetString()
{
    std::string text;
    ToJson(text);
    return text;
}

void TelvaneDataTypeBase::generate_id()
{
    if (!_id.empty()) {
        return;
    }
    uuid_t uuid;
    char text[UUID_STR_LEN];
    uuid_generate(uuid);
    uuid_unparse(uuid, text);
    try {
        _id = text;
    } catch (const std::bad_alloc&) {
        // The identifier stays empty.
    }
}

bool TelvaneDataTypeBase::_toJson(const std::string& field_name, int value, cJSON* output)
{
    cJSON_AddNumberToObject(output, field_name.c_str(), static_cast<double>(value));
    return true;
}

bool TelvaneDataTypeBase::_toJson(const std::string& field_name, const std::string& value, cJSON* output)
{
    return _toJson(field_name, value.c_str(), output);
}

bool TelvaneDataTypeBase::_toJson(const std::string& field_name, const char* value, cJSON* output)
{
    cJSON_AddStringToObject(output, field_name.c_str(), value);
    return true;
}

bool TelvaneDataTypeBase::_toJson(const std::string& field_name, double value, cJSON* output)
{
    cJSON_AddNumberToObject(output, field_name.c_str(), value);
    return true;
}

bool TelvaneDataTypeBase::_toJson(const std::string& field_name, bool value, cJSON* output)
{
    cJSON_AddBoolToObject(output, field_name.c_str(), value ? 1 : 0);
    return true;
}

bool TelvaneDataTypeBase::_toJson(const std::string& field_name, TelvaneDataTypeBase& value, cJSON* output)
{
    JsonTree object(cJSON_CreateObject());
    if (!value._packageData(object.get())) {
        return false;
    }
    if (cJSON_AddItemToObject(output, field_name.c_str(), object.get()) != 0) {
        object.release();
    }
    return true;
}

bool TelvaneDataTypeBase::_int_fromJson(const std::string& field_name, int* target, cJSON* input)
{
    const cJSON* const item = cJSON_GetObjectItem(input, field_name.c_str());
    if (cJSON_IsNumber(item) == 0) {
        return false;
    }
    *target = item->valueint;
    return true;
}

bool TelvaneDataTypeBase::_str_fromJson(const std::string& field_name, std::string* target, cJSON* input)
{
    const cJSON* const item = cJSON_GetObjectItem(input, field_name.c_str());
    if (cJSON_IsString(item) == 0 || item->valuestring == nullptr) {
        return false;
    }
    *target = item->valuestring;
    return true;
}

bool TelvaneDataTypeBase::_double_fromJson(const std::string& field_name, double* target, cJSON* input)
{
    const cJSON* const item = cJSON_GetObjectItem(input, field_name.c_str());
    if (cJSON_IsNumber(item) == 0) {
        return false;
    }
    *target = item->valuedouble;
    return true;
}

bool TelvaneDataTypeBase::_bool_fromJson(const std::string& field_name, bool* target, cJSON* input)
{
    const cJSON* const item = cJSON_GetObjectItem(input, field_name.c_str());
    if (cJSON_IsBool(item) == 0) {
        return false;
    }
    *target = cJSON_IsTrue(item) != 0;
    return true;
}

bool TelvaneDataTypeBase::_object_fromJson(const std::string& field_name, TelvaneDataTypeBase* value,
                                           cJSON* input)
{
    return RecordEngine::readNested(cJSON_GetObjectItem(input, field_name.c_str()), *value);
}

bool RecordEngine::readNested(cJSON* item, TelvaneDataTypeBase& target)
{
    if (item == nullptr) {
        writeOutputLine("TelvaneDataTypeBase::_object_fromJson(const std::string& field_name, "
                        "TelvaneDataTypeBase* value, cJSON* input) error!");
        return false;
    }
    return target._unpackageData(item);
}

bool TelvaneDataTypeBase::_packageFields(const RecordTable& table, cJSON* output)
{
    return RecordEngine::write(*this, table, output);
}

bool TelvaneDataTypeBase::_unpackageFields(const RecordTable& table, cJSON* input)
{
    return RecordEngine::read(*this, table, input);
}

bool TelvaneDataTypeBase::_readFromJsonItem(cJSON* item, double& target)
{
    if (cJSON_IsNumber(item) == 0) {
        writeOutputLine("TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, double &target) error!");
        return false;
    }
    target = item->valuedouble;
    return true;
}

bool TelvaneDataTypeBase::_readFromJsonItem(cJSON* item, int& target)
{
    if (cJSON_IsNumber(item) == 0) {
        writeOutputLine("TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, int &target) error!");
        return false;
    }
    target = item->valueint;
    return true;
}

bool TelvaneDataTypeBase::_readFromJsonItem(cJSON* item, bool& target)
{
    if (cJSON_IsBool(item) == 0) {
        writeOutputLine("TelvaneDataTypeBase::_readFromJsonItem(cJSON *item, bool &target) error!");
        return false;
    }
    target = cJSON_IsTrue(item) != 0;
    return true;
}

bool TelvaneDataTypeBase::_readFromJsonItem(cJSON* item, BoolFlag& target)
{
    if (cJSON_IsBool(item) == 0) {
        writeOutputLine("_readFromJsonItem(cJSON *item, BoolFlag &target) error!");
        return false;
    }
    target = BoolFlag(cJSON_IsTrue(item) != 0);
    return true;
}

bool TelvaneDataTypeBase::_readFromJsonItem(cJSON* item, TelvaneDataTypeBase* target)
{
    if (item == nullptr || target == nullptr) {
        writeErrorLine("FAIL! _readFromJsonItem - NUll arguments passed");
        return false;
    }
    if (cJSON_IsObject(item) == 0) {
        writeErrorLine("FAIL! _readFromJsonItem item not an object ");
        return false;
    }
    if (!target->_unpackageData(item)) {
        writeErrorLine("FAIL! _readFromJsonItem Unpackage Failed ");
        return false;
    }
    return true;
}

void TelvaneDataTypeBase::_addItemToJsonArray(cJSON* array, double value)
{
    cJSON_AddItemToArray(array, cJSON_CreateNumber(value));
}

void TelvaneDataTypeBase::_addItemToJsonArray(cJSON* array, int value)
{
    cJSON_AddItemToArray(array, cJSON_CreateNumber(static_cast<double>(value)));
}

void TelvaneDataTypeBase::_addItemToJsonArray(cJSON* array, bool value)
{
    cJSON_AddItemToArray(array, cJSON_CreateBool(value ? 1 : 0));
}

void TelvaneDataTypeBase::_addItemToJsonArray(cJSON* array, BoolFlag value)
{
    _addItemToJsonArray(array, static_cast<bool>(value));
}

void TelvaneDataTypeBase::_addItemToJsonArray(cJSON* array, TelvaneDataTypeBase& value)
{
    cJSON* packaged = nullptr;
    const int result = value.Package(&packaged);
    JsonTree object(packaged);
    if (result == 0 && cJSON_AddItemToArray(array, object.get()) != 0) {
        object.release();
    }
}

void reportArrayElement(const cJSON& item, int size, int index, const cJSON& input)
{
    std::ostringstream line;
    line << "_readFromJsonItem error!  Type: " << (item.type & 0xFF) << " Value Db: " << item.valuedouble
         << " Array Size: " << size << " Index: " << index;
    writeOutputLine(line.str());
    if (input.string != nullptr) {
        writeOutputLine(input.string);
    }
}

TELVANE_DEFINE_ARRAY_READER(bool)
TELVANE_DEFINE_ARRAY_READER(int)

} // namespace Telvane

// The library's part in fields without a FieldKind of their own: the JSON tree of one value. The types are known
// in the application only, where RecordValues.h composes these functions.

#include <Telvane/RecordTable.h>
#include <Telvane/detail/RecordValues.h>

#include <cstdio>
#include <cstdlib>
#include <new>

namespace Telvane::Detail
{

namespace
{

JsonValue::Tree checked(cJSON* tree)
{
    if (tree == nullptr) {
        throw std::bad_alloc();
    }
    return JsonValue::Tree(tree);
}

} // namespace

void JsonValue::Deleter::operator()(cJSON* tree) const
{
    cJSON_Delete(tree);
}

JsonValue::Tree JsonValue::number(double value)
{
    return checked(cJSON_CreateNumber(value));
}

JsonValue::Tree JsonValue::flag(bool value)
{
    return checked(cJSON_CreateBool(value ? 1 : 0));
}

JsonValue::Tree JsonValue::text(const std::string& value)
{
    return checked(cJSON_CreateString(value.c_str()));
}

JsonValue::Tree JsonValue::record(const TelvaneDataTypeBase& value)
{
    Tree object = map();
    // Writing a record does not change it, although the function is not const.
    return const_cast<TelvaneDataTypeBase&>(value)._packageData(object.get()) ? std::move(object) : nullptr;
}

JsonValue::Tree JsonValue::list()
{
    return checked(cJSON_CreateArray());
}

JsonValue::Tree JsonValue::map()
{
    return checked(cJSON_CreateObject());
}

void JsonValue::append(cJSON* list, Tree element)
{
    if (cJSON_AddItemToArray(list, element.get()) == 0) {
        throw std::bad_alloc();
    }
    element.release();
}

void JsonValue::add(cJSON* map, const std::string& key, Tree value)
{
    if (cJSON_AddItemToObject(map, key.c_str(), value.get()) == 0) {
        throw std::bad_alloc();
    }
    value.release();
}

double JsonValue::shortest(float value)
{
    constexpr int kMinDigits = 6; // a float keeps any 6, and 9 determine it
    constexpr int kMaxDigits = 9;
    double number = static_cast<double>(value);
    for (int digits = kMinDigits; digits < kMaxDigits; ++digits) {
        char text[32];
        std::snprintf(text, sizeof text, "%.*g", digits, static_cast<double>(value));
        if (std::strtof(text, nullptr) == value) {
            number = std::strtod(text, nullptr);
            break;
        }
    }
    return number;
}

bool JsonValue::read(const cJSON* item, double& value)
{
    if (cJSON_IsNumber(item) == 0) {
        return false;
    }
    value = item->valuedouble;
    return true;
}

bool JsonValue::read(const cJSON* item, bool& value)
{
    if (cJSON_IsBool(item) == 0) {
        return false;
    }
    value = cJSON_IsTrue(item) != 0;
    return true;
}

bool JsonValue::read(const cJSON* item, std::string& value)
{
    if (cJSON_IsString(item) == 0 || item->valuestring == nullptr) {
        return false;
    }
    value = item->valuestring;
    return true;
}

bool JsonValue::read(const cJSON* item, TelvaneDataTypeBase& value)
{
    const RecordTable* const table = value._recordTable();
    const bool isText = table != nullptr && table->textForm() != nullptr;
    if (item == nullptr || (!isText && cJSON_IsObject(item) == 0)) {
        return false;
    }
    return value._unpackageData(const_cast<cJSON*>(item)); // which does not change it
}

bool JsonValue::isList(const cJSON* item)
{
    return cJSON_IsArray(item) != 0;
}

bool JsonValue::isMap(const cJSON* item)
{
    return cJSON_IsObject(item) != 0;
}

bool JsonValue::isMissing(const cJSON* item)
{
    return item == nullptr || cJSON_IsNull(item) != 0;
}

} // namespace Telvane::Detail

// The library reports an unreadable record in one line with the invalid key, without its path or the expected type.
// Values are therefore checked here first, against the same tables.

#include "common/bus/RecordCheck.h"

#include "common/support/Json.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <strings.h>

namespace TelvaneTool
{

using Telvane::FieldKind;
using Telvane::RecordField;
using Telvane::RecordTable;

namespace
{

constexpr const char* kTimeForm = "a time, \"/Date(milliseconds)/\"";

std::string join(const std::string& path, const char* key)
{
    return path.empty() ? key : path + "." + key;
}

std::string wrong(const std::string& path, const std::string& what)
{
    return path.empty() ? what : path + ": " + what;
}

std::string expected(const std::string& path, const std::string& what, const cJSON* value)
{
    return wrong(path, "expected " + what + ", got " + kindOf(value));
}

class Checker
{
public:
    explicit Checker(Strictness strictness) : m_strict(strictness == Strictness::Sending) {}

    std::string checkRecord(const cJSON* value, const RecordTable& table, const std::string& path) const
    {
        if (isTimeStamp(table)) {
            return checkTime(value, path);
        }
        if (cJSON_IsObject(value) == 0) {
            return expected(path, std::string("an object (") + table.className() + ")", value);
        }
        for (const RecordField& field : table.fields()) {
            const cJSON* const item = cJSON_GetObjectItem(value, field.key);
            const std::string fieldPath = join(path, field.key);
            if (item == nullptr) {
                return wrong(fieldPath, "missing; expected " + describe(field));
            }
            std::string error = checkField(item, field, fieldPath);
            if (!error.empty()) {
                return error;
            }
        }
        return m_strict ? checkOtherKeys(*value, table, path) : std::string();
    }

private:
    static std::string describe(const RecordField& field)
    {
        switch (field.kind) {
        case FieldKind::Integer:
            return "an integer";
        case FieldKind::Number:
            return "a number";
        case FieldKind::Flag:
            return "true or false";
        case FieldKind::Text:
            return "a string";
        case FieldKind::Record:
            return isTimeStamp(field.nested->table())
                       ? std::string(kTimeForm)
                       : std::string("an object (") + field.nested->table().className() + ")";
        case FieldKind::RecordVector:
            return "an array of at most " + std::to_string(field.limit) + " objects";
        default:
            return "an array of 1 to " + std::to_string(field.limit) + " values";
        }
    }

    std::string checkField(const cJSON* item, const RecordField& field, const std::string& path) const
    {
        bool right = false;
        switch (field.kind) {
        case FieldKind::Integer:
            return checkInteger(item, path);
        case FieldKind::Number:
            if (m_strict && cJSON_IsNumber(item) != 0 && !std::isfinite(item->valuedouble)) {
                // It would be sent as null, which receivers refuse.
                return wrong(path, "the number is too large");
            }
            right = cJSON_IsNumber(item) != 0;
            break;
        case FieldKind::Flag:
            right = cJSON_IsBool(item) != 0;
            break;
        case FieldKind::Text:
            right = cJSON_IsString(item) != 0;
            break;
        case FieldKind::Record:
            return checkRecord(item, field.nested->table(), path);
        default:
            return checkArray(item, field, path);
        }
        return right ? std::string() : expected(path, describe(field), item);
    }

    std::string checkInteger(const cJSON* item, const std::string& path) const
    {
        if (cJSON_IsNumber(item) == 0) {
            return expected(path, "an integer", item);
        }
        if (m_strict && item->valuedouble != std::trunc(item->valuedouble)) {
            return wrong(path, "expected an integer, got a fraction");
        }
        if (m_strict && (item->valuedouble < std::numeric_limits<int>::min() ||
                         item->valuedouble > std::numeric_limits<int>::max())) {
            return wrong(path, "expected a 32-bit integer, got a larger number");
        }
        return {};
    }

    std::string checkTime(const cJSON* value, const std::string& path) const
    {
        if (cJSON_IsString(value) == 0) {
            return expected(path, kTimeForm, value);
        }
        // The library reads the first digits anywhere in the text.
        const std::string text = value->valuestring;
        const std::size_t first = text.find_first_of("0123456789");
        bool right = first != std::string::npos;
        if (right) {
            char* end = nullptr;
            errno = 0;
            std::strtoll(text.c_str() + first, &end, 10);
            right =
                errno == 0 && (!m_strict || (text.substr(0, first) == "/Date(" && end == std::string(")/")));
        }
        return right ? std::string()
                     : wrong(path, std::string("expected ") + kTimeForm + ", got \"" + text + "\"");
    }

    std::string checkArray(const cJSON* item, const RecordField& field, const std::string& path) const
    {
        const bool vector = field.kind == FieldKind::RecordVector;
        if (cJSON_IsArray(item) == 0) {
            return expected(path, describe(field), item);
        }
        const int size = cJSON_GetArraySize(item);
        if ((size < 1 && !vector) || size > static_cast<int>(field.limit)) {
            return wrong(path, "expected " + describe(field) + ", got " + std::to_string(size));
        }
        int index = 0;
        for (const cJSON* element = item->child; element != nullptr; element = element->next) {
            std::string error = checkElement(element, field, path + "[" + std::to_string(index++) + "]");
            if (!error.empty()) {
                return error;
            }
        }
        return {};
    }

    std::string checkElement(const cJSON* element, const RecordField& field, const std::string& path) const
    {
        switch (field.kind) {
        case FieldKind::FlagArray:
            return cJSON_IsBool(element) != 0 ? std::string() : expected(path, "true or false", element);
        case FieldKind::IntegerArray:
            return checkInteger(element, path);
        default:
            return checkRecord(element, field.nested->table(), path);
        }
    }

    std::string checkOtherKeys(const cJSON& object, const RecordTable& table, const std::string& path) const
    {
        for (const cJSON* item = object.child; item != nullptr; item = item->next) {
            const std::string itemPath = join(path, item->string);
            if (strcasecmp(item->string, "_id") == 0) {
                if (cJSON_IsString(item) == 0) {
                    return expected(itemPath, "a string", item);
                }
            } else if (strcasecmp(item->string, "_sequence_tag") == 0) {
                std::string error = checkInteger(item, itemPath);
                if (!error.empty()) {
                    return error;
                }
            } else if (!isKeyOf(table, item->string)) {
                return wrong(itemPath, std::string(table.className()) + " has no such key");
            }
        }
        return {};
    }

    static bool isKeyOf(const RecordTable& table, const char* key)
    {
        for (const RecordField& field : table.fields()) {
            if (strcasecmp(field.key, key) == 0) {
                return true;
            }
        }
        return false;
    }

    bool m_strict;
};

} // namespace

bool isTimeStamp(const RecordTable& table)
{
    return std::strcmp(table.className(), "DateTime") == 0;
}

std::string checkRecord(const cJSON* value, const RecordTable& table, Strictness strictness)
{
    return Checker(strictness).checkRecord(value, table, {});
}

} // namespace TelvaneTool

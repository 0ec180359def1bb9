#include "common/support/JsonPath.h"

#include <charconv>

namespace TelvaneTool
{

const cJSON* findField(const cJSON* object, const std::string& path)
{
    std::size_t at = 0;
    while (at < path.size() && object != nullptr) {
        const std::size_t end = std::min(path.find_first_of(".[]", at), path.size());
        if (end > at) {
            const std::string step = path.substr(at, end - at);
            if (cJSON_IsArray(object)) {
                int index = -1;
                const auto result = std::from_chars(step.data(), step.data() + step.size(), index);
                const bool whole = result.ec == std::errc() && result.ptr == step.data() + step.size();
                object = whole && index >= 0 ? cJSON_GetArrayItem(object, index) : nullptr;
            } else {
                object = cJSON_GetObjectItem(object, step.c_str());
            }
        }
        at = end + 1;
    }
    return object;
}

std::string fieldText(const cJSON* field)
{
    if (field == nullptr) {
        return {};
    }
    return cJSON_IsString(field) ? field->valuestring : printJson(field);
}

} // namespace TelvaneTool

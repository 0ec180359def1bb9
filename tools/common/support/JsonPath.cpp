#include "common/support/JsonPath.h"

#include <algorithm>
#include <charconv>

namespace TelvaneTool
{

std::vector<std::string> splitPath(const std::string& path)
{
    std::vector<std::string> steps;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find_first_of(".[]", at), path.size());
        if (end > at) {
            steps.push_back(path.substr(at, end - at));
        }
        at = end + 1;
    }
    return steps;
}

int readIndex(const std::string& step)
{
    int index = -1;
    const auto [rest, error] = std::from_chars(step.data(), step.data() + step.size(), index);
    return error == std::errc() && rest == step.data() + step.size() ? index : -1;
}

const cJSON* findField(const cJSON* object, const std::string& path)
{
    for (const std::string& step : splitPath(path)) {
        object = cJSON_IsArray(object) != 0 ? cJSON_GetArrayItem(object, readIndex(step))
                                            : cJSON_GetObjectItem(object, step.c_str());
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

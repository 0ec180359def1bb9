#include "common/support/Json.h"

#include "common/text/JsonPrinter.h"
#include "common/text/PrintableText.h"

#include <algorithm>

namespace TelvaneTool
{

JsonTree parseJson(const std::string& text, std::string& error)
{
    const char* end = nullptr;
    JsonTree tree(cJSON_ParseWithOpts(text.c_str(), &end, 1));
    if (tree == nullptr) {
        // The parser stops at the error or just after it.
        constexpr std::size_t kShown = 16;
        const auto at = end != nullptr ? static_cast<std::size_t>(end - text.c_str()) : 0;
        const std::size_t from = at > kShown ? at - kShown : 0;
        error = text.empty()
                    ? "the JSON text is empty"
                    : "invalid JSON near character " + std::to_string(std::min(at + 1, text.size())) + ": " +
                          text.substr(from, 2 * kShown);
    }
    return tree;
}

std::string printJson(const cJSON* tree, bool pretty, std::uint64_t* replaced)
{
    std::string json;
    if (!pretty) {
        json = printOnOneLine(tree);
    } else if (const JsonText text{cJSON_Print(tree)}) {
        json = text.get();
    }
    const std::uint64_t invalid = makeJsonPrintable(json);
    if (replaced != nullptr) {
        *replaced = invalid;
    }
    return json;
}

const char* kindOf(const cJSON* value)
{
    if (value == nullptr) {
        return "nothing";
    }
    switch (value->type & 0xFF) {
    case cJSON_False:
    case cJSON_True:
        return "true or false";
    case cJSON_NULL:
        return "null";
    case cJSON_Number:
        return "a number";
    case cJSON_String:
        return "a string";
    case cJSON_Array:
        return "an array";
    case cJSON_Object:
        return "an object";
    default:
        return "an invalid value";
    }
}

} // namespace TelvaneTool

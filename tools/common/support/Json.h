#pragma once

// cJSON's trees and texts with owners.

#include <cjson/cJSON.h>

#include <memory>
#include <string>

namespace TelvaneTool
{

struct JsonDeleter
{
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
    void operator()(char* text) const { cJSON_free(text); }
};
using JsonTree = std::unique_ptr<cJSON, JsonDeleter>;
using JsonText = std::unique_ptr<char, JsonDeleter>;

/// Parses a text that holds one JSON value and nothing else.
/// \param[out] error where and why it does not parse
JsonTree parseJson(const std::string& text, std::string& error);

/// \return the value on one line, or indented
std::string printJson(const cJSON* tree, bool pretty = false);

/// \return "a number", "true or false", "a string", ...
const char* kindOf(const cJSON* value);

} // namespace TelvaneTool

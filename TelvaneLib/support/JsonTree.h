#pragma once

// Owners of cJSON's trees and texts.

#include <cjson/cJSON.h>

#include <memory>

namespace Telvane
{

struct JsonTreeDeleter
{
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using JsonTree = std::unique_ptr<cJSON, JsonTreeDeleter>;

struct JsonTextDeleter
{
    void operator()(char* text) const { cJSON_free(text); }
};
using JsonText = std::unique_ptr<char, JsonTextDeleter>;

} // namespace Telvane

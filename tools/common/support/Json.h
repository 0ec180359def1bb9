#pragma once

// Owners of cJSON's trees and texts, and shorthands for building and printing them.

#include <cjson/cJSON.h>

#include <cstdint>
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

/// Parses a text that consists of one JSON value.
/// \param[out] error set if the text is invalid: what is wrong, and where
JsonTree parseJson(const std::string& text, std::string& error);

/// \param[out] replaced count of invalid UTF-8 sequences that U+FFFD replaces; may be null
/// \return the value on one line, or indented: valid UTF-8 without control characters except line breaks and tabs
std::string printJson(const cJSON* tree, bool pretty = false, std::uint64_t* replaced = nullptr);

/// \return "a number", "true or false", "a string", ...
const char* kindOf(const cJSON* value);

template <class Number>
void addNumber(cJSON* object, const char* key, Number value)
{
    cJSON_AddNumberToObject(object, key, static_cast<double>(value));
}

inline void addText(cJSON* object, const char* key, const std::string& text)
{
    cJSON_AddStringToObject(object, key, text.c_str());
}

} // namespace TelvaneTool

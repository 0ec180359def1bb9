#pragma once

// Reads JSON text that is laid out as the JSON library's formatted printer prints it, without a tree.

#include <string>
#include <string_view>

namespace Telvane
{

/// A position in a zero-terminated text. Operations read a token and move past it. They return false if the library
/// would not print the text like this, and in a few other cases, such as characters escaped as codes. The text then has
/// to be parsed, and the position is undefined unless documented. A value that is read equals that of the library's
/// parser.
class JsonScanner
{
public:
    explicit JsonScanner(const char* text) : m_at(text) {}

    const char* position() const { return m_at; }

    /// Skips \p text. The position does not change if other text follows.
    bool skip(const char* text);
    bool newLine(int depth);
    /// Skips a key. The position does not change if another key follows.
    /// \param key the key, which contains no zero byte
    bool key(std::string_view key, bool first, int depth);

    /// \name Values
    /// @{
    bool integer(int& value);
    bool number(double& value);
    bool flag(bool& value);
    bool string(std::string& value);
    /// A string without escapes, referenced in the text.
    bool plainString(std::string_view& value);
    /// @}

private:
    const char* m_at;
};

} // namespace Telvane

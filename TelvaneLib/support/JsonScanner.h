#pragma once

// Reads JSON text that is laid out as the JSON library's formatted printer prints it, without a tree.

#include <string>
#include <string_view>

namespace Telvane
{

/// A position in a text that ends with a zero. Operations step over what they read; they return false at anything
/// that the library would not print, and at little that it would, such as characters written as codes. The
/// position is then undefined, except where told otherwise, and the text has to be parsed. What is read has the
/// value that the library's parser finds.
class JsonScanner
{
public:
    explicit JsonScanner(const char* text) : m_at(text) {}

    /// Stays in place when the text goes on otherwise.
    bool skip(const char* text);
    bool newLine(int depth);
    /// \param key without a zero. Stays in place at another one.
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

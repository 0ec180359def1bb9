#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace TelvaneArchive
{

/// Bytes that are not text.
struct Blob
{
    std::string bytes;
    bool operator==(const Blob& other) const { return bytes == other.bytes; }
};

/// A value of a database: null, a whole number, a number, a text or bytes.
using Value = std::variant<std::monostate, std::int64_t, double, std::string, Blob>;
using Row = std::vector<Value>;

inline bool isNull(const Value& value)
{
    return std::holds_alternative<std::monostate>(value);
}
/// \return a number as a whole number; 0 for anything else
std::int64_t wholeOf(const Value& value);
/// \return a number; 0 for anything else
double numberOf(const Value& value);
/// \return a text, or an empty text for anything else
const std::string& textOf(const Value& value);
/// \return the bytes, or none for anything else
const std::string& bytesOf(const Value& value);

/// A statement in SQL.
///
/// It can only be put together from string literals and the numbers of parameters, so no text that was read
/// from outside can become part of a statement. Values are passed as parameters, written "$1", "$2" and so on.
class Sql
{
public:
    Sql() = default;
    template <std::size_t N>
    Sql(const char (&literal)[N]) : m_text(literal) // NOLINT(google-explicit-constructor): reads as SQL
    {}
    /// A buffer is not a literal.
    template <std::size_t N>
    Sql(char (&buffer)[N]) = delete; // NOLINT(google-explicit-constructor)

    Sql& operator+=(const Sql& other)
    {
        m_text += other.m_text;
        return *this;
    }
    friend Sql operator+(Sql first, const Sql& second) { return first += second; }

    /// Appends the parameter with a number, counted from 1.
    Sql& parameter(std::size_t number)
    {
        m_text += "$" + std::to_string(number);
        return *this;
    }

    const std::string& text() const { return m_text; }

private:
    std::string m_text;
};

} // namespace TelvaneArchive

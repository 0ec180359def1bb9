// Numbers must equal those of the JSON library's parser, which uses strtod. Many decimals are the quotient of a whole
// number up to 2^53 and a power of ten up to 10^22. Both are exact doubles, so one division rounds as strtod does. For
// the others, from_chars rounds in the same way.

#include "support/JsonScanner.h"

#include <cfloat>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <system_error>

namespace Telvane
{

namespace
{

constexpr int kMaxDigits = 19; ///< so many digits always fit into 64 bits
constexpr std::uint64_t kMaxExact = std::uint64_t(1) << DBL_MANT_DIG;
constexpr std::ptrdiff_t kMaxNumberLength = 63; ///< the library's parser splits longer ones
constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                                   1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19};

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isPlain(char c)
{
    return static_cast<unsigned char>(c) >= ' ' && c != '"' && c != '\\';
}

/// \return the character that a backslash and \p letter stand for; 0 for a code or none
char unescaped(char letter)
{
    switch (letter) {
    case '"':
    case '\\':
    case '/':
        return letter;
    case 'b':
        return '\b';
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    default:
        return '\0';
    }
}

/// \return the end of the number; null if it is not one
const char* readLongNumber(const char* const text, double& value)
{
    const char* end = text;
    while (isDigit(*end) || *end == '.' || *end == 'e' || *end == 'E' || *end == '+' || *end == '-') {
        ++end;
    }
    const auto [position, error] = std::from_chars(text, end, value);
    return error == std::errc() && position == end && end - text <= kMaxNumberLength ? end : nullptr;
}

} // namespace

bool JsonScanner::skip(const char* text)
{
    const char* at = m_at;
    for (; *text != '\0'; ++text, ++at) {
        if (*at != *text) {
            return false;
        }
    }
    m_at = at;
    return true;
}

bool JsonScanner::newLine(int depth)
{
    if (*m_at != '\n') {
        return false;
    }
    for (++m_at; depth > 0; --depth, ++m_at) {
        if (*m_at != '\t') {
            return false;
        }
    }
    return true;
}

bool JsonScanner::key(std::string_view key, bool first, int depth)
{
    const char* const begin = m_at;
    m_at += !first && *m_at == ',' ? 1 : 0;
    if ((first || m_at != begin) && newLine(depth) && *m_at == '"') {
        const char* at = m_at + 1;
        const char* expected = key.data();
        const char* const end = expected + key.size();
        while (expected != end && *at == *expected) {
            ++at;
            ++expected;
        }
        if (expected == end && at[0] == '"' && at[1] == ':' && at[2] == '\t') {
            m_at = at + 3;
            return true;
        }
    }
    m_at = begin;
    return false;
}

bool JsonScanner::number(double& value)
{
    const char* const begin = *m_at == '-' ? m_at + 1 : m_at;
    const char* at = begin;
    std::uint64_t digits = 0;
    for (; isDigit(*at); ++at) {
        digits = digits * 10 + static_cast<unsigned>(*at - '0');
    }
    std::ptrdiff_t length = at - begin;
    std::ptrdiff_t places = 0;
    if (*at == '.') {
        const char* const fraction = ++at;
        for (; isDigit(*at); ++at) {
            digits = digits * 10 + static_cast<unsigned>(*at - '0');
        }
        places = at - fraction;
        length = places > 0 && length > 0 ? length + places : 0;
    }
    if (length == 0) {
        return false;
    }
    const bool ends = *at != 'e' && *at != 'E' && *at != '.' && *at != '+' && *at != '-';
    if (ends && length <= kMaxDigits && digits <= kMaxExact && FLT_EVAL_METHOD == 0) {
        const double magnitude = static_cast<double>(digits) / kPowersOfTen[places];
        value = *m_at == '-' ? -magnitude : magnitude;
    } else {
        at = readLongNumber(m_at, value);
    }
    m_at = at;
    return at != nullptr;
}

bool JsonScanner::integer(int& value)
{
    double read = 0.0;
    if (!number(read)) {
        return false;
    }
    // As the library's parser does.
    if (read >= INT_MAX) {
        value = INT_MAX;
    } else if (read <= static_cast<double>(INT_MIN)) {
        value = INT_MIN;
    } else {
        value = static_cast<int>(read);
    }
    return true;
}

bool JsonScanner::flag(bool& value)
{
    value = *m_at == 't';
    return skip(value ? "true" : "false");
}

bool JsonScanner::plainString(std::string_view& value)
{
    if (*m_at != '"') {
        return false;
    }
    const char* const begin = m_at + 1;
    const char* end = begin;
    while (isPlain(*end)) {
        ++end;
    }
    m_at = end + 1;
    value = {begin, static_cast<std::size_t>(end - begin)};
    return *end == '"';
}

bool JsonScanner::string(std::string& value)
{
    if (*m_at != '"') {
        return false;
    }
    const char* begin = m_at + 1;
    value.clear();
    for (;;) {
        const char* end = begin;
        while (isPlain(*end)) {
            ++end;
        }
        value.append(begin, end);
        if (*end == '"') {
            m_at = end + 1;
            return true;
        }
        const char character = *end == '\\' ? unescaped(end[1]) : '\0';
        if (character == '\0') {
            return false;
        }
        value += character;
        begin = end + 2;
    }
}

} // namespace Telvane

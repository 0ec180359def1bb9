// The JSON library formats each number with printf and scanf, and moves its text for each key. Programs that pass on
// thousands of records a second spend most of their time there. A test checks that the texts are the same.

#include "common/text/JsonPrinter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

namespace TelvaneTool
{

namespace
{

/// \return whether a text is read as \p value, apart from a difference that the JSON library accepts
bool isNear(const char* begin, const char* end, double value)
{
    double read = 0.0;
    if (std::from_chars(begin, end, read).ec != std::errc()) {
        return std::fabs(value) > 1; // rounded up to infinity, which scanf reads
    }
    const double larger = std::max(std::fabs(read), std::fabs(value));
    return std::fabs(read - value) <= larger * std::numeric_limits<double>::epsilon();
}

/// Prints a decimal of few places, as measured values are. An exact division gives the double nearest to a decimal, so if
/// it gives \p value, that decimal is its text.
/// \return the end of the text; null if it is not such a decimal
char* printDecimal(double value, char* text)
{
    constexpr double kMinWithoutExponent = 1e-4;
    constexpr double kMaxMultiple = 1e15; // of 15 digits
    constexpr std::pair<std::int64_t, int> kScales[] = {{100, 2}, {1'000'000, 6}};
    const double magnitude = std::fabs(value);
    for (const auto& [scale, places] : kScales) {
        const double scaled = magnitude * static_cast<double>(scale) + 0.5;
        if (magnitude < kMinWithoutExponent || !(scaled < kMaxMultiple)) {
            return nullptr;
        }
        const auto multiple = static_cast<std::int64_t>(scaled);
        if (static_cast<double>(multiple) / static_cast<double>(scale) != magnitude) {
            continue;
        }
        if (value < 0) {
            *text++ = '-';
        }
        text = std::to_chars(text, text + 16, multiple / scale).ptr;
        *text++ = '.';
        std::int64_t fraction = multiple % scale;
        for (int place = places; place-- > 0; fraction /= 10) {
            text[place] = static_cast<char>('0' + fraction % 10);
        }
        text += places;
        while (text[-1] == '0') {
            --text;
        }
        return text[-1] == '.' ? text - 1 : text;
    }
    return nullptr;
}

class Printer
{
public:
    explicit Printer(std::string& text) : m_text(text) {}

    bool value(const cJSON* item)
    {
        switch (item->type & 0xFF) {
        case cJSON_NULL:
            m_text += "null";
            return true;
        case cJSON_False:
            m_text += "false";
            return true;
        case cJSON_True:
            m_text += "true";
            return true;
        case cJSON_Number:
            appendNumber(m_text, item->valuedouble);
            return true;
        case cJSON_String:
            string(item->valuestring);
            return true;
        case cJSON_Raw:
            m_text += item->valuestring != nullptr ? item->valuestring : "";
            return item->valuestring != nullptr;
        case cJSON_Array:
            return members(item->child, '[', ']');
        case cJSON_Object:
            return members(item->child, '{', '}');
        default:
            return false;
        }
    }

private:
    bool members(const cJSON* child, char open, char close)
    {
        m_text += open;
        for (const cJSON* item = child; item != nullptr; item = item->next) {
            if (item != child) {
                m_text += ',';
            }
            if (open == '{') {
                string(item->string);
                m_text += ':';
            }
            if (!value(item)) {
                return false;
            }
        }
        m_text += close;
        return true;
    }

    void string(const char* value)
    {
        m_text += '"';
        const char* plain = value != nullptr ? value : "";
        const char* at = plain;
        for (; *at != '\0'; ++at) {
            if (static_cast<unsigned char>(*at) < 0x20 || *at == '"' || *at == '\\') {
                m_text.append(plain, at);
                escape(*at);
                plain = at + 1;
            }
        }
        m_text.append(plain, at);
        m_text += '"';
    }

    void escape(char character)
    {
        constexpr std::string_view kEscaped = "\"\\\b\f\n\r\t";
        constexpr std::string_view kLetters = "\"\\bfnrt";
        constexpr std::string_view kDigits = "0123456789abcdef";
        m_text += '\\';
        const std::size_t known = kEscaped.find(character);
        if (known != std::string_view::npos) {
            m_text += kLetters[known];
            return;
        }
        const auto code = static_cast<unsigned char>(character);
        m_text += "u00";
        m_text += kDigits[code >> 4U];
        m_text += kDigits[code & 0xFU];
    }

    std::string& m_text;
};

} // namespace

void appendNumber(std::string& json, double value)
{
    if (!std::isfinite(value)) {
        json += "null";
        return;
    }
    constexpr double kIntegers = std::numeric_limits<int>::max();
    char text[64];
    char* end = text;
    if (value == 0.0 && std::signbit(value)) {
        cJSON number = {};
        number.type = cJSON_Number;
        number.valuedouble = value;
        cJSON_PrintPreallocated(&number, text, sizeof text, 0); // "0" since version 1.7.16
        end = text + std::strlen(text);
    } else if (std::fabs(value) <= kIntegers && value == std::trunc(value)) {
        end = std::to_chars(text, text + sizeof text, static_cast<int>(value)).ptr;
    } else if (char* const decimal = printDecimal(value, text)) {
        end = decimal;
    } else {
        end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 15).ptr;
        if (!isNear(text, end, value)) {
            end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 17).ptr;
        }
    }
    json.append(text, static_cast<std::size_t>(end - text));
}

std::string printOnOneLine(const cJSON* tree)
{
    std::string text;
    text.reserve(256);
    if (tree == nullptr || !Printer(text).value(tree)) {
        text.clear();
    }
    return text;
}

} // namespace TelvaneTool

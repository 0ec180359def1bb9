// The JSON library formats each number with printf and scanf, and moves its text for each key. Programs that pass on
// thousands of records a second spend most of their time there. A test checks that the texts are the same.

#include "common/text/JsonPrinter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

namespace TelvaneTool
{

namespace
{

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
            number(*item);
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

    void number(const cJSON& item)
    {
        const double value = item.valuedouble;
        if (!std::isfinite(value)) {
            m_text += "null";
            return;
        }
        char text[64];
        char* end = text;
        if (value == 0.0 && std::signbit(value)) {
            cJSON_PrintPreallocated(const_cast<cJSON*>(&item), text, sizeof text,
                                    0); // "0" since version 1.7.16
            end = text + std::strlen(text);
        } else if (value == static_cast<double>(item.valueint)) {
            end = std::to_chars(text, text + sizeof text, item.valueint).ptr;
        } else {
            end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 15).ptr;
            if (!isNear(text, end, value)) {
                end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 17).ptr;
            }
        }
        m_text.append(text, static_cast<std::size_t>(end - text));
    }

    /// \return whether a text is read as \p value, apart from a difference that the JSON library accepts
    static bool isNear(const char* begin, const char* end, double value)
    {
        double read = 0.0;
        if (std::from_chars(begin, end, read).ec != std::errc()) {
            return std::fabs(value) > 1; // rounded up to infinity, which scanf reads
        }
        const double larger = std::max(std::fabs(read), std::fabs(value));
        return std::fabs(read - value) <= larger * std::numeric_limits<double>::epsilon();
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

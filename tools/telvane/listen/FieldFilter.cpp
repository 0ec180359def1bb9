#include "listen/FieldFilter.h"

#include "common/support/JsonPath.h"

#include <cstdlib>
#include <cstring>

namespace TelvaneTool
{

std::string FieldFilter::read(const std::string& text)
{
    struct Token
    {
        const char* text;
        Operator meaning;
    };
    // Two-character operators first.
    static constexpr Token kTokens[] = {{"!=", Operator::NotEqual},    {">=", Operator::GreaterOrEqual},
                                        {"<=", Operator::LessOrEqual}, {"=", Operator::Equal},
                                        {">", Operator::Greater},      {"<", Operator::Less},
                                        {"~", Operator::Contains}};
    const std::size_t at = text.find_first_of("!=<>~");
    if (at != 0 && at != std::string::npos) {
        for (const Token& token : kTokens) {
            const std::string tokenText = token.text;
            if (text.compare(at, tokenText.size(), tokenText) == 0) {
                m_path = text.substr(0, at);
                m_operator = token.meaning;
                m_text = text.substr(at + tokenText.size());
                if (m_operator != Operator::Contains && !m_text.empty() &&
                    std::strchr("=<>~", m_text.front()) != nullptr) {
                    return "unknown operator \"" + text.substr(at, tokenText.size() + 1) +
                           "\"; use =, !=, <, <=, >, >= or ~";
                }
                char* end = nullptr;
                m_number = std::strtod(m_text.c_str(), &end);
                m_isNumber = !m_text.empty() && *end == '\0';
                const bool needsNumber = m_operator != Operator::Equal && m_operator != Operator::NotEqual &&
                                         m_operator != Operator::Contains;
                return needsNumber && !m_isNumber ? "\"" + m_text + "\" is not a number" : std::string();
            }
        }
    }
    return "\"" + text + "\" is not a condition such as amps>100, settings.CommandWFS.Unit=in/min or log~arc";
}

bool FieldFilter::acceptsNumber(double number) const
{
    switch (m_operator) {
    case Operator::Equal:
        return !(number < m_number) && !(number > m_number);
    case Operator::NotEqual:
        return number < m_number || number > m_number;
    case Operator::Less:
        return number < m_number;
    case Operator::LessOrEqual:
        return number <= m_number;
    case Operator::Greater:
        return number > m_number;
    case Operator::GreaterOrEqual:
        return number >= m_number;
    case Operator::Contains:
        break;
    }
    return false;
}

bool FieldFilter::accepts(const cJSON* payload) const
{
    const cJSON* const field = findField(payload, m_path);
    if (field == nullptr) {
        return false;
    }
    if (cJSON_IsNumber(field) && m_isNumber && m_operator != Operator::Contains) {
        return acceptsNumber(field->valuedouble);
    }
    switch (m_operator) {
    case Operator::Equal:
        return fieldText(field) == m_text;
    case Operator::NotEqual:
        return fieldText(field) != m_text;
    case Operator::Contains:
        return fieldText(field).find(m_text) != std::string::npos;
    default:
        return false; // only numbers are less or greater
    }
}

} // namespace TelvaneTool

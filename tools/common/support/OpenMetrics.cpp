#include "common/support/OpenMetrics.h"

namespace TelvaneTool
{

std::string escapedLabel(std::string_view value)
{
    std::string text;
    for (const char c : value) {
        if (c == '\n') {
            text += "\\n";
        } else if (c == '"' || c == '\\') {
            text.append(1, '\\').append(1, c);
        } else {
            text += c;
        }
    }
    return text;
}

OpenMetrics::Labels& OpenMetrics::Labels::add(const char* name, std::string_view value)
{
    m_text.append(m_text.empty() ? "" : ",").append(name).append("=\"");
    m_text.append(escapedLabel(value)).append("\"");
    return *this;
}

void OpenMetrics::sample(std::uint64_t value, const Labels& labels)
{
    m_text += m_sample + labels.text() + " " + std::to_string(value) + "\n";
}

void OpenMetrics::begin(const char* name, const char* kind, const char* suffix, const char* help)
{
    constexpr std::string_view kBytes = "_bytes"; // the only unit; the family's name ends with it
    const std::string family = std::string("telvane_") + name;
    m_text += "# TYPE " + family + " " + kind + "\n";
    if (family.size() > kBytes.size() && family.substr(family.size() - kBytes.size()) == kBytes) {
        m_text += "# UNIT " + family + " bytes\n";
    }
    m_text += "# HELP " + family + " " + help + "\n";
    m_sample = family + suffix;
}

} // namespace TelvaneTool

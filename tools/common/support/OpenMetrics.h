#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TelvaneTool
{

/// OpenMetrics text: families of samples, each with a type and a description. A family must be complete before the
/// next one begins. All names get the prefix "telvane_".
class OpenMetrics
{
public:
    /// The labels of a sample.
    class Labels
    {
    public:
        Labels& add(const char* name, std::string_view value);
        template <class Number>
        Labels& number(const char* name, Number value)
        {
            return add(name, std::to_string(value));
        }
        std::string text() const { return m_text.empty() ? m_text : "{" + m_text + "}"; }

    private:
        std::string m_text;
    };

    /// \name Begins a family
    /// @{
    void counter(const char* name, const char* help) { begin(name, "counter", "_total", help); }
    void gauge(const char* name, const char* help) { begin(name, "gauge", "", help); }
    void info(const char* name, const char* help) { begin(name, "info", "_info", help); }
    /// @}

    /// Adds a sample to the family.
    void sample(std::uint64_t value, const Labels& labels = {});

    /// \return the text, without the newline at its end
    std::string end() { return std::move(m_text.append("# EOF")); }

private:
    void begin(const char* name, const char* kind, const char* suffix, const char* help);

    std::string m_text;
    std::string m_sample;
};

/// \return the value of a label, escaped for use between quotes
std::string escapedLabel(std::string_view value);

} // namespace TelvaneTool

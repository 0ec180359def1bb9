#pragma once

#include <cjson/cJSON.h>

#include <string>

namespace TelvaneTool
{

/// A condition on one field of a payload, such as "amps>100" or "FeederSide=left".
class FieldFilter
{
public:
    /// \return the error in the text; empty if it is valid
    std::string read(const std::string& text);

    /// \return false also if the payload has no such field
    bool accepts(const cJSON* payload) const;

    /// \return the path of the field
    const std::string& path() const { return m_path; }

private:
    enum class Operator
    {
        Equal,
        NotEqual,
        Less,
        LessOrEqual,
        Greater,
        GreaterOrEqual,
        Contains,
    };

    bool acceptsNumber(double number) const;

    std::string m_path;
    Operator m_operator = Operator::Equal;
    std::string m_text;
    bool m_isNumber = false;
    double m_number = 0.0;
};

} // namespace TelvaneTool

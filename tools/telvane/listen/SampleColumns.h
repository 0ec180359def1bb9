#pragma once

#include <Telvane/WeldRecords.h>

#include <string>
#include <vector>

namespace TelvaneTool
{

/// Columns of a CSV file that are members of a sample, and are printed without its JSON text.
class SampleColumns
{
public:
    /// \param fields paths of fields, such as data.amps
    /// \return false if one of them is not a single value of a sample
    bool choose(const std::vector<std::string>& fields);

    /// Appends a comma and the value for each column. The text is the same as in the JSON text of the sample.
    /// \return false if that needs the JSON text; the line is then changed
    bool print(const Telvane::WeldTraceData& sample, std::string& line) const;

private:
    struct Column
    {
        int Telvane::WeldTraceData::*integer = nullptr;
        double Telvane::WeldTraceDataPoint::*number = nullptr; ///< the time stamp if both are null
    };

    static bool find(const std::vector<std::string>& steps, Column& column);

    std::vector<Column> m_columns;
};

} // namespace TelvaneTool

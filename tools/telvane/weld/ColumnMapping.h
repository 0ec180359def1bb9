#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// Where the value of a quantity comes from: a column of the recording times a scale plus an offset, or a
/// number that holds for the whole recording.
struct ColumnMapping
{
    std::optional<std::size_t> column; ///< counted from 0; none for a fixed number
    double scale = 1.0;
    double offset = 0.0; ///< also the fixed number

    double apply(double value) const { return value * scale + offset; }
};

/// Reads "current_dA*0.1", "temperature_F/1.8-17.8", "volts" or "200". A text that is a column's whole name
/// means that column, whatever characters it holds.
/// \param columns the names in the recording's header line
/// \param[out] error what is wrong with \p text
std::optional<ColumnMapping> readColumnMapping(std::string_view text, const std::vector<std::string>& columns,
                                               std::string& error);

/// \return the place of a column, counted from 0
std::optional<std::size_t> findColumn(std::string_view name, const std::vector<std::string>& columns);

/// \return "there is no column ...; the recording has ..."
std::string noSuchColumn(std::string_view name, const std::vector<std::string>& columns);

} // namespace TelvaneTool

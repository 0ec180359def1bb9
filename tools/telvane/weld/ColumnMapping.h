#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// The source of a quantity: a CSV column with a scale and an offset, or a constant.
struct ColumnMapping
{
    std::optional<std::size_t> column; ///< counted from 0; none for a constant
    double scale = 1.0;
    double offset = 0.0; ///< or the constant

    double apply(double value) const { return value * scale + offset; }
};

/// Reads "current_dA*0.1", "temperature_F/1.8-17.8", "volts" or "200". The full name of a column always means
/// that column, even if the name contains operators.
/// \param columns     names from the header line
/// \param[out] error  why \p text is not a mapping
/// \return the mapping; none if \p text is not one
std::optional<ColumnMapping> readColumnMapping(std::string_view text, const std::vector<std::string>& columns,
                                               std::string& error);

/// \return the index of a column, from 0
std::optional<std::size_t> findColumn(std::string_view name, const std::vector<std::string>& columns);

/// \return an error message that lists the columns
std::string noSuchColumn(std::string_view name, const std::vector<std::string>& columns);

} // namespace TelvaneTool

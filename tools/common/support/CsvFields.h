#pragma once

#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// Splits a line at its delimiters. A field in double quotes may contain delimiters; quotes inside it stay
/// doubled.
/// \param[out] fields views into \p line, without enclosing quotes and blanks
/// \return false if a quote is not closed
bool splitFields(std::string_view line, char delimiter, std::vector<std::string_view>& fields);

/// Reads a whole field as a finite decimal number.
/// \param decimalSign between the integer part and the fraction: '.' or ','
bool readDecimal(std::string_view field, double& number, char decimalSign = '.');

} // namespace TelvaneTool

#pragma once

#include "archive/reader/WeldFilter.h"

#include <string>

namespace TelvaneArchive
{

/// Gives a condition on a column of whole numbers the comparison and the whole number that mean the same as the number in
/// \p literal, whatever its size or its fraction: "program > 1.5" becomes "program > 1".
/// \param literal  a finite number, as std::strtod() reads it
void compareWithWhole(Condition& condition, const std::string& literal);

} // namespace TelvaneArchive

#pragma once

// Arithmetic that stops at the limits of its type instead of overflowing. Numbers that come from the bus or from
// a file can have any value.

#include <limits>
#include <type_traits>

namespace TelvaneTool
{

/// \return a + b, or the nearest value in range
template <class Number>
Number addSaturated(Number a, Number b)
{
    Number sum = 0;
    if (!__builtin_add_overflow(a, b, &sum)) {
        return sum;
    }
    return std::is_signed_v<Number> && b < Number(0) ? std::numeric_limits<Number>::min()
                                                     : std::numeric_limits<Number>::max();
}

/// \return a - b, or the nearest value in range
template <class Number>
Number subtractSaturated(Number a, Number b)
{
    Number difference = 0;
    if (!__builtin_sub_overflow(a, b, &difference)) {
        return difference;
    }
    return std::is_unsigned_v<Number> || b > Number(0) ? std::numeric_limits<Number>::min()
                                                       : std::numeric_limits<Number>::max();
}

/// \return a * b, or the nearest value in range
template <class Number>
Number multiplySaturated(Number a, Number b)
{
    Number product = 0;
    if (!__builtin_mul_overflow(a, b, &product)) {
        return product;
    }
    return (a < Number(0)) != (b < Number(0)) ? std::numeric_limits<Number>::min()
                                              : std::numeric_limits<Number>::max();
}

} // namespace TelvaneTool

#pragma once

// Arithmetic that stops at the limits of its type instead of overflowing. Numbers that come from the bus or from
// a file can have any value.

#include <cmath>
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

/// \return the value without its fraction, or the nearest integer in range; 0 if it is not a number
template <class Integer>
Integer toSaturated(double value)
{
    // The maximum itself may have no exact double; the limit is the first value above it.
    constexpr double kLimit = static_cast<double>(Integer(std::numeric_limits<Integer>::max() / 2 + 1)) * 2.0;
    constexpr double kMin = static_cast<double>(std::numeric_limits<Integer>::min());
    if (value >= kLimit) {
        return std::numeric_limits<Integer>::max();
    }
    if (value <= kMin) {
        return std::numeric_limits<Integer>::min();
    }
    return std::isnan(value) ? Integer(0) : static_cast<Integer>(value);
}

} // namespace TelvaneTool

// A time in nanoseconds has 19 digits, of which a double keeps 16. SQLite compares a whole number with a double exactly,
// PostgreSQL rounds it to a double first. Whole numbers on both sides leave no room for such a difference.

#include "archive/reader/WholeCondition.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace TelvaneArchive
{

namespace
{

using Comparison = Condition::Comparison;

constexpr std::int64_t kMinWhole = std::numeric_limits<std::int64_t>::min();

/// A number, rounded down to a whole one.
struct Number
{
    enum class Place
    {
        Within,
        Below, ///< less than any whole number of 64 bits
        Above,
    };

    Place place = Place::Within;
    std::int64_t floor = 0;
    bool hasFraction = false;
};

/// \param magnitude  without the fraction
Number makeNumber(bool negative, std::uint64_t magnitude, bool hasFraction)
{
    constexpr std::uint64_t kLimit = std::uint64_t{1} << 63U;
    Number number;
    number.hasFraction = hasFraction;
    if (!negative) {
        number.place = magnitude < kLimit ? Number::Place::Within : Number::Place::Above;
        number.floor = static_cast<std::int64_t>(magnitude);
        return number;
    }
    magnitude += hasFraction ? 1 : 0;
    number.place = magnitude <= kLimit ? Number::Place::Within : Number::Place::Below;
    number.floor = static_cast<std::int64_t>(0 - magnitude);
    return number;
}

/// \param literal  digits with a sign, a point and an exponent, if any
Number readDecimal(const std::string& literal)
{
    constexpr std::int64_t kMaxDigits = 19; // of 64 bits
    const bool negative = literal.front() == '-';
    std::string digits;
    std::int64_t before = 0; // the point, from the first digit that is not 0
    bool afterPoint = false;
    std::size_t at = negative || literal.front() == '+' ? 1 : 0;
    for (; at < literal.size() && std::tolower(static_cast<unsigned char>(literal[at])) != 'e'; ++at) {
        if (std::isdigit(static_cast<unsigned char>(literal[at])) == 0) {
            afterPoint = true;
            continue;
        }
        const bool leading = digits.empty() && literal[at] == '0';
        if (!leading) {
            digits += literal[at];
        }
        before += afterPoint ? (leading ? -1 : 0) : (leading ? 0 : 1);
    }
    if (at < literal.size()) {
        constexpr long long kLarge = 1'000'000'000;
        before += std::clamp(std::strtoll(literal.c_str() + at + 1, nullptr, 10), -kLarge, kLarge);
    }
    digits.erase(digits.find_last_not_of('0') + 1);
    if (digits.empty()) {
        return {};
    }
    if (before > kMaxDigits) {
        Number number;
        number.place = negative ? Number::Place::Below : Number::Place::Above;
        return number;
    }
    std::uint64_t magnitude = 0;
    for (std::int64_t i = 0; i < before; ++i) {
        const auto digit = static_cast<std::size_t>(i);
        magnitude =
            magnitude * 10 + (digit < digits.size() ? static_cast<std::uint64_t>(digits[digit] - '0') : 0);
    }
    return makeNumber(negative, magnitude, static_cast<std::int64_t>(digits.size()) > before);
}

Number readLiteral(const std::string& literal)
{
    if (literal.find_first_of("xX") == std::string::npos) {
        return readDecimal(literal);
    }
    const std::size_t sign = literal.front() == '-' || literal.front() == '+' ? 1 : 0;
    char* end = nullptr;
    const std::uint64_t whole = std::strtoull(literal.c_str() + sign, &end, 16);
    if (*end == '\0') {
        return makeNumber(literal.front() == '-', whole, false);
    }
    const double number = std::strtod(literal.c_str(), nullptr);
    constexpr double kLimit = 1e19; // more than any whole number of 64 bits
    const double magnitude = std::min(std::floor(std::abs(number)), kLimit);
    return makeNumber(number < 0.0, static_cast<std::uint64_t>(magnitude), magnitude != std::abs(number));
}

bool isLess(Comparison comparison)
{
    return comparison == Comparison::Less || comparison == Comparison::LessOrEqual;
}

bool isGreater(Comparison comparison)
{
    return comparison == Comparison::Greater || comparison == Comparison::GreaterOrEqual;
}

} // namespace

void compareWithWhole(Condition& condition, const std::string& literal)
{
    const Number number = readLiteral(literal);
    const bool within = number.place == Number::Place::Within;
    condition.value = number.floor;
    if (within && !number.hasFraction) {
        return;
    }
    if (within && (isLess(condition.comparison) || isGreater(condition.comparison))) {
        condition.comparison = isLess(condition.comparison) ? Comparison::LessOrEqual : Comparison::Greater;
        return;
    }
    const bool always = condition.comparison == Comparison::NotEqual ||
                        (number.place == Number::Place::Above && isLess(condition.comparison)) ||
                        (number.place == Number::Place::Below && isGreater(condition.comparison));
    condition.comparison = always ? Comparison::GreaterOrEqual : Comparison::Less;
    condition.value = kMinWhole;
}

} // namespace TelvaneArchive

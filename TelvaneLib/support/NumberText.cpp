// cJSON prints a number with 15 significant digits, reads them back, and prints 17 digits if the two differ by more than
// one relative epsilon. That is a sprintf, a sscanf and sometimes a second sprintf, which together cost more than
// everything else in a message. This file computes the same digits at a fraction of the cost:
//
// - A whole number below 10^15 needs no rounding.
// - Neither does a whole number of hundredths or millionths: an exactly rounded division gives the double nearest to such
//   a decimal. If that double equals the number, the decimal is its text.
// - From 10^-8 to 10^15, a double times a power of ten fits into 128 bits. So its first 15 and 17 digits are exact
//   integers, and reading 15 digits back is an exactly rounded division.
// - Other numbers are rare. They are printed with conversions that do not depend on the locale.

#include "support/NumberText.h"

#include <array>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

namespace Telvane
{

namespace
{

constexpr int kDigits = 15;
constexpr int kAllDigits = 17;
constexpr double kWholeNumberLimit = 1e15;

char* terminate(char* end)
{
    *end = '\0';
    return end;
}

char* copyText(const char* from, const char* end, char* to)
{
    const auto length = static_cast<std::size_t>(end - from);
    std::memcpy(to, from, length);
    return to + length;
}

char* fillZeros(int count, char* to)
{
    std::memset(to, '0', static_cast<std::size_t>(count));
    return to + count;
}

/// Lays digits out as printf's %.15g does.
/// \param digits   significant digits without a point; the first and the last are not 0
/// \param exponent of ten, of the first digit
char* layOut(const char* digits, int count, int exponent, char* text)
{
    const char* const end = digits + count;
    if (exponent < -4 || exponent >= kDigits) {
        *text++ = *digits;
        if (count > 1) {
            *text++ = '.';
            text = copyText(digits + 1, end, text);
        }
        *text++ = 'e';
        *text++ = exponent < 0 ? '-' : '+';
        const int magnitude = std::abs(exponent);
        if (magnitude < 10) {
            *text++ = '0';
        }
        return std::to_chars(text, text + 4, magnitude).ptr;
    }
    if (exponent < 0) {
        *text++ = '0';
        *text++ = '.';
        return copyText(digits, end, fillZeros(-exponent - 1, text));
    }
    const int whole = exponent + 1;
    if (count <= whole) {
        return fillZeros(whole - count, copyText(digits, end, text));
    }
    text = copyText(digits, digits + whole, text);
    *text++ = '.';
    return copyText(digits + whole, end, text);
}

// A 32-bit processor converts integers of 32 bits in one instruction, and larger ones in a function of some dozens.
constexpr bool kConvertsLargeIntegers = sizeof(void*) >= sizeof(std::int64_t);

/// \param value not negative and less than 2^63
/// \return \p value, rounded towards 0
std::int64_t integerOf(double value)
{
    if (!kConvertsLargeIntegers && value < 0x1p32) {
        return static_cast<std::uint32_t>(value);
    }
    return static_cast<std::int64_t>(value);
}

/// \param value not negative
double doubleOf(std::int64_t value)
{
    if (!kConvertsLargeIntegers && value <= std::numeric_limits<std::uint32_t>::max()) {
        return static_cast<std::uint32_t>(value);
    }
    return static_cast<double>(value);
}

/// \return the end of the text; null when the number is no whole multiple of 1 / 10^places
char* formatDecimal(double magnitude, double scale, int places, char* text)
{
    const double scaled = magnitude * scale;
    if (!(scaled < kWholeNumberLimit)) {
        return nullptr;
    }
    // Where this rounds the wrong way, the next comparison fails.
    auto multiple = integerOf(scaled + 0.5); // NOLINT(bugprone-incorrect-roundings)
    if (doubleOf(multiple) / scale != magnitude) {
        return nullptr;
    }
    while (multiple % 10 == 0) {
        multiple /= 10;
        --places;
    }
    char digits[kDigits + 1];
    const auto count = static_cast<int>(std::to_chars(digits, digits + sizeof digits, multiple).ptr - digits);
    return layOut(digits, count, count - places - 1, text);
}

/// The JSON library's own notion of having read back the same number.
bool sameNumber(double left, double right)
{
    const double larger = std::fabs(left) > std::fabs(right) ? std::fabs(left) : std::fabs(right);
    return std::fabs(left - right) <= larger * DBL_EPSILON;
}

constexpr int kMaxPlaces = 25;
constexpr double kMinExact = 1e-8;

constexpr auto kPowersOfFive = [] {
    std::array<std::uint64_t, kMaxPlaces + 1> powers = {};
    std::uint64_t power = 1;
    for (std::uint64_t& each : powers) {
        each = power;
        power *= 5;
    }
    return powers;
}();

// All that a double holds exactly.
constexpr std::array<double, 23> kPowersOfTen = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                 1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/// A positive number: mantissa * 2^exponent.
struct Binary
{
    std::uint64_t mantissa;
    int exponent;
};

constexpr int kFractionBits = DBL_MANT_DIG - 1;

/// \param value normal and positive
Binary binaryOf(double value)
{
    constexpr std::uint64_t kHiddenBit = std::uint64_t{1} << kFractionBits;
    constexpr int kBias = DBL_MAX_EXP - 1 + kFractionBits;
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return {(bits & (kHiddenBit - 1)) | kHiddenBit, static_cast<int>(bits >> kFractionBits) - kBias};
}

/// \return \p number * 10^places, rounded to the nearest integer and half way to the even one, as printf() does.
///         It has to be less than 2^64, and the number to have at least so many binary places.
std::uint64_t scaled(Binary number, int places)
{
    const std::uint64_t factor = kPowersOfFive[static_cast<std::size_t>(places)];
    const std::uint64_t low = (number.mantissa & 0xFFFFFFFF) * (factor & 0xFFFFFFFF);
    const std::uint64_t middle = (number.mantissa >> 32) * (factor & 0xFFFFFFFF) + (low >> 32);
    const std::uint64_t other = (number.mantissa & 0xFFFFFFFF) * (factor >> 32) + (middle & 0xFFFFFFFF);
    const std::uint64_t highWord = (number.mantissa >> 32) * (factor >> 32) + (middle >> 32) + (other >> 32);
    const std::uint64_t lowWord = (other << 32) | (low & 0xFFFFFFFF);

    const int shift = -(number.exponent + places); // 1 to 63
    const std::uint64_t whole = (highWord << (64 - shift)) | (lowWord >> shift);
    const std::uint64_t rest = lowWord & ((std::uint64_t{1} << shift) - 1);
    const std::uint64_t half = std::uint64_t{1} << (shift - 1);
    return whole + ((rest > half || (rest == half && whole % 2 != 0)) ? 1 : 0);
}

/// \param digits   significant digits as an integer, with trailing zeros
/// \param exponent of ten, of the last digit
char* layOutInteger(std::uint64_t digits, int exponent, char* text)
{
    while (digits % 10 == 0) {
        digits /= 10;
        ++exponent;
    }
    char buffer[20];
    const auto count = static_cast<int>(std::to_chars(buffer, buffer + sizeof buffer, digits).ptr - buffer);
    return layOut(buffer, count, exponent + count - 1, text);
}

/// \param magnitude from kMinExact up to kWholeNumberLimit
char* formatExact(double magnitude, char* text)
{
    const Binary number = binaryOf(magnitude);
    // The logarithm of the power of two, so the first digit's exponent of ten is this or one more.
    int exponent = ((number.exponent + kFractionBits) * 1233) >> 12;
    std::uint64_t digits = scaled(number, kAllDigits - 1 - exponent);
    if (digits >= 100'000'000'000'000'000) {
        ++exponent;
        digits = scaled(number, kAllDigits - 1 - exponent);
    }
    const int places = kDigits - 1 - exponent;
    const std::uint64_t fewer = scaled(number, places);
    const double readBack = static_cast<double>(fewer) / kPowersOfTen[static_cast<std::size_t>(places)];
    return sameNumber(readBack, magnitude) ? layOutInteger(fewer, -places, text)
                                           : layOutInteger(digits, -places - 2, text);
}

char* formatLong(double value, char* text)
{
    char* const limit = text + kNumberTextSize - 1;
    char* const end = std::to_chars(text, limit, value, std::chars_format::general, kDigits).ptr;
    double readBack = 0.0;
    const auto [position, error] = std::from_chars(text, end, readBack);
    if (error == std::errc::result_out_of_range) {
        // Rounded up beyond the largest double. The library reads infinity there, and finds that close
        // enough.
        return end;
    }
    if (sameNumber(readBack, value)) {
        return end;
    }
    return std::to_chars(text, limit, value, std::chars_format::general, kAllDigits).ptr;
}

} // namespace

char* formatNumber(double value, char* text)
{
    if (!std::isfinite(value)) {
        std::memcpy(text, "null", 5);
        return text + 4;
    }
    const double magnitude = std::fabs(value);
    if (std::signbit(value)) {
        *text++ = '-';
    }
    if (magnitude < kWholeNumberLimit) {
        const auto whole = integerOf(magnitude);
        if (doubleOf(whole) == magnitude) {
            return terminate(std::to_chars(text, text + kDigits + 1, whole).ptr);
        }
    }
    for (const auto& [scale, places] : {std::pair(1e2, 2), std::pair(1e6, 6)}) {
        if (char* const end = formatDecimal(magnitude, scale, places, text)) {
            return terminate(end);
        }
    }
    if (magnitude >= kMinExact && magnitude < kWholeNumberLimit) {
        return terminate(formatExact(magnitude, text));
    }
    return terminate(formatLong(magnitude, text));
}

} // namespace Telvane

// cJSON prints a number with 15 significant digits, reads them back, and prints 17 where the two differ by
// more than one relative epsilon: a sprintf, a sscanf and sometimes a second sprintf, which together cost
// more than everything else in a message. The same digits are had for a fraction of that:
//
// - a whole number below 10^15 is its own 15 digits;
// - so is a whole number of hundredths or millionths: an exactly rounded division gives the double that is
//   nearest to such a decimal, and if that is the number at hand, the decimal is its text;
// - a number whose shortest exact text has at most 15 digits has those very digits when rounded to 15,
// because
//   neighbouring doubles lie closer together than neighbouring texts of 15 digits do (not so for subnormals);
// - any other number takes the long way, with conversions that do not consult the locale.

#include "support/NumberText.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
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

/// \return the end of the text; null when the shortest text has more digits than fit
char* formatShort(double magnitude, char* text)
{
    char shortest[kNumberTextSize];
    const char* const end =
        std::to_chars(shortest, shortest + sizeof shortest, magnitude, std::chars_format::scientific).ptr;
    const auto* const mark =
        static_cast<const char*>(std::memchr(shortest, 'e', static_cast<std::size_t>(end - shortest)));

    char digits[kNumberTextSize] = {};
    digits[0] = shortest[0];
    const int count = mark - shortest > 1 ? static_cast<int>(mark - shortest) - 1 : 1;
    if (count > kDigits) {
        return nullptr;
    }
    std::memcpy(digits + 1, shortest + 2, static_cast<std::size_t>(count - 1));

    int exponent = 0;
    std::from_chars(mark + 2, end, exponent);
    return layOut(digits, count, mark[1] == '-' ? -exponent : exponent, text);
}

/// \return the end of the text; null when the number is no whole multiple of 1 / 10^places
char* formatDecimal(double magnitude, double scale, int places, char* text)
{
    const double scaled = magnitude * scale;
    if (!(scaled < kWholeNumberLimit)) {
        return nullptr;
    }
    // Where this rounds the wrong way, the next comparison fails.
    auto multiple = static_cast<std::int64_t>(scaled + 0.5); // NOLINT(bugprone-incorrect-roundings)
    if (static_cast<double>(multiple) / scale != magnitude) {
        return nullptr;
    }
    while (multiple % 10 == 0) {
        multiple /= 10;
        --places;
    }
    char digits[kDigits + 1] = {};
    const auto count = static_cast<int>(std::to_chars(digits, digits + sizeof digits, multiple).ptr - digits);
    return layOut(digits, count, count - places - 1, text);
}

/// The JSON library's own notion of having read back the same number.
bool sameNumber(double left, double right)
{
    const double larger = std::fabs(left) > std::fabs(right) ? std::fabs(left) : std::fabs(right);
    return std::fabs(left - right) <= larger * DBL_EPSILON;
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
        const auto whole = static_cast<std::int64_t>(magnitude);
        if (static_cast<double>(whole) == magnitude) {
            return terminate(std::to_chars(text, text + kDigits + 1, whole).ptr);
        }
    }
    for (const auto& [scale, places] : {std::pair(1e2, 2), std::pair(1e6, 6)}) {
        if (char* const end = formatDecimal(magnitude, scale, places, text)) {
            return terminate(end);
        }
    }
    if (magnitude >= DBL_MIN) {
        if (char* const end = formatShort(magnitude, text)) {
            return terminate(end);
        }
    }
    return terminate(formatLong(magnitude, text));
}

} // namespace Telvane

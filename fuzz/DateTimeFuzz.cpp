// The texts of time stamps. Whatever the text, only what is documented may happen: a result, or one of the
// two exceptions of the standard library's conversions. What was read must survive being written and read
// again.

#include <Telvane/DateTime.h>

#include "FuzzSupport.h"

#include <climits>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

namespace Telvane
{
namespace
{

constexpr long kMillisecond = 1'000'000;
constexpr long long kBeginOf2018 = 1'514'764'800;
constexpr long long kEndOf2099 = 4'102'444'800;
constexpr bool kWideTime = sizeof(time_t) > 4;

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

/// The first run of digits, read by hand.
/// \return nothing when there is none or when it exceeds 64 bits
std::optional<long long> firstNumber(const std::string& text)
{
    std::size_t i = 0;
    while (i < text.size() && !isDigit(text[i])) {
        ++i;
    }
    if (i == text.size()) {
        return std::nullopt;
    }
    long long number = 0;
    for (; i < text.size() && isDigit(text[i]); ++i) {
        const int digit = text[i] - '0';
        if (number > (LLONG_MAX - digit) / 10) {
            return std::nullopt;
        }
        number = number * 10 + digit;
    }
    return number;
}

void checkDateText(const std::string& text)
{
    DateTime read;
    std::optional<long long> actual;
    try {
        require(DateTime::FromString(text, read) == 0, "digits that were found can be converted");
        actual = static_cast<long long>(read.time.tv_sec) * 1000 + read.time.tv_nsec / kMillisecond;
    } catch (const std::out_of_range&) {
        // Documented: no digit, or more than 64 bits.
    }
    const std::optional<long long> expected = firstNumber(text);
    if (!kWideTime && expected && *expected / 1000 > INT_MAX) {
        return; // only the low bits of the seconds are kept
    }
    require(actual == expected, "a date text reads as its first run of digits, in milliseconds");
    if (actual) {
        requireSame(read.ToString(), "/Date(" + std::to_string(*actual) + ")/", "a time prints what it read");
        require(!read.ToISO8601String().empty(), "every time has an ISO 8601 text");
    }
}

struct IsoReading
{
    bool threw = false;
    int result = 0;
    DateTime time;
};

IsoReading readIsoText(const std::string& text)
{
    std::string input = text;
    IsoReading reading;
    try {
        reading.result = DateTime::FromISO8601String(input, reading.time);
    } catch (const std::invalid_argument&) {
        reading.threw = true; // documented: the fraction is not a number
    } catch (const std::out_of_range&) {
        reading.threw = true; // or too large a number for its conversion
    }
    require(input == text, "reading a text leaves it as it is");
    return reading;
}

void checkIsoText(const std::string& text)
{
    IsoReading reading = readIsoText(text);
    timespec& time = reading.time.time;
    if (reading.threw || reading.result != 0) {
        require(reading.threw || reading.result < 0, "what cannot be read gives a negative result");
        require(time.tv_sec == 0 && time.tv_nsec == 0, "a failed reading changes nothing");
    } else {
        require(time.tv_sec >= 0, "a time before the epoch is refused");
        if (time.tv_nsec >= 0 && time.tv_nsec <= 999 * kMillisecond && time.tv_nsec % kMillisecond == 0) {
            const std::string printed = reading.time.ToISO8601String();
            IsoReading again = readIsoText(printed + "Z");
            require(!again.threw && again.result == 0, "what was written can be read");
            require(again.time.time.tv_sec == time.tv_sec && again.time.time.tv_nsec == time.tv_nsec,
                    "a time survives being written and read");
        }
    }
    if (kWideTime && DateTime::ValidateTime(text)) {
        require(reading.threw || reading.result == 0, "a valid time can be read");
        // One second more: 23:59:60 and 23:59:61 are valid and belong to the next minute.
        require(reading.threw || (time.tv_sec >= kBeginOf2018 && time.tv_sec <= kEndOf2099 + 1),
                "a valid time lies in the years 2018 to 2099");
    }
}

} // namespace
} // namespace Telvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Telvane::silenceDiagnostics();
    // Local time without an hour that exists twice or not at all.
    static const int zone = setenv("TZ", "UTC0", 1);
    static_cast<void>(zone);

    const std::string text(Telvane::textOf(data, size));
    Telvane::checkDateText(text);
    Telvane::checkIsoText(text);
    return 0;
}

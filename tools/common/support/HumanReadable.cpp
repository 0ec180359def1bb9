#include "common/support/HumanReadable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace TelvaneTool
{

namespace
{

struct Unit
{
    const char* name;
    double factor;
};

constexpr double kMaxDuration = 1e18; ///< nanoseconds: 30 years
constexpr double kMaxSize = 9e18;     ///< bytes

/// Reads a number followed by a unit.
template <std::size_t Count>
bool readAmount(const std::string& text, const std::array<Unit, Count>& units, double max, double& amount)
{
    // strtod() alone would also accept signs, blanks, hexadecimal digits and words.
    const std::size_t end = std::min(text.find_first_not_of("0123456789."), text.size());
    const std::string name = text.substr(end);
    if (!readNumber(text.substr(0, end), amount)) {
        return false;
    }
    for (const Unit& unit : units) {
        if (name == unit.name) {
            amount *= unit.factor;
            return amount <= max;
        }
    }
    return false;
}

} // namespace

std::string formatted(const char* format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string_view trimmed(std::string_view text, const char* blanks)
{
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

bool readNumber(std::string_view text, double& number)
{
    const std::string terminated(text);
    char* end = nullptr;
    number = std::strtod(terminated.c_str(), &end);
    return !text.empty() && end == terminated.c_str() + text.size() && std::isfinite(number);
}

bool readDuration(const std::string& text, Nanoseconds& duration)
{
    static constexpr std::array<Unit, 7> kUnits = {
        {{"", 1e9}, {"s", 1e9}, {"ms", 1e6}, {"us", 1e3}, {"m", 60e9}, {"min", 60e9}, {"h", 3600e9}}};
    double amount = 0.0;
    if (!readAmount(text, kUnits, kMaxDuration, amount)) {
        return false;
    }
    duration = static_cast<Nanoseconds>(amount);
    return true;
}

bool readSize(const std::string& text, std::uint64_t& bytes)
{
    static constexpr std::array<Unit, 7> kUnits = {{{"", 1.0},
                                                    {"K", 1024.0},
                                                    {"k", 1024.0},
                                                    {"M", 1024.0 * 1024},
                                                    {"m", 1024.0 * 1024},
                                                    {"G", 1024.0 * 1024 * 1024},
                                                    {"g", 1024.0 * 1024 * 1024}}};
    double amount = 0.0;
    const bool isUnitless = text.find_first_not_of("0123456789.") == std::string::npos;
    if ((isUnitless && text.find('.') != std::string::npos) || // a fraction of a byte
        !readAmount(text, kUnits, kMaxSize, amount)) {
        return false;
    }
    bytes = static_cast<std::uint64_t>(amount);
    return true;
}

std::string printBytes(double bytes)
{
    if (bytes < 1e3) {
        return formatted("%.0f B", bytes);
    }
    if (bytes < 1e6) {
        return formatted("%.1f KB", bytes / 1e3);
    }
    return bytes < 1e9 ? formatted("%.1f MB", bytes / 1e6) : formatted("%.2f GB", bytes / 1e9);
}

std::string printCount(double count)
{
    if (count < 1e4) {
        const bool whole = count >= 100.0 || count == static_cast<double>(static_cast<int>(count));
        return formatted("%.*f", whole ? 0 : 1, count);
    }
    return count < 1e6 ? formatted("%.1fk", count / 1e3) : formatted("%.2fM", count / 1e6);
}

std::string printDuration(Nanoseconds time)
{
    if (time < kMillisecond) {
        return formatted("%.0f us", static_cast<double>(time) / 1e3);
    }
    return time < kSecond ? formatted("%.3g ms", static_cast<double>(time) / 1e6)
                          : formatted("%.3g s", inSeconds(time));
}

std::string printSpan(Nanoseconds span)
{
    constexpr Nanoseconds kMinute = 60 * kSecond;
    constexpr Nanoseconds kHour = 60 * kMinute;
    if (span < kMinute) {
        return formatted("%.3f s", inSeconds(span));
    }
    if (span < kHour) {
        return formatted("%d min %.1f s", static_cast<int>(span / kMinute), inSeconds(span % kMinute));
    }
    return formatted("%lld h %02d min", static_cast<long long>(span / kHour),
                     static_cast<int>(span % kHour / kMinute));
}

std::string printNumber(std::uint64_t count, const std::string& noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string printMoment(Nanoseconds sinceEpoch, std::size_t decimals)
{
    // The fraction also counts forward before 1970.
    const Nanoseconds fraction = (sinceEpoch % kSecond + kSecond) % kSecond;
    const auto seconds = static_cast<time_t>(sinceEpoch / kSecond - (sinceEpoch % kSecond < 0 ? 1 : 0));
    // Listeners print thousands of moments of the same second.
    thread_local time_t printedSeconds = 0;
    thread_local char text[32] = {};
    if (text[0] == '\0' || printedSeconds != seconds) {
        tm parts = {};
        gmtime_r(&seconds, &parts);
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
        printedSeconds = seconds;
    }
    std::string moment = text;
    const auto at = moment.size();
    moment += ".000000000";
    auto digits = static_cast<int>(fraction);
    for (std::size_t place = at + 9; digits > 0; --place, digits /= 10) {
        moment[place] = static_cast<char>('0' + digits % 10);
    }
    moment.resize(at + 1 + decimals);
    return moment += 'Z';
}

} // namespace TelvaneTool

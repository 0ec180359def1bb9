// Time stamps. The string in JSON has milliseconds; fractions are cut off. Arithmetic uses 64 bits, so that
// only the platform's time_t limits the range.

#include <Telvane/DateTime.h>

#include "support/Diagnostics.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace Telvane
{

namespace
{

constexpr long kNanosecondsPerMillisecond = 1'000'000;

/// Reads the first digits as milliseconds.
/// \return `invalid_argument` if there is none
std::errc readMilliseconds(const char* begin, const char* end, timespec& time)
{
    const char* const digits = std::find_if(begin, end, [](char c) { return c >= '0' && c <= '9'; });
    long long milliseconds = 0;
    const std::errc error = std::from_chars(digits, end, milliseconds).ec;
    if (error == std::errc()) {
        time.tv_sec = static_cast<time_t>(milliseconds / 1000);
        time.tv_nsec = static_cast<long>(milliseconds % 1000) * kNanosecondsPerMillisecond;
    }
    return error;
}

/// The string in JSON.
struct WireText
{
    static constexpr std::string_view kPrefix = "/Date(";
    static constexpr char kSuffix[] = ")/";

    explicit WireText(const timespec& time) { write(time, text); }

    /// \return the position of the terminator
    static char* write(const timespec& time, char* text)
    {
        const long long milliseconds =
            static_cast<long long>(time.tv_sec) * 1000 + time.tv_nsec / kNanosecondsPerMillisecond;
        char* end = std::copy(kPrefix.begin(), kPrefix.end(), text);
        end = std::to_chars(end, text + TextForm::kSize - sizeof kSuffix, milliseconds).ptr;
        return std::copy(std::begin(kSuffix), std::end(kSuffix), end) - 1;
    }

    char text[TextForm::kSize] = {};
};

constexpr TextForm kTextForm = {
    [](const TelvaneDataTypeBase& record, char* text) {
        return WireText::write(static_cast<const DateTime&>(record).time, text);
    },
    [](TelvaneDataTypeBase& record, const char* begin, const char* end) {
        return readMilliseconds(begin, end, static_cast<DateTime&>(record).time) == std::errc();
    }};

int daysInMonth(int year, int month)
{
    switch (month) {
    case 2:
        return DateTime::CheckForLeapYear(year) ? 29 : 28;
    case 4:
    case 6:
    case 9:
    case 11:
        return 30;
    default:
        return 31;
    }
}

} // namespace

DateTime::DateTime(timespec* moment) : time(*moment) {}

DateTime DateTime::Now()
{
    DateTime now;
    clock_gettime(CLOCK_REALTIME, &now.time);
    return now;
}

bool DateTime::CheckForLeapYear(int year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

bool DateTime::ValidateTime(const std::string& text)
{
    tm parts = {};
    if (strptime(text.c_str(), "%Y-%m-%dT%T", &parts) == nullptr) {
        return false;
    }
    const int year = parts.tm_year + 1900;
    const int month = parts.tm_mon + 1;
    return year >= 2018 && year <= 2099 && month >= 1 && month <= 12 && parts.tm_mday >= 1 &&
           parts.tm_mday <= daysInMonth(year, month);
}

std::string DateTime::ToString()
{
    return WireText(time).text;
}

std::string DateTime::ToISO8601String()
{
    tm parts = {};
    localtime_r(&time.tv_sec, &parts);
    const auto milliseconds = static_cast<unsigned short>(time.tv_nsec / kNanosecondsPerMillisecond);
    char text[35];
    std::snprintf(text, sizeof text, "%.4u-%.2u-%.2uT%.2u:%.2u:%.2u.%.3u",
                  static_cast<unsigned>(parts.tm_year + 1900), static_cast<unsigned>(parts.tm_mon + 1),
                  static_cast<unsigned>(parts.tm_mday), static_cast<unsigned>(parts.tm_hour),
                  static_cast<unsigned>(parts.tm_min), static_cast<unsigned>(parts.tm_sec),
                  static_cast<unsigned>(milliseconds));
    return text;
}

int DateTime::FromString(const std::string& text, DateTime& result)
{
    timespec read = {};
    if (const std::errc error = readMilliseconds(text.data(), text.data() + text.size(), read);
        error != std::errc()) {
        throw std::out_of_range(error == std::errc::result_out_of_range
                                    ? "DateTime::FromString: number out of range"
                                    : "DateTime::FromString: no digit in the text");
    }
    result = DateTime();
    result.time = read;
    return 0;
}

int DateTime::FromISO8601String(std::string& text, DateTime& result)
{
    const std::size_t point = text.rfind('.');
    const std::string timeString = text.substr(0, point);
    writeOutputLine("---- timestring: ", timeString);

    tm parts = {};
    if (strptime(timeString.c_str(), "%Y-%m-%dT%H:%M:%S", &parts) == nullptr) {
        writeOutputLine("---- strptime Failed to convert time: ");
        return -1;
    }
    const time_t seconds = mktime(&parts);
    if (seconds < 0) {
        return static_cast<int>(std::max<time_t>(seconds, INT_MIN));
    }

    int milliseconds = 0;
    if (point != std::string::npos) {
        std::string fraction = text.substr(point + 1);
        if (!fraction.empty()) {
            fraction.pop_back(); // the letter of the time zone
        }
        if (!fraction.empty()) {
            milliseconds = std::stoi(fraction);
        }
    }
    result.time.tv_sec = seconds;
    // More milliseconds than 32 bits of nanoseconds can hold wrap around.
    result.time.tv_nsec = static_cast<int>(static_cast<unsigned>(milliseconds) *
                                           static_cast<unsigned>(kNanosecondsPerMillisecond));
    return 0;
}

bool DateTime::_packageData(cJSON* output)
{
    if (output == nullptr) {
        return true;
    }
    cJSON* const text = cJSON_CreateString(WireText(time).text);
    if (text != nullptr) {
        // Make the given node the string, with the text of the new one.
        std::swap(output->valuestring, text->valuestring);
        std::swap(output->type, text->type);
        cJSON_Delete(text);
    }
    return true;
}

bool DateTime::_unpackageData(cJSON* input)
{
    if (cJSON_IsString(input) == 0 || input->valuestring == nullptr) {
        return false;
    }
    DateTime read;
    if (FromString(input->valuestring, read) != 0) {
        return false;
    }
    time = read.time;
    return true;
}

const RecordTable& DateTime::recordTable()
{
    static const RecordTable* const table =
        DateTime().newRecordTable()->coverExactly(typeid(DateTime))->useTextForm(kTextForm);
    return *table;
}

TELVANE_DEFINE_RECORD_COPY(DateTime, TelvaneDataTypeBase)

} // namespace Telvane

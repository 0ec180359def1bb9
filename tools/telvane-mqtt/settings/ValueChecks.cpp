// One list for the command line and the configuration file: what one of them accepts must not be an error in the other.

#include "telvane-mqtt/settings/ValueChecks.h"

#include "common/support/HumanReadable.h"
#include "telvane-mqtt/channels/ChannelRules.h"

#include <limits>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr double kNoBound = std::numeric_limits<double>::max();

struct Range
{
    const char* key;
    long min;
    double max;
};
constexpr Range kRanges[] = {
    {"keep-alive", 5, 65535},
    {"in-flight", 1, 65535},
    {"packet-limit", 1024, 268435455},
    {"queue-messages", 1, kNoBound},
    {"queue-bytes", 1, kNoBound},
    {"spool-bytes", 1L << 20, kNoBound}, // has room for the largest default packet
    {"drain-rate", 0, kNoBound},
};

constexpr const char* kDurations[] = {"queue-age", "ack-timeout", "first-pause", "longest-pause",
                                      "request-timeout"};

std::string rangeError(const Range& range, const std::string& value)
{
    double number = 0.0;
    if (readNumber(value, number) && number >= static_cast<double>(range.min) && number <= range.max) {
        return {};
    }
    const std::string min = std::to_string(range.min);
    return "expected a number " +
           (range.max < kNoBound ? "from " + min + " to " + std::to_string(static_cast<long>(range.max))
                                 : "of at least " + min) +
           ", got \"" + value + "\"";
}

} // namespace

std::string valueError(const std::string& key, const std::string& value)
{
    for (const Range& range : kRanges) {
        if (key == range.key) {
            return rangeError(range, value);
        }
    }
    for (const char* const duration : kDurations) {
        Nanoseconds length = 0;
        if (key == duration && !parseDuration(value, length)) {
            return "\"" + value + "\" is not a duration such as 500ms, 10s, 5min or 24h";
        }
    }
    if (key == "protocol" && value != "auto" && value != "5" && value != "3.1.1") {
        return "expected auto, 5 or 3.1.1, got \"" + value + "\"";
    }
    return {};
}

} // namespace TelvaneTool::Mqtt

#include "recording/RecordingRange.h"

#include "common/cli/CommandLine.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"
#include "common/support/TimestampParser.h"

namespace TelvaneTool
{

Nanoseconds RecordingBound::moment(Nanoseconds origin) const
{
    return absolute ? time : addSaturated(origin, time);
}

bool readBound(const std::string& text, RecordingBound& bound)
{
    bound.absolute = false;
    if (readDuration(text, bound.time)) {
        return true;
    }
    TimestampParser parser;
    bound.absolute = parser.read(text, bound.time);
    return bound.absolute;
}

void addRangeOptions(Command& command, RecordingRange& range)
{
    const auto add = [&command](const char* name, std::optional<RecordingBound>& bound, const char* what) {
        const auto read = [&bound](const std::string& text) {
            return readBound(text, bound.emplace()) ? std::string()
                                                    : "expected a time after the first record, such as 12.5 "
                                                      "or 5m, or a date and time, such as "
                                                      "2024-01-02T03:04:05Z";
        };
        command.optionReadBy(read, name, what).typeName("TIME");
    };
    add("--from", range.from,
        "Start at TIME: a time after the first record, such as 12.5, 30s or 5m, or a date and time");
    add("--to,--until", range.to, "Leave out what is at TIME or later");
}

} // namespace TelvaneTool

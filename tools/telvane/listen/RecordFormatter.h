#pragma once

#include "common/bus/DecodedRecord.h"
#include "common/support/Clock.h"
#include "common/support/Json.h"
#include "listen/FieldFilter.h"

#include <map>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Turns what arrives into what `telvane listen` prints.
class RecordFormatter
{
public:
    struct Settings
    {
        std::string format; ///< conversions; empty for JSON
        bool pretty = false;
        bool names = false;               ///< names of consumables beside their codes
        bool delta = false;               ///< the time since the record before
        std::vector<FieldFilter> filters; ///< all of them have to accept a payload
    };

    explicit RecordFormatter(Settings settings) : m_settings(std::move(settings)) {}

    struct Arrival
    {
        const std::string& channel;
        int sequence;
        const DecodedRecord& record;
        const Telvane::RecordClass* recordClass; ///< may be null
        Nanoseconds moment;                      ///< since the Unix epoch
        Nanoseconds time;                        ///< on the monotonic clock
    };

    /// \return the text with its line end; empty when a filter does not accept the payload
    std::string print(const Arrival& arrival);

private:
    std::string printJsonLine(const Arrival& arrival, const std::string& payload, Nanoseconds delta) const;
    std::string printFormat(const Arrival& arrival, const std::string& payload, const cJSON* tree,
                            Nanoseconds delta, Nanoseconds channelDelta) const;

    const Settings m_settings;
    Nanoseconds m_last = -1;
    std::map<std::string, Nanoseconds> m_lastOfChannel;
};

/// \return what is wrong with a format, or nothing
std::string checkFormat(const std::string& format);

/// What the help says about formats.
extern const char* const kFormatHelp;

} // namespace TelvaneTool

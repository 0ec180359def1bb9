#pragma once

#include "common/support/Clock.h"
#include "common/support/Json.h"
#include "listen/FieldFilter.h"
#include "listen/SampleColumns.h"

#include <Telvane/RecordCatalogue.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Formats one record as `telvane listen` prints it. Used by one thread.
class RecordFormatter
{
public:
    struct Settings
    {
        std::string format;                 ///< see kFormatHelp; empty for JSON
        std::vector<std::string> csvFields; ///< fields to print as CSV; empty for JSON
        bool pretty = false;
        bool names = false;               ///< add the names of consumable codes
        bool delta = false;               ///< add the time since the previous record
        std::vector<FieldFilter> filters; ///< all must accept the payload
    };

    explicit RecordFormatter(Settings settings);

    /// \return the line before the first record; empty if there is none
    std::string heading() const;

    struct Arrival
    {
        const std::string& channel;
        int sequence;
        const std::string& payload;              ///< JSON text of an object
        const Telvane::RecordClass* recordClass; ///< null if the channel has no class
        Nanoseconds moment;                      ///< arrival, ns since the Unix epoch
        Nanoseconds time;                        ///< arrival on the monotonic clock
    };

    /// \return the text with its newline; empty if a filter rejects the payload
    std::string print(const Arrival& arrival);

    /// \return whether the settings allow printSample()
    bool printsSamples() const { return m_printsSamples; }
    /// Prints a sample without its JSON text: the same as print(), in a tenth of the time.
    /// \return false if this sample needs print()
    bool printSample(const Telvane::WeldTraceData& sample, const std::string& channel, int sequence,
                     Nanoseconds moment, std::string& line) const;

private:
    std::string printCsv(const Arrival& arrival, const cJSON* tree) const;
    std::string printJsonLine(const Arrival& arrival, const std::string& payload, Nanoseconds delta) const;
    std::string printFormat(const Arrival& arrival, const std::string& payload, const cJSON* tree,
                            Nanoseconds delta, Nanoseconds channelDelta) const;

    const Settings m_settings;
    SampleColumns m_sampleColumns;
    bool m_printsSamples = false;
    std::optional<Nanoseconds> m_last;
    std::map<std::string, Nanoseconds> m_lastOfChannel;
};

/// \return the error in a format; empty if it is valid
std::string checkFormat(const std::string& format);

/// \return the paths of the fields in a valid format
std::vector<std::string> fieldsOfFormat(const std::string& format);

/// Help text: all conversions.
extern const char* const kFormatHelp;

} // namespace TelvaneTool

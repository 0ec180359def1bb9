#pragma once

#include "common/support/Clock.h"

#include <Telvane/RecordCatalogue.h>

#include <map>
#include <string>
#include <vector>

namespace TelvaneTool::Mqtt
{

/// What a channel sends for the records that arrive on it.
enum class Mode
{
    EachRecord, ///< one message for each record
    Batch,      ///< one message for the records of an interval, as columns
    Summary,    ///< mean, minimum and maximum of each number in an interval
    Changes,    ///< what has changed; everything once a minute
};

/// A channel of the bus that goes out.
struct OutRule
{
    const Telvane::RecordClass* recordClass = nullptr; ///< null for any JSON object
    Mode mode = Mode::EachRecord;
    Nanoseconds interval = 0; ///< of batches and summaries
    int qos = 1;
    bool retain = false;
};

/// A channel that comes in, or that can be requested.
struct InRule
{
    const Telvane::RecordClass* recordClass = nullptr; ///< never null
};

/// Which channels cross the bridge. Nothing else does.
class ChannelRules
{
public:
    /// \name Adding a channel
    /// \return an error message, or an empty text
    /// @{

    /// \param text CHANNEL or PATTERN, then settings: "HALInfo:qos=0:retain". A pattern stands for the classes of the
    ///        catalogue, whose channels have their names.
    std::string addOut(const std::string& text);
    /// \param text CHANNEL, then ":class=CLASS" if the channel is not named like its class
    std::string addIn(const std::string& text);
    std::string addRequest(const std::string& text);
    /// @}

    /// \return an error message if a channel goes out and comes in, or an empty text
    std::string findLoop() const;

    const std::map<std::string, OutRule>& out() const { return m_out; }
    const std::map<std::string, InRule>& in() const { return m_in; }
    const std::map<std::string, InRule>& requests() const { return m_requests; }

private:
    static std::string addIncoming(const std::string& text, std::map<std::string, InRule>& rules);

    std::map<std::string, OutRule> m_out;
    std::map<std::string, bool> m_named; ///< whether a channel in m_out was given by name
    std::map<std::string, InRule> m_in;
    std::map<std::string, InRule> m_requests;
};

/// Reads a duration as readDuration() does.
/// \return whether it is one of at least 1 ms
bool parseDuration(const std::string& text, Nanoseconds& duration);

/// \return the rule as it would be written, for --check
std::string describeRule(const OutRule& rule);

} // namespace TelvaneTool::Mqtt

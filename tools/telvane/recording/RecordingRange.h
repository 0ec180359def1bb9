#pragma once

#include "common/support/Clock.h"

#include <optional>
#include <string>

namespace TelvaneTool
{

class Command;

/// A moment in a recording, as the user gives it.
struct RecordingBound
{
    Nanoseconds time = 0;
    bool absolute = false; ///< since the Unix epoch, not since the first message

    /// \param origin  time of the first message, since the Unix epoch
    /// \return since the Unix epoch
    Nanoseconds moment(Nanoseconds origin) const;
};

/// A part of a recording: from the first bound up to, but not including, the second.
struct RecordingRange
{
    std::optional<RecordingBound> from;
    std::optional<RecordingBound> to;
};

/// Reads "12.5", "30s" or "5m" after the first message, or a date and time.
/// \return false if \p text is none of these
bool readBound(const std::string& text, RecordingBound& bound);

/// Adds --from and --to.
void addRangeOptions(Command& command, RecordingRange& range);

} // namespace TelvaneTool

#pragma once

// The lines of a recording; docs/recording-format.md describes them.

#include "common/support/Clock.h"

#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// What the first line says.
struct RecordingHeader
{
    Nanoseconds started = 0;           ///< moment from which the records' times count, since the Unix epoch
    std::string server;                ///< path of the bus
    std::vector<std::string> channels; ///< what was asked for; empty for everything
    int part = 1;                      ///< counted from 1
};

/// One message as it came.
struct RecordedMessage
{
    Nanoseconds time = 0; ///< since RecordingHeader::started, on a clock that nobody sets
    std::string_view channel;
    int sequence = 0;
    std::string_view payload; ///< its JSON text
};

/// \return the line with its end
std::string printHeader(const RecordingHeader& header);

/// \return false when the line is not the first one of a recording
bool readHeader(const std::string& line, RecordingHeader& header, std::string& error);

/// Adds the line with its end.
void appendMessage(std::string& text, const RecordedMessage& message);

/// Reads lines as appendMessage() writes them, and the same JSON with other blanks or in another order.
class RecordingLineReader
{
public:
    /// \param[out] message points into \p line and into this reader, until the next call
    /// \return false when the line is no message
    bool read(std::string_view line, RecordedMessage& message);

private:
    bool readOtherForm(std::string_view line, RecordedMessage& message);

    std::string m_channel;
    std::string m_payload;
};

} // namespace TelvaneTool

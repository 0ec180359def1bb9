#pragma once

// The lines of a recording; see docs/recording-format.md.

#include "common/support/Clock.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// The first line.
struct RecordingHeader
{
    Nanoseconds started = 0;           ///< origin of the records' times, ns since the Unix epoch
    std::string server;                ///< path of the server's socket
    std::vector<std::string> channels; ///< names and patterns given by the user; empty for --all
    int part = 1;                      ///< number of the file within one run, from 1
};

/// One message as it arrived, or a note that messages were missed or that the connection was lost.
struct RecordedMessage
{
    Nanoseconds time = 0; ///< arrival, ns since RecordingHeader::started, monotonic
    std::string_view channel;
    int sequence = 0;
    std::string_view payload;    ///< JSON text
    std::string_view group = {}; ///< of a weld converted from CSV: the value of its --group column

    std::uint64_t missed =
        0;               ///< if not 0: so many messages on \p channel are missing, and there is no payload
    bool outage = false; ///< if true: there was no connection, so anything may be missing
    Nanoseconds missedFrom = 0; ///< they are missing between this time ...
    Nanoseconds missedTo = 0;   ///< ... and this one, both as \p time

    /// \return whether it is a note, without payload
    bool isNote() const { return missed != 0 || outage; }
};

/// \return the line, with its newline
std::string printHeader(const RecordingHeader& header);

/// \param[out] error  why the line is not the first line of a recording
/// \return false if it is not
bool readHeader(const std::string& line, RecordingHeader& header, std::string& error);

/// Appends the line, with its newline.
void appendMessage(std::string& text, const RecordedMessage& message);

/// Reads lines as appendMessage() writes them, and equivalent JSON with other spacing or key order.
class RecordingLineReader
{
public:
    /// \param[out] message  points into \p line and this reader; valid until the next call
    /// \return false if the line is neither a message nor a note
    bool read(std::string_view line, RecordedMessage& message);

private:
    bool readOtherForm(std::string_view line, RecordedMessage& message);

    std::string m_channel;
    std::string m_payload;
    std::string m_group;
};

} // namespace TelvaneTool

#pragma once

#include "common/support/TextLines.h"
#include "recording/RecordingLine.h"

#include <cstdint>

namespace TelvaneTool
{

/// Reads a recording. Skips and counts lines that are damaged.
class RecordingReader
{
public:
    /// Opens the file and reads its first line. Prints the reason if it fails.
    /// \param path  a file, or "-" for standard input
    bool open(const std::string& path, TextLines::Waiter waiter = {});

    const RecordingHeader& header() const { return m_header; }

    /// \param[out] message  valid until the next call
    /// \return false at the end of the file and after a read error
    bool next(RecordedMessage& message);

    /// \return bytes read so far
    std::uint64_t bytes() const { return m_bytes; }
    /// \return size of the file; 0 if unknown
    std::uint64_t size() const { return m_size; }

    /// \return size of an incomplete last line
    std::uint64_t tornBytes() const { return m_tornBytes; }
    /// \return number of complete lines that are not messages
    std::uint64_t damagedLines() const { return m_damagedLines; }

    /// Reports an incomplete last line, damaged lines and a read error.
    /// \return an exit code. An incomplete last line is not an error: a killed recorder leaves one.
    int finish() const;

private:
    std::string m_path;
    TextLines m_lines;
    RecordingHeader m_header;
    RecordingLineReader m_reader;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_size = 0;
    std::uint64_t m_tornBytes = 0;
    std::uint64_t m_damagedLines = 0;
    std::uint64_t m_firstDamagedLine = 0;
};

} // namespace TelvaneTool

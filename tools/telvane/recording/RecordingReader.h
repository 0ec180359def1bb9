#pragma once

#include "common/support/TextLines.h"
#include "recording/RecordingLine.h"

#include <cstdint>

namespace TelvaneTool
{

/// Reads a recording, and what can be read of one that was damaged.
class RecordingReader
{
public:
    /// Opens the file and reads its first line, or complains.
    /// \param path a file, or "-" for standard input
    bool open(const std::string& path, TextLines::Waiter waiter = {});

    const RecordingHeader& header() const { return m_header; }

    /// \param[out] message valid until the next call
    /// \return false at the end, also when reading failed
    bool next(RecordedMessage& message);

    /// \return how far the reading has come
    std::uint64_t bytes() const { return m_bytes; }
    /// \return the file's size, 0 where it is not known
    std::uint64_t size() const { return m_size; }

    /// \return the bytes of a last line that was not written whole
    std::uint64_t tornBytes() const { return m_tornBytes; }
    /// \return how many whole lines are no messages
    std::uint64_t damagedLines() const { return m_damagedLines; }

    /// Complains about what was torn or damaged and about a failure to read.
    /// \return an exit code: a torn end is what a sudden end leaves, and no error
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

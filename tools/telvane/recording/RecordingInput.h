#pragma once

#include "recording/RecordingRange.h"
#include "recording/RecordingReader.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// Reads one or more recordings as one, or a part of it. The times of all messages are since the start of the first
/// recording.
class RecordingInput
{
public:
    /// \param paths   files in order, such as the parts of a split recording; "-" for standard input
    /// \param waiter  see TextLines::open()
    explicit RecordingInput(std::vector<std::string> paths, RecordingRange range = {},
                            TextLines::Waiter waiter = {})
        : m_paths(std::move(paths)), m_range(range), m_waiter(std::move(waiter))
    {}

    /// Opens the first file. Prints the reason if it fails.
    bool open();

    /// \param[out] message  valid until the next call
    /// \return false at the end of the last file or of the range, and after an error
    bool next(RecordedMessage& message);

    /// \return header of the first file
    const RecordingHeader& header() const { return m_header; }
    /// \return start of the range, as the time of a message; known after the first message
    Nanoseconds begin() const { return m_begin; }
    /// \return time of the first message of the first file
    Nanoseconds origin() const { return m_origin; }
    /// \return which part has been read, 0 to 1; negative if unknown
    double fraction() const;

    /// Reports what could not be read.
    /// \return an exit code
    int finish();

private:
    bool openNext();
    void closeCurrent();
    void skipToNext(); ///< the current file is null after the last one, and after an error

    const std::vector<std::string> m_paths;
    const RecordingRange m_range;
    const TextLines::Waiter m_waiter;
    std::size_t m_nextPath = 0;
    std::unique_ptr<RecordingReader> m_reader; ///< null at the end
    RecordingHeader m_header;
    Nanoseconds m_shift = 0; ///< from times of the current file to those of the first
    bool m_begun = false;
    Nanoseconds m_origin = 0;
    Nanoseconds m_begin = 0;
    Nanoseconds m_end = 0;
    int m_result = 0; ///< exit code
};

} // namespace TelvaneTool

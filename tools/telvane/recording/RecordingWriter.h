#pragma once

#include "recording/RecordingLine.h"

#include <cstdint>
#include <string>

namespace TelvaneTool
{

/// Writes recordings, whole lines at a time, into one file or, numbered, into several.
///
/// Lines are collected for as long as the caller does not flush(), at most some hundred kilobytes, and go out
/// in one write, so that whoever ends the process leaves whole lines. What flush() has written reaches the
/// disk within a second and at the latest with close().
class RecordingWriter
{
public:
    struct Settings
    {
        std::string path;            ///< "-" for standard output
        bool replace = false;        ///< what is there already
        bool numbered = false;       ///< "weld.jsonl" makes "weld-0001.jsonl" and so on, the next free number
        std::uint64_t splitSize = 0; ///< begin a new file when this is reached; 0 never
        Nanoseconds splitAfter = 0;  ///< the same for a span of recorded time
    };

    explicit RecordingWriter(Settings settings) : m_settings(std::move(settings)) {}
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    /// Opens the first file, or complains. After close() it opens the next one.
    /// \param[in] header its part is counted up for each file
    bool open(const RecordingHeader& header);
    bool isOpen() const { return m_fd >= 0; }

    /// Adds a line made by appendMessage(), or several; all of them go into the same file.
    /// \param time of the first of them
    /// \return false after a complaint; the file then ends with a whole line
    bool add(std::string_view lines, Nanoseconds time);

    /// Writes what has been added, and every second sees to it that it reaches the disk.
    /// \return false after a complaint
    bool flush();

    /// \return false after a complaint
    bool close();

    std::uint64_t bytes() const { return m_totalBytes; } ///< of all files
    int files() const { return m_files; }
    const std::string& currentPath() const { return m_path; }

private:
    bool openFile(const std::string& path, int& error);
    bool write();
    bool fail(int error, bool torn);
    std::string numberedPath(int number) const;

    const Settings m_settings;
    RecordingHeader m_header;
    std::string m_path; ///< of the current file
    int m_fd = -1;
    int m_number = 0; ///< of the current file's name
    int m_files = 0;
    std::string m_pending;
    std::uint64_t m_fileBytes = 0; ///< written and pending
    std::uint64_t m_written = 0;   ///< of the current file
    std::uint64_t m_totalBytes = 0;
    Nanoseconds m_firstTime = -1;
    Nanoseconds m_synced = 0; ///< when, on the monotonic clock
};

} // namespace TelvaneTool

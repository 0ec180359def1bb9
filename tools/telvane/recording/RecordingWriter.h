#pragma once

#include "common/support/Compression.h"
#include "common/support/FileDescriptor.h"
#include "recording/RecordingLine.h"

#include <cstdint>
#include <memory>
#include <string>

namespace TelvaneTool
{

/// Writes a recording into one file or into several numbered files, always in whole lines.
///
/// Lines are collected until the caller calls flush(), up to some hundred kilobytes, and written at once. So if
/// the process is killed, the file ends with a whole line. What flush() has written is on the disk within a
/// second, or once close() has returned.
class RecordingWriter
{
public:
    struct Settings
    {
        std::string path;            ///< "-" for standard output
        bool replace = false;        ///< replace an existing file
        bool numbered = false;       ///< "weld.jsonl" gives "weld-0001.jsonl", from the first free number
        std::uint64_t splitSize = 0; ///< start a new file at this size; 0 for never
        Nanoseconds splitAfter = 0;  ///< start a new file after this time; 0 for never
        Compression compression = Compression::None;
    };

    explicit RecordingWriter(Settings settings) : m_settings(std::move(settings)) {}
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    /// Opens the first file; after close(), the next one. Prints the reason if it fails.
    /// \param header  its part is set for each file
    bool open(const RecordingHeader& header);
    bool isOpen() const { return m_file.isOpen(); }

    /// Adds a line made by appendMessage().
    /// \param message  the message of the line
    /// \return false if it fails, after printing the reason; the file then ends with a whole line
    bool add(std::string_view line, const RecordedMessage& message);

    /// Writes what has been added, and every second has the disk store it. If the disk fails, close() returns that too.
    /// \return false if writing fails, after printing the reason
    bool flush();

    /// \return false if it fails, after printing the reason
    bool close();

    std::uint64_t bytes() const { return m_totalBytes; } ///< written to all files
    std::uint64_t records() const { return m_records; }  ///< written to all files
    std::uint64_t missed() const { return m_missed; }    ///< by the notes added to all files
    int files() const { return m_files; }
    const std::string& currentPath() const { return m_path; }

private:
    int openFile(const std::string& path);
    std::string encode(std::string_view lines, bool last);
    bool write(bool last = false);
    bool writeData(const std::string& data);
    void synchronize();
    bool fail(int error, std::size_t written);
    std::string numberedPath(int number) const;

    const Settings m_settings;
    RecordingHeader m_header;
    std::string m_path;       ///< of the current file
    FileDescriptor m_file;    ///< the current file, or a duplicate of standard output
    bool m_toDisk = false;    ///< the current file is not standard output
    bool m_notOnDisk = false; ///< the disk could not store the current file
    int m_number = 0;         ///< in the current file's name
    int m_files = 0;
    std::string m_pending;
    std::uint64_t m_pendingRecords = 0;
    std::uint64_t m_fileBytes = 0;    ///< written and pending
    std::uint64_t m_writtenBytes = 0; ///< of the current file
    std::uint64_t m_totalBytes = 0;
    std::uint64_t m_records = 0;
    std::uint64_t m_missed = 0;
    std::unique_ptr<Compressor> m_compressor;
    Nanoseconds m_firstTime = -1;
    Nanoseconds m_syncTime = 0; ///< on the monotonic clock
};

} // namespace TelvaneTool

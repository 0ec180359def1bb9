#pragma once

#include "archive/database/Database.h"
#include "common/support/FileDescriptor.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace TelvaneArchive
{

/// A file of chunks that only grows.
class SampleFile
{
public:
    /// Where a chunk is.
    struct Place
    {
        std::int64_t offset = 0;
        std::int64_t size = 0;
    };

    /// Opens a file to append to, and creates it with its folder if necessary.
    Status open(const std::string& path);
    bool isOpen() const { return m_file.isOpen(); }
    const std::string& path() const { return m_path; }
    std::int64_t size() const { return m_size; }

    /// Appends a chunk. After a failure the file is as before.
    Status append(std::string_view chunk, Place& place);
    /// Has the disk store everything that was appended.
    Status sync();
    void close();
    /// Cuts the file off at an offset. If that fails, the file is closed.
    void shorten(std::int64_t offset);

    /// Calls \p take for each sound chunk from \p offset on, and cuts off what follows the last one: a chunk that a
    /// power cut has torn.
    /// \param[out] removed  number of bytes that were cut off
    Status recover(std::int64_t offset,
                   const std::function<void(const Place& place, std::string_view chunk)>& take,
                   std::int64_t& removed);

private:
    std::string m_path;
    TelvaneTool::FileDescriptor m_file;
    std::int64_t m_size = 0;
    bool m_dirty = false;
};

/// Reads bytes of a file.
/// \return false if the file does not have them
bool readFilePart(const std::string& path, const SampleFile::Place& place, std::string& bytes);

/// \return the file name of a moment's month in UTC, such as "2026-11.samples"
std::string sampleFileName(std::int64_t nanoseconds);
/// \return the folder of the sample files of an SQLite archive
std::string sampleFolder(const std::string& databasePath);

} // namespace TelvaneArchive

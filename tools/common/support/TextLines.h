#pragma once

#include "common/support/Compression.h"
#include "common/support/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// Reads a text file line by line, in large pieces. The file may be compressed with gzip or zstd.
class TextLines
{
public:
    /// Waits until a descriptor can be read.
    /// \return false to stop reading
    using Waiter = std::function<bool(int fd)>;

    /// \param path a file, or "-" for standard input
    /// \param waiter called before each read; may be empty
    /// \return 0 or an error number (positive errno)
    int open(const std::string& path, Waiter waiter = {});

    /// \param[out] line without its line ending; valid until the next call
    /// \return false at the end or on failure, see error()
    bool next(std::string_view& line);

    /// \return the number of the last line, counted from 1
    std::uint64_t number() const { return m_number; }

    /// \return false if the last line had no line ending
    bool whole() const { return m_whole; }

    /// \return the error number that ended the reading (positive errno), or 0
    int error() const { return m_error; }

    /// \return whether the file is compressed; known after the first line
    bool compressed() const { return m_decompressor != nullptr; }

    /// \return whether the waiter stopped the reading; an incomplete line is then dropped
    bool stopped() const { return m_stopped; }

private:
    bool refill();
    bool decompress(std::size_t size);

    Waiter m_waiter;
    FileDescriptor m_file; ///< closed when reading standard input
    int m_fd = STDIN_FILENO;
    bool m_ended = false;
    bool m_stopped = false; ///< by the waiter
    bool m_whole = true;
    int m_error = 0;
    std::uint64_t m_number = 0;
    bool m_begun = false;                         ///< the compression is known
    bool m_damaged = false;                       ///< the compressed data is
    std::unique_ptr<Decompressor> m_decompressor; ///< null if not compressed
    std::string m_decompressed;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0; ///< of the unread part
    std::size_t m_end = 0;   ///< of the data
};

} // namespace TelvaneTool

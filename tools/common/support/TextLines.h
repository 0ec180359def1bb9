#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// The lines of a text file, read in large pieces, so that a recording of any length takes little memory.
class TextLines
{
public:
    TextLines() = default;
    ~TextLines();
    TextLines(const TextLines&) = delete;
    TextLines& operator=(const TextLines&) = delete;

    /// Waits until a descriptor can be read.
    /// \return false when there is to be an end to the reading
    using Waiter = std::function<bool(int fd)>;

    /// \param path a file, or "-" for standard input
    /// \param waiter called before each read, if not empty
    /// \return 0 or an error number
    int open(const std::string& path, Waiter waiter = {});

    /// \param[out] line without its line end; valid until the next call
    /// \return false at the end and when reading failed, see error()
    bool next(std::string_view& line);

    /// \return the number of the last line, counted from 1
    std::uint64_t number() const { return m_number; }

    /// \return false when the last line handed out lacked its line end
    bool whole() const { return m_whole; }

    /// \return the error number that ended the reading, or 0
    int error() const { return m_error; }

    /// \return true when the waiter ended the reading; a line that was begun is not handed out
    bool stopped() const { return m_stopped; }

private:
    bool refill();

    Waiter m_waiter;
    int m_fd = -1;
    bool m_ownsFd = false;
    bool m_ended = false;
    bool m_stopped = false; ///< by the waiter
    bool m_whole = true;
    int m_error = 0;
    std::uint64_t m_number = 0;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0; ///< of what is not yet handed out
    std::size_t m_end = 0;   ///< of what has been read
};

} // namespace TelvaneTool

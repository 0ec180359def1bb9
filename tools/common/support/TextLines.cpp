// Recordings have hundreds of thousands of lines. A line is therefore a view into one buffer, without an
// allocation of its own.

#include "common/support/TextLines.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kPieceSize = 262144;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

} // namespace

int TextLines::open(const std::string& path, Waiter waiter)
{
    m_waiter = std::move(waiter);
    if (path != "-") {
        m_file = FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!m_file.isOpen()) {
            return errno;
        }
        m_fd = m_file.get();
    }
    m_buffer.resize(kPieceSize);
    return 0;
}

bool TextLines::refill()
{
    if (m_begin > 0) {
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_end == m_buffer.size()) {
        m_buffer.resize(m_buffer.size() * 2); // a line longer than the buffer
    }
    if (m_waiter && !m_waiter(m_fd)) {
        m_stopped = true;
        m_ended = true;
        return false;
    }
    ssize_t size = 0;
    do {
        size = read(m_fd, m_buffer.data() + m_end, m_buffer.size() - m_end);
    } while (size < 0 && errno == EINTR);
    if (size < 0) {
        m_error = errno;
    }
    if (size <= 0) {
        m_ended = true;
        return false;
    }
    m_end += static_cast<std::size_t>(size);
    return true;
}

bool TextLines::next(std::string_view& line)
{
    std::size_t searched = m_begin;
    const char* newline = nullptr;
    for (;;) {
        newline = static_cast<const char*>(std::memchr(m_buffer.data() + searched, '\n', m_end - searched));
        if (newline != nullptr || m_ended) {
            break;
        }
        const std::size_t pending = m_end - m_begin;
        refill();
        searched = m_begin + pending;
    }
    if (m_error != 0 || m_stopped || (newline == nullptr && m_begin == m_end)) {
        return false;
    }
    const char* const first = m_buffer.data() + m_begin;
    const char* const last = newline != nullptr ? newline : m_buffer.data() + m_end;
    line = std::string_view(first, static_cast<std::size_t>(last - first));
    m_whole = newline != nullptr;
    m_begin += line.size() + (newline != nullptr ? 1 : 0);
    ++m_number;
    if (m_number == 1 && line.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        line.remove_prefix(kByteOrderMark.size());
    }
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return true;
}

} // namespace TelvaneTool

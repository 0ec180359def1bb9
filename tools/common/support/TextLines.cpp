// Recordings have hundreds of thousands of lines. A line is therefore a view into one buffer, without an
// allocation of its own.

#include "common/support/TextLines.h"

#include <algorithm>
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
constexpr std::size_t kCompressedPiece = 16384;
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
    // A compressed piece becomes many times as large.
    const std::size_t room = m_buffer.size() - m_end;
    ssize_t size = 0;
    do {
        size = read(m_fd, m_buffer.data() + m_end,
                    m_decompressor != nullptr ? std::min(room, kCompressedPiece) : room);
    } while (size < 0 && errno == EINTR);
    if (size < 0) {
        m_error = errno;
    }
    if (size <= 0) {
        m_ended = true;
        return false;
    }
    return decompress(static_cast<std::size_t>(size));
}

/// Takes the bytes just read, which are after the end of the data.
bool TextLines::decompress(std::size_t size)
{
    const std::string_view added(m_buffer.data() + m_end, size);
    if (!m_begun) {
        m_begun = true;
        m_decompressor = makeDecompressor(compressionOfData(added));
    }
    if (m_decompressor == nullptr) {
        m_end += size;
        return true;
    }
    m_decompressed.clear();
    m_damaged = !m_decompressor->decompress(added, m_decompressed);
    m_ended = m_damaged;
    m_buffer.resize(std::max(m_buffer.size(), m_end + m_decompressed.size() + 1));
    std::copy(m_decompressed.begin(), m_decompressed.end(),
              m_buffer.begin() + static_cast<std::ptrdiff_t>(m_end));
    m_end += m_decompressed.size();
    return !m_ended;
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
    if (newline == nullptr && m_damaged) {
        m_error = EBADMSG;
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

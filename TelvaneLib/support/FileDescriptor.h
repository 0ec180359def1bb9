#pragma once

#include <unistd.h>
#include <utility>

namespace Telvane
{

/// Owns a file descriptor and closes it.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~FileDescriptor() { reset(); }

    int get() const { return m_fd; }
    bool isOpen() const { return m_fd >= 0; }

    /// Gives up ownership, for a caller that checks the result of close().
    int release() { return std::exchange(m_fd, -1); }

    void reset(int fd = -1)
    {
        if (isOpen()) {
            close(m_fd);
        }
        m_fd = fd;
    }

private:
    int m_fd = -1;
};

} // namespace Telvane

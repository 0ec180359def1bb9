// System calls of the named pipe that cannot be made to happen from outside: an interrupted write, and the flags of a
// descriptor that exists for a moment. The linker redirects these calls of the library to this file.

#include "helpers/DynamicFileFixture.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace
{

std::atomic<int> interruptions{0};  ///< how many writes of a newline are to be interrupted
std::atomic<int> flagsOfReader{-1}; ///< of the last open() for reading without waiting

void noteFlags(int flags)
{
    if ((flags & O_ACCMODE) == O_RDONLY && (flags & O_NONBLOCK) != 0) {
        flagsOfReader = flags;
    }
}

} // namespace

// The names that the linker gives them.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)
extern "C" {

ssize_t __real_write(int fd, const void* data, size_t size);
int __real_open(const char* path, int flags, mode_t mode);

ssize_t __wrap_write(int fd, const void* data, size_t size)
{
    if (size == 1 && std::memcmp(data, "\n", 1) == 0 && interruptions > 0) {
        --interruptions;
        errno = EINTR;
        return -1;
    }
    return __real_write(fd, data, size);
}

int __wrap_open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    noteFlags(flags);
    return __real_open(path, flags, mode);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)

namespace Telvane::Testing
{
namespace
{

using DynamicFileFault = DynamicFile;

TEST_F(DynamicFileFault, WritesTheNewlineAfterInterruptions)
{
    DynamicFileInterface file(m_path, saying("hello"));
    interruptions = 3;
    openSilently(file);
    EXPECT_TRUE(comesToRead(m_path, "hello\n"));
    EXPECT_EQ(interruptions, 0);
    EXPECT_EQ(file.Close(), 0);
}

TEST_F(DynamicFileFault, DoesNotPassTheReaderThatWakesItsListenerToOtherPrograms)
{
    DynamicFileInterface file(m_path, saying("hello"));
    openAndAwaitListener(file);
    flagsOfReader = -1;
    EXPECT_EQ(file.Close(), 0);
    ASSERT_NE(flagsOfReader, -1);
    EXPECT_NE(flagsOfReader & O_CLOEXEC, 0);
}

} // namespace
} // namespace Telvane::Testing

#pragma once

// The linker redirects the calls with which the archive writes its own files to this file, which notes them. To be
// included once in a program.

#include "archive/RecordedDisk.h"

#include <climits>
#include <cstdarg>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace TelvaneArchive::Testing
{

/// What this program does to files.
inline RecordedDisk recordedDisk;

/// Notes what is done to the file of a descriptor.
inline void note(RecordedDisk::Kind kind, int fd, std::size_t offset = 0, std::string_view data = {})
{
    char path[PATH_MAX];
    if (recordedDisk.isRecording()) {
        const ssize_t size = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
        recordedDisk.note(kind, {path, size > 0 ? static_cast<std::size_t>(size) : 0}, offset, data);
    }
}

} // namespace TelvaneArchive::Testing

#ifdef __USE_FILE_OFFSET64 // then the C library gives these calls other names
#define __real_open __real_open64
#define __wrap_open __wrap_open64
#define __real_ftruncate __real_ftruncate64
#define __wrap_ftruncate __wrap_ftruncate64
#endif

using RecordedKind = TelvaneArchive::Testing::RecordedDisk::Kind;

// The names that the linker gives them.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp,misc-definitions-in-headers)
extern "C" {

ssize_t __real_write(int fd, const void* data, size_t size);
int __real_open(const char* path, int flags, mode_t mode);
int __real_ftruncate(int fd, off_t size);
int __real_mkdir(const char* path, mode_t mode);
int __real_unlink(const char* path);

ssize_t __wrap_write(int fd, const void* data, size_t size)
{
    const ssize_t written = __real_write(fd, data, size);
    if (written > 0 && TelvaneArchive::Testing::recordedDisk.isRecording()) {
        const auto count = static_cast<std::size_t>(written);
        TelvaneArchive::Testing::note(RecordedKind::Write, fd,
                                      static_cast<std::size_t>(lseek(fd, 0, SEEK_CUR)) - count,
                                      {static_cast<const char*>(data), count});
    }
    return written;
}

int __wrap_open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const bool isNew = (flags & O_CREAT) != 0 && access(path, F_OK) != 0;
    const int fd = __real_open(path, flags, mode);
    if (fd >= 0 && isNew) {
        TelvaneArchive::Testing::recordedDisk.note(RecordedKind::Make, path);
    }
    return fd;
}

int __wrap_ftruncate(int fd, off_t size)
{
    TelvaneArchive::Testing::note(RecordedKind::Truncate, fd, static_cast<std::size_t>(size));
    return __real_ftruncate(fd, size);
}

// The kernel need not do it: there is no power cut but in the notes.
int __wrap_fdatasync(int fd)
{
    TelvaneArchive::Testing::note(RecordedKind::Sync, fd);
    return 0;
}

int __wrap_fsync(int fd)
{
    struct stat status = {};
    const bool isFolder = fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
    TelvaneArchive::Testing::note(isFolder ? RecordedKind::SyncFolder : RecordedKind::Sync, fd);
    return 0;
}

int __wrap_mkdir(const char* path, mode_t mode)
{
    const int result = __real_mkdir(path, mode);
    if (result == 0) {
        TelvaneArchive::Testing::recordedDisk.note(RecordedKind::MakeFolder, path);
    }
    return result;
}

int __wrap_unlink(const char* path)
{
    const int result = __real_unlink(path);
    if (result == 0) {
        TelvaneArchive::Testing::recordedDisk.note(RecordedKind::Remove, path);
    }
    return result;
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp,misc-definitions-in-headers)

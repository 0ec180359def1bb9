// A recording is wanted most when something has gone wrong, also with the recorder's machine: so there is no
// index and no footer, a file is complete with each line, and one that cannot be written on is cut back to its
// last whole line.

#include "recording/RecordingWriter.h"

#include "common/bus/BusConnection.h"
#include "common/cli/Messages.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxPending = 262144;
constexpr Nanoseconds kSyncPeriod = kSecond;
constexpr int kMaxFiles = 1'000'000;

} // namespace

RecordingWriter::~RecordingWriter()
{
    close();
}

std::string RecordingWriter::numberedPath(int number) const
{
    const std::string& path = m_settings.path;
    const std::size_t name = path.find_last_of('/') + 1; // npos + 1 is 0
    std::size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || dot <= name) {
        dot = path.size();
    }
    char digits[16];
    std::snprintf(digits, sizeof digits, "-%04d", number);
    return path.substr(0, dot) + digits + path.substr(dot);
}

bool RecordingWriter::openFile(const std::string& path, int& error)
{
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (m_settings.replace ? O_TRUNC : O_EXCL);
    m_fd = ::open(path.c_str(), flags, 0666);
    error = m_fd < 0 ? errno : 0;
    m_path = path;
    return m_fd >= 0;
}

bool RecordingWriter::open(const RecordingHeader& header)
{
    int error = 0;
    m_header = header;
    m_header.part = ++m_files;
    if (m_settings.path == "-") {
        m_fd = STDOUT_FILENO;
        m_path = "standard output";
    } else if (m_settings.numbered) {
        // After a restart the numbers go on behind the files that are there.
        do {
            ++m_number;
        } while (!openFile(numberedPath(m_number), error) && error == EEXIST && m_number < kMaxFiles);
    } else {
        openFile(m_settings.path, error);
    }
    if (m_fd < 0) {
        printError(error == EEXIST ? m_path + " is there already; it is left alone (--force replaces it)"
                                   : "cannot write " + m_path + ": " + std::strerror(error));
        return false;
    }
    m_pending = printHeader(m_header);
    m_fileBytes = m_pending.size();
    m_written = 0;
    m_firstTime = -1;
    return flush();
}

bool RecordingWriter::add(std::string_view lines, Nanoseconds time)
{
    const bool begun = m_firstTime >= 0;
    if (begun && ((m_settings.splitSize != 0 && m_fileBytes + lines.size() > m_settings.splitSize) ||
                  (m_settings.splitAfter != 0 && time - m_firstTime >= m_settings.splitAfter))) {
        if (!close() || !open(m_header)) {
            return false;
        }
    }
    if (m_firstTime < 0) {
        m_firstTime = time;
    }
    m_pending.append(lines);
    m_fileBytes += lines.size();
    return m_pending.size() < kMaxPending || write();
}

bool RecordingWriter::write()
{
    std::string_view rest = m_pending;
    while (!rest.empty()) {
        const ssize_t size = ::write(m_fd, rest.data(), rest.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0) {
            return fail(errno, rest.size() != m_pending.size());
        }
        rest.remove_prefix(static_cast<std::size_t>(size));
    }
    m_written += m_pending.size();
    m_totalBytes += m_pending.size();
    m_pending.clear();
    return true;
}

bool RecordingWriter::fail(int error, bool torn)
{
    printError("cannot write " + m_path + ": " + std::strerror(error));
    if (m_fd != STDOUT_FILENO) {
        // What was written of the last piece may end in the middle of a line.
        if (torn && ftruncate(m_fd, static_cast<off_t>(m_written)) != 0) {
            printError("the end of " + m_path + " may be torn");
        }
        ::close(m_fd);
    }
    m_fd = -1;
    m_pending.clear();
    return false;
}

bool RecordingWriter::flush()
{
    if (m_fd < 0) {
        return true;
    }
    const bool written = !m_pending.empty();
    if (written && !write()) {
        return false;
    }
    const Nanoseconds now = monotonicNow();
    if (written && m_fd != STDOUT_FILENO && now - m_synced >= kSyncPeriod) {
        fdatasync(m_fd); // where a file cannot be synchronised, as in a pipe, there is nothing to lose
        m_synced = now;
    }
    return true;
}

bool RecordingWriter::close()
{
    if (m_fd < 0) {
        return true;
    }
    if (!write()) {
        return false;
    }
    const int fd = m_fd;
    m_fd = -1;
    if (fd == STDOUT_FILENO) {
        return true;
    }
    fdatasync(fd);
    if (::close(fd) != 0) {
        printError("cannot write " + m_path + ": " + std::strerror(errno));
        return false;
    }
    return true;
}

} // namespace TelvaneTool

// A recording matters most when something goes wrong, even if that is the recorder's own machine. So there is no
// index and no footer: the file is complete after each line. If the disk is full, the file is cut back to its last
// whole line.

#include "recording/RecordingWriter.h"

#include "common/cli/Messages.h"
#include "common/support/Clock.h"
#include "common/support/HumanReadable.h"
#include "common/support/OutputFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxPending = 262144;
constexpr Nanoseconds kSyncPeriod = kSecond;
constexpr int kMaxFiles = 1'000'000;

/// \return number of messages, without the first line and notes
std::uint64_t countRecords(std::string_view lines)
{
    std::uint64_t count = 0;
    RecordingLineReader reader;
    RecordedMessage message;
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(line.size() + 1);
        count += reader.read(line, message) && !message.isNote() ? 1 : 0;
    }
    return count;
}

} // namespace

RecordingWriter::~RecordingWriter()
{
    close();
}

std::string RecordingWriter::numberedPath(int number) const
{
    const std::string& path = m_settings.path;
    const std::size_t name = path.find_last_of('/') + 1; // npos + 1 is 0
    const std::size_t end = path.size() - compressionSuffix(path).size();
    std::size_t dot = path.find_last_of('.', end - 1);
    if (dot == std::string::npos || dot <= name) {
        dot = end;
    }
    return path.substr(0, dot) + formatted("-%04d", number) + path.substr(dot);
}

std::string RecordingWriter::encode(std::string_view lines, bool last)
{
    return m_compressor != nullptr ? m_compressor->compress(lines, last) : std::string(lines);
}

/// Opens a file and writes its first line.
/// \return 0 or an error number
int RecordingWriter::openFile(const std::string& path)
{
    m_path = path;
    m_compressor = makeCompressor(m_settings.compression);
    const std::string header = encode(printHeader(m_header), false);
    int error = 0;
    m_toDisk = path != "-";
    if (m_settings.replace && m_toDisk) {
        // The old file stays complete for those who have it open.
        OutputFile file;
        error = file.open(path);
        error = error == 0 ? file.write(header) : error;
        error = error == 0 ? file.publish() : error;
        m_file = FileDescriptor(error == 0 ? file.release() : -1);
    } else {
        FileDescriptor file(m_toDisk ? ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)
                                     : fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
        error = file.isOpen() ? writeFully(file.get(), header) : errno;
        if (error == 0) {
            m_file = std::move(file);
        } else if (m_toDisk && file.isOpen()) {
            unlink(path.c_str());
        }
    }
    m_writtenBytes = header.size();
    return error;
}

bool RecordingWriter::open(const RecordingHeader& header)
{
    int error = 0;
    m_header = header;
    m_header.part = m_files + 1;
    if (m_settings.numbered) {
        // After a restart, the numbers continue after those of the existing files.
        do {
            ++m_number;
            error = openFile(numberedPath(m_number));
        } while (error == EEXIST && m_number < kMaxFiles);
    } else {
        error = openFile(m_settings.path);
    }
    if (m_path == "-") {
        m_path = "standard output";
    }
    if (error != 0) {
        printError(error == EEXIST ? m_path + " exists; use --force to replace it"
                                   : "cannot write " + m_path + ": " + std::strerror(error));
        return false;
    }
    ++m_files;
    m_fileBytes = m_writtenBytes;
    m_totalBytes += m_writtenBytes;
    m_firstTime = -1;
    m_syncTime = 0;
    return true;
}

bool RecordingWriter::add(std::string_view line, const RecordedMessage& message)
{
    const bool begun = m_firstTime >= 0;
    if (begun && ((m_settings.splitSize != 0 && m_fileBytes + line.size() > m_settings.splitSize) ||
                  (m_settings.splitAfter != 0 && message.time - m_firstTime >= m_settings.splitAfter))) {
        if (!close() || !open(m_header)) {
            return false;
        }
    }
    if (m_firstTime < 0) {
        m_firstTime = message.time;
    }
    m_pending.append(line);
    m_fileBytes += line.size();
    m_pendingRecords += !message.isNote() ? 1 : 0;
    m_missed += message.missed;
    return m_pending.size() < kMaxPending || write();
}

bool RecordingWriter::write(bool last)
{
    if (m_pending.empty() && !last) {
        return true;
    }
    if (!writeData(encode(m_pending, last))) {
        return false;
    }
    m_records += std::exchange(m_pendingRecords, 0);
    m_pending.clear();
    m_fileBytes = m_writtenBytes;
    return true;
}

bool RecordingWriter::writeData(const std::string& data)
{
    std::size_t written = 0;
    while (written < data.size()) {
        const ssize_t size = ::write(m_file.get(), data.data() + written, data.size() - written);
        if (size < 0 && errno != EINTR) {
            return fail(errno, written);
        }
        written += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    m_writtenBytes += data.size();
    m_totalBytes += data.size();
    return true;
}

/// \param written  bytes of the data that were written before the error
bool RecordingWriter::fail(int error, std::size_t written)
{
    printError("cannot write " + m_path + ": " + std::strerror(error));
    // Compressed data can only be cut at the end of the last flush.
    const std::string_view kept =
        m_compressor != nullptr
            ? std::string_view()
            : std::string_view(m_pending).substr(0, std::string_view(m_pending).rfind('\n', written - 1) + 1);
    const std::string_view whole = written == 0 ? std::string_view() : kept;
    m_records += countRecords(whole);
    m_totalBytes += whole.size();
    if (m_toDisk && written != whole.size() &&
        ftruncate(m_file.get(), static_cast<off_t>(m_writtenBytes + whole.size())) != 0) {
        printError("the last line of " + m_path + " may be incomplete");
    }
    m_file = FileDescriptor();
    m_pending.clear();
    m_pendingRecords = 0;
    return false;
}

bool RecordingWriter::flush()
{
    if (!isOpen()) {
        return true;
    }
    const bool written = !m_pending.empty();
    if (!write()) {
        return false;
    }
    const Nanoseconds now = monotonicNow();
    if (written && m_toDisk && now - m_syncTime >= kSyncPeriod) {
        synchronize();
        m_syncTime = now;
    }
    return true;
}

bool RecordingWriter::close()
{
    if (!isOpen()) {
        return true;
    }
    if (!write(true)) {
        return false;
    }
    if (m_toDisk) {
        synchronize();
    }
    if (::close(m_file.release()) != 0) {
        printError("cannot write " + m_path + ": " + std::strerror(errno));
        return false;
    }
    return !std::exchange(m_notOnDisk, false);
}

/// An error is reported at once and in the result of close(): the system reports it only once.
void RecordingWriter::synchronize()
{
    // A pipe, which cannot be synchronised, has nothing to lose.
    if (fdatasync(m_file.get()) != 0 && errno != EINVAL && errno != EROFS) {
        printError("cannot write " + m_path + ": " + std::strerror(errno));
        m_notOnDisk = true;
    }
}

} // namespace TelvaneTool

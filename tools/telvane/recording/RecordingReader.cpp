#include "recording/RecordingReader.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <cstring>
#include <sys/stat.h>

namespace TelvaneTool
{

bool RecordingReader::open(const std::string& path, TextLines::Waiter waiter)
{
    m_path = path == "-" ? "standard input" : path;
    if (const int error = m_lines.open(path, std::move(waiter)); error != 0) {
        printError("cannot read " + m_path + ": " + std::strerror(error));
        return false;
    }
    struct stat status = {};
    if (path != "-" && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        m_size = static_cast<std::uint64_t>(status.st_size);
    }
    std::string_view line;
    if (!m_lines.next(line)) {
        if (!m_lines.stopped()) {
            printError("cannot read " + m_path + ": " +
                       (m_lines.error() != 0 ? std::strerror(m_lines.error()) : "the file is empty"));
        }
        return false;
    }
    m_bytes = line.size() + 1;
    m_size = m_lines.compressed() ? 0 : m_size;
    std::string error;
    if (!readHeader(std::string(line), m_header, error)) {
        printError(m_path + ": " + error);
        return false;
    }
    return true;
}

bool RecordingReader::next(RecordedMessage& message)
{
    std::string_view line;
    while (m_lines.next(line)) {
        m_bytes += line.size() + 1;
        if (m_reader.read(line, message)) {
            return true;
        }
        if (!m_lines.whole()) {
            m_tornBytes = line.size();
        } else if (!line.empty() && ++m_damagedLines == 1) {
            m_firstDamagedLine = m_lines.number();
        }
    }
    return false;
}

int RecordingReader::finish() const
{
    if (m_tornBytes != 0) {
        printError(m_path + ": the last line is incomplete; ignored " + std::to_string(m_tornBytes) +
                   " bytes");
    }
    if (m_damagedLines != 0) {
        printError(m_path + ": skipped damaged lines: " + std::to_string(m_damagedLines) +
                   ", the first is line " + std::to_string(m_firstDamagedLine));
    }
    if (m_lines.error() != 0) {
        printError("cannot read " + m_path + ": " + std::strerror(m_lines.error()));
    }
    return m_damagedLines != 0 || m_lines.error() != 0 ? kWrongInput : kSuccess;
}

} // namespace TelvaneTool

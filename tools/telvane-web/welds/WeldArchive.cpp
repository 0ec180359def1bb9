#include "telvane-web/welds/WeldArchive.h"

#include "common/support/HumanReadable.h"
#include "telvane-web/http/Query.h"

namespace TelvaneTool
{

namespace
{

constexpr unsigned kUnavailable = 503;

} // namespace

TelvaneArchive::ArchiveReader* WeldArchive::reader(HttpReply& failure)
{
    if (m_reader == nullptr) {
        TelvaneArchive::Status status;
        m_reader = TelvaneArchive::ArchiveReader::open(m_location, status, m_longestStatement);
        if (m_reader == nullptr) {
            failure = failed(status);
        }
    }
    return m_reader.get();
}

HttpReply WeldArchive::failed(const TelvaneArchive::Status& status)
{
    m_reader.reset(); // the next question opens the archive again
    const std::string limit = status.code == TelvaneArchive::Status::Code::Late
                                  ? "a question may take " + printDuration(m_longestStatement) + ": "
                                  : "";
    return httpFailure(kUnavailable, "the archive: " + limit + status.text);
}

} // namespace TelvaneTool

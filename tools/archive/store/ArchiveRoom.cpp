// A full disk. Rows are small and say that there was a weld, so they come before samples: a file of ballast, which is
// deleted then, keeps room for them. Samples of running welds wait in memory. While the ballast does not fit, nothing
// but rows is written; once it does, there is room for samples again.

#include "archive/store/ArchiveStore.h"

#include <fcntl.h>
#include <unistd.h>

namespace TelvaneArchive
{

Status ArchiveStore::commit()
{
    const bool wait = isFull() && !makeBallast();
    Status status = wait ? m_noRoom : commitOnce(Contents::Everything);
    if (status.code == Status::Code::Full && !isFull()) {
        emptyLog(); // the log may be larger than what is missing
        status = commitOnce(Contents::Everything);
    }
    if (status.code == Status::Code::Full) {
        return commitRows(status);
    }
    m_noRoom = {};
    if (status && !m_hasBallast) {
        makeBallast();
    }
    return status;
}

/// \return why not everything was stored, even if the rows were
Status ArchiveStore::commitRows(const Status& noRoom)
{
    m_noRoom = noRoom;
    dropSamplesOfEnded();
    Status rows = commitOnce(Contents::Rows);
    if (rows.code == Status::Code::Full && removeBallast()) {
        emptyLog();
        rows = commitOnce(Contents::Rows);
    }
    return rows ? noRoom : rows;
}

/// Copies the log into the database file and gives its room back.
void ArchiveStore::emptyLog()
{
    std::vector<Row> ignored;
    m_database->run("PRAGMA wal_checkpoint(TRUNCATE)", {}, &ignored);
}

/// The row of a weld that has ended is worth more than its last samples.
void ArchiveStore::dropSamplesOfEnded()
{
    for (auto& [handle, running] : m_running) {
        if (running.ending.empty()) {
            continue;
        }
        Weld& weld = running.weld;
        const std::size_t dropped = running.waiting.size();
        weld[Column::Unstored] = weld.whole(Column::Unstored) + static_cast<std::int64_t>(dropped);
        m_counters.unstored += dropped;
        m_waiting -= dropped;
        running.waiting.clear();
    }
}

bool ArchiveStore::makeBallast()
{
    if (m_settings.ballast == 0) {
        return true;
    }
    const std::string path = m_path + ".ballast";
    const TelvaneTool::FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    m_hasBallast =
        file.isOpen() && posix_fallocate(file.get(), 0, static_cast<off_t>(m_settings.ballast)) == 0;
    if (!m_hasBallast) {
        unlink(path.c_str());
    }
    return m_hasBallast;
}

/// \return whether there was any
bool ArchiveStore::removeBallast()
{
    m_hasBallast = false;
    return unlink((m_path + ".ballast").c_str()) == 0;
}

} // namespace TelvaneArchive

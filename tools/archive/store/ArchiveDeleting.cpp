// Deleting: samples first, rows later. A sample file is deleted as a whole once no weld needs it; until then, the room
// of deleted chunks is given back to the file system by punching holes, which leaves all offsets as they are.

#include "archive/store/ArchiveStore.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

namespace TelvaneArchive
{

Status ArchiveStore::deleteWelds(const std::vector<std::int64_t>& ids)
{
    Status status;
    for (const std::int64_t id : ids) {
        status = status ? deleteSamples(id) : status;
        Transaction transaction(*m_database);
        status = status ? transaction.begun() : status;
        for (const Sql& statement :
             {Sql("DELETE FROM envelope WHERE weld_id = $1"), Sql("DELETE FROM event WHERE weld_id = $1"),
              Sql("DELETE FROM finding WHERE weld_id = $1"), Sql("DELETE FROM weld WHERE id = $1")}) {
            status = status ? m_database->run(statement, {id}) : status;
        }
        status = status ? transaction.commit() : status;
    }
    return status;
}

Status ArchiveStore::deleteSamples(std::int64_t id)
{
    std::vector<Row> rows;
    Status status = m_database->run("SELECT DISTINCT file FROM chunk WHERE weld_id = $1", {id}, &rows);
    std::vector<Row> chunks;
    status = status ? m_database->run("SELECT file, place, size FROM chunk WHERE weld_id = $1", {id}, &chunks)
                    : status;
    status = status ? m_database->run("DELETE FROM chunk WHERE weld_id = $1", {id}) : status;
    if (!status) {
        return status;
    }
    for (const Row& row : rows) {
        status = dropFromFile(textOf(row[0]), chunks);
    }
    return status;
}

Status ArchiveStore::dropFromFile(const std::string& name, const std::vector<Row>& chunks)
{
    std::vector<Row> rows;
    Status status = m_database->run(
        "SELECT count(*) FROM (SELECT 1 FROM chunk WHERE file = $1 LIMIT 1) AS some", {name}, &rows);
    if (!status) {
        return status;
    }
    const std::string path = sampleFolder(m_path) + "/" + name;
    const bool running = std::any_of(m_running.begin(), m_running.end(), [&name](const auto& entry) {
        return sampleFileName(entry.second.weld.whole(Column::StartNs)) == name;
    });
    if (wholeOf(rows[0][0]) == 0 && !running) {
        m_files.erase(name);
        unlink(path.c_str());
        return status;
    }
    const TelvaneTool::FileDescriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    for (const Row& chunk : chunks) {
        if (file.isOpen() && textOf(chunk[0]) == name) {
            // A file system without holes keeps the room until the file goes.
            static_cast<void>(fallocate(file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                                        static_cast<off_t>(wholeOf(chunk[1])),
                                        static_cast<off_t>(wholeOf(chunk[2]))));
        }
    }
    return status;
}

Status ArchiveStore::retain(const Retention& retention, std::int64_t now, Retained& retained)
{
    Status status;
    std::vector<Row> rows;
    const auto samplesOf = [this, &retained](const std::vector<Row>& welds) {
        Status deleted;
        for (const Row& row : welds) {
            deleted = deleted ? deleteSamples(wholeOf(row[0])) : deleted;
            retained.sampleWelds += deleted ? 1 : 0;
            retained.bytes += deleted ? wholeOf(row[1]) : 0;
        }
        return deleted;
    };
    if (retention.samplesAge > 0) {
        status = m_database->run(
            "SELECT id, bytes_stored FROM weld WHERE start_ns < $1 AND ending <> 'running' AND "
            "EXISTS (SELECT 1 FROM chunk WHERE weld_id = id) ORDER BY start_ns",
            {now - retention.samplesAge}, &rows);
        status = status ? samplesOf(rows) : status;
    }
    if (status && retention.samplesBytes > 0) {
        std::vector<Row> total;
        status = m_database->run("SELECT coalesce(sum(size), 0) FROM chunk", {}, &total);
        std::int64_t excess = status ? wholeOf(total[0][0]) - retention.samplesBytes : 0;
        rows.clear();
        status =
            status ? m_database->run("SELECT id, bytes_stored FROM weld WHERE ending <> 'running' AND EXISTS "
                                     "(SELECT 1 FROM chunk WHERE weld_id = id) ORDER BY start_ns",
                                     {}, &rows)
                   : status;
        std::vector<Row> oldest;
        for (const Row& row : rows) {
            if (excess > 0) {
                oldest.push_back(row);
                excess -= wholeOf(row[1]);
            }
        }
        status = status ? samplesOf(oldest) : status;
    }
    if (status && retention.rowsAge > 0) {
        rows.clear();
        status = m_database->run(
            "SELECT id FROM weld WHERE start_ns < $1 AND ending <> 'running' AND (verdict IS NULL "
            "OR verdict <> 'not_ok')",
            {now - retention.rowsAge}, &rows);
        std::vector<std::int64_t> ids;
        ids.reserve(rows.size());
        for (const Row& row : rows) {
            ids.push_back(wholeOf(row[0]));
        }
        status = status ? deleteWelds(ids) : status;
        retained.rows += status ? static_cast<std::int64_t>(ids.size()) : 0;
    }
    return status;
}

} // namespace TelvaneArchive

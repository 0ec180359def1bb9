#include "archive/store/ArchiveStore.h"

namespace TelvaneArchive
{

Status ArchiveStore::storeVerdict(std::int64_t id, const std::string& verdict,
                                  const std::vector<Finding>& findings, std::int64_t now)
{
    Transaction transaction(*m_database);
    Status status = transaction.begun();
    status = status ? m_database->run("UPDATE weld SET verdict = $1 WHERE id = $2", {verdict, id}) : status;
    status = status ? storeFindings(id, findings, now) : status;
    return status ? transaction.commit() : status;
}

Status ArchiveStore::storeFindings(std::int64_t id, const std::vector<Finding>& findings, std::int64_t now)
{
    Status status = m_database->run("DELETE FROM finding WHERE weld_id = $1", {id});
    for (const Finding& finding : findings) {
        status =
            status ? m_database->run(
                         "INSERT INTO finding (weld_id, judged_ns, level, metric, value, low, high, from_s, "
                         "to_s, reference) VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9, $10)",
                         {id, now, finding.level, finding.metric, finding.value, finding.low, finding.high,
                          finding.fromSeconds, finding.toSeconds, finding.reference})
                   : status;
    }
    return status;
}

Status ArchiveStore::storeUnpublished(std::int64_t id, const std::string& record)
{
    Status status = m_database->run("INSERT INTO unpublished (weld_id, record) VALUES ($1, $2) "
                                    "ON CONFLICT (weld_id) DO UPDATE SET record = excluded.record",
                                    {id, record});
    return status ? m_database->run("DELETE FROM unpublished WHERE weld_id NOT IN (SELECT weld_id FROM "
                                    "unpublished ORDER BY weld_id DESC LIMIT $1)",
                                    {static_cast<std::int64_t>(kMaxUnpublished)})
                  : status;
}

Status ArchiveStore::readUnpublished(std::size_t limit, std::vector<Unpublished>& records)
{
    std::vector<Row> rows;
    Status status = m_database->run("SELECT weld_id, record FROM unpublished ORDER BY weld_id LIMIT $1",
                                    {static_cast<std::int64_t>(limit)}, &rows);
    for (const Row& row : rows) {
        records.push_back({wholeOf(row[0]), textOf(row[1])});
    }
    return status;
}

Status ArchiveStore::forgetUnpublished(std::int64_t weld)
{
    return m_database->run("DELETE FROM unpublished WHERE weld_id = $1", {weld});
}

} // namespace TelvaneArchive

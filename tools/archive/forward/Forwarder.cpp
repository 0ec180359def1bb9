// The network must not delay a commit, so the forwarder has a thread and connections of its own. It keeps no record of
// what was sent: after a restart it sends again whatever the spool still has, and the unique keys of the other database
// drop what is there already. A broken connection is thrown away, and the whole transaction is repeated.

#include "archive/forward/Forwarder.h"

#include "archive/samples/SampleFile.h"
#include "archive/welds/Schema.h"
#include "archive/welds/WeldColumns.h"

#include <algorithm>

namespace TelvaneArchive
{

using TelvaneTool::Nanoseconds;

Forwarder::Forwarder(Settings settings, Report report)
    : m_settings(std::move(settings)),
      m_report(std::move(report)),
      m_random(std::random_device{}()),
      m_thread([this] { run(); })
{}

Forwarder::~Forwarder()
{
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_stop = true;
    }
    m_condition.notify_all();
    m_thread.join();
}

std::vector<std::int64_t> Forwarder::takeSent()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return std::exchange(m_sent, {});
}

void Forwarder::forget(const std::vector<std::int64_t>& welds)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    for (const std::int64_t weld : welds) {
        m_done.erase(weld);
    }
}

bool Forwarder::pause(Nanoseconds time)
{
    std::unique_lock<std::mutex> guard(m_lock);
    return !m_condition.wait_for(guard, std::chrono::nanoseconds(time), [this] { return m_stop; });
}

void Forwarder::report(const std::string& text)
{
    if (text != m_reported) {
        m_reported = text;
        m_report(text);
    }
}

void Forwarder::run()
{
    Nanoseconds wait = m_settings.interval;
    do {
        Status status = sendAll();
        status = status ? makeBlock() : status;
        report(status.text);
        if (status) {
            wait = m_settings.interval;
            continue;
        }
        m_remote.reset();
        m_chunks.clear();
        wait = std::min(wait * 2, m_settings.longestPause);
        // Many modules lose the same server at the same moment, and must not all come back at once.
        wait -= static_cast<Nanoseconds>(std::uniform_real_distribution<double>(0.0, 0.5)(m_random) *
                                         static_cast<double>(wait));
    } while (pause(wait));
}

Status Forwarder::connect()
{
    Status status;
    if (!m_spool) {
        m_spool = openSqlite(m_settings.spool, Database::Access::ReadOnly, status);
    }
    if (status && !m_remote) {
        m_remote = openDatabase(m_settings.location, Database::Access::ReadWrite, status);
        status = status ? migrate(*m_remote) : status;
    }
    return status;
}

Status Forwarder::sendAll()
{
    Status status = connect();
    std::vector<Row> rows;
    status = status ? m_spool->run("SELECT id FROM weld WHERE ending <> 'importing' ORDER BY id LIMIT 1000",
                                   {}, &rows)
                    : status;
    for (const Row& row : rows) {
        const std::int64_t id = wholeOf(row[0]);
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            if (m_stop) {
                return status;
            }
            if (m_done.count(id) != 0) {
                continue;
            }
        }
        status = status ? sendWeld(id) : status;
    }
    return status;
}

/// Makes one block, if welds have arrived since the last one was found missing: welds come first.
Status Forwarder::makeBlock()
{
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_stop || !m_mayNeedBlock) {
            return {};
        }
    }
    bool made = false;
    const Status status = m_blocks.makeOne(*m_remote, made);
    m_mayNeedBlock = made || status.code == Status::Code::Lost;
    // A user who may not make blocks, or not for so long, leaves them to others, and welds go on.
    const bool isForOthers = status.code == Status::Code::Refused || status.code == Status::Code::Late;
    return isForOthers ? Status() : status;
}

Status Forwarder::sendWeld(std::int64_t id)
{
    std::vector<Row> rows;
    Status status = m_spool->run("SELECT ending, " + columnList() + " FROM weld WHERE id = $1", {id}, &rows);
    if (!status || rows.empty()) {
        return status;
    }
    const bool ended = textOf(rows[0][0]) != "running";
    Transaction transaction(*m_remote);
    status = transaction.begun();
    std::int64_t remote = 0;
    bool all = false;
    const std::int64_t before = m_chunks[id];
    status = status ? sendRow(rows[0], remote) : status;
    status = status ? sendChunks(id, remote, all) : status;
    if (status && ended && all) {
        status = sendEnvelopes(id, remote);
        status = status ? sendEvents(id, remote) : status;
        status = status ? sendFindings(id, remote) : status;
    }
    status = status ? transaction.commit() : status;
    if (!status) {
        m_chunks[id] = before;
        return status;
    }
    if (ended && all) {
        m_chunks.erase(id);
        m_mayNeedBlock = true;
        const std::lock_guard<std::mutex> guard(m_lock);
        m_sent.push_back(id);
        m_done.insert(id);
    }
    return status;
}

Status Forwarder::sendRow(const Row& weld, std::int64_t& remote)
{
    Sql statement = "INSERT INTO weld (" + columnList() + ") VALUES (";
    Sql changes;
    for (std::size_t i = 1; i <= kColumns; ++i) {
        statement += i == 1 ? Sql("") : Sql(", ");
        const Column column = allColumns()[i - 1];
        // The type is named, because a null has none.
        Sql value = "CAST(";
        value.parameter(i);
        value += infoOf(column).type == ColumnType::Text   ? Sql(" AS TEXT)")
                 : infoOf(column).type == ColumnType::Real ? Sql(" AS DOUBLE PRECISION)")
                                                           : Sql(" AS BIGINT)");
        statement += value;
        if (column != Column::Uid) {
            changes += changes.text().empty() ? Sql("") : Sql(", ");
            // A verdict that was made at the plant stays.
            changes += column == Column::Verdict ? "verdict = coalesce(weld.verdict, " + value + ")"
                                                 : sqlOf(column) + " = " + value;
        }
    }
    statement += ") ON CONFLICT (uid) DO UPDATE SET " + changes + " RETURNING id";
    const Row values(weld.begin() + 1, weld.end());
    std::vector<Row> rows;
    // An INSERT takes a new id even if the weld is there, and a running weld is sent often: blocks would be half empty.
    Status status =
        m_remote->run("UPDATE weld SET " + changes + " WHERE uid = $1 RETURNING id", values, &rows);
    status = status && rows.empty() ? m_remote->run(statement, values, &rows) : status;
    remote = status && !rows.empty() ? wholeOf(rows[0][0]) : 0;
    return status;
}

Status Forwarder::sendChunks(std::int64_t id, std::int64_t remote, bool& all)
{
    constexpr std::size_t kAtOnce = 200;
    std::vector<Row> rows;
    Status status =
        m_spool->run("SELECT number, first_ns, last_ns, samples, file, place, size FROM chunk WHERE "
                     "weld_id = $1 AND number >= $2 ORDER BY number LIMIT 200",
                     {id, m_chunks[id]}, &rows);
    for (const Row& row : rows) {
        std::string bytes;
        const SampleFile::Place place = {wholeOf(row[5]), wholeOf(row[6])};
        const bool readable =
            readFilePart(sampleFolder(m_settings.spool) + "/" + textOf(row[4]), place, bytes);
        if (status && readable) {
            status =
                m_remote->run("INSERT INTO chunk (weld_id, number, first_ns, last_ns, samples, size, data) "
                              "VALUES ($1, $2, $3, $4, $5, $6, $7) ON CONFLICT (weld_id, number) DO NOTHING",
                              {remote, row[0], row[1], row[2], row[3], row[6], Blob{bytes}});
        }
        m_chunks[id] = wholeOf(row[0]) + 1;
    }
    all = rows.size() < kAtOnce;
    return status;
}

Status Forwarder::sendEnvelopes(std::int64_t id, std::int64_t remote)
{
    std::vector<Row> rows;
    Status status = m_spool->run("SELECT parts, data FROM envelope WHERE weld_id = $1", {id}, &rows);
    const Sql insert = "INSERT INTO envelope (weld_id, parts, data) VALUES ($1, $2, $3) ON CONFLICT "
                       "(weld_id, parts) DO NOTHING";
    return status ? insertRows(insert, remote, rows) : status;
}

Status Forwarder::sendEvents(std::int64_t id, std::int64_t remote)
{
    std::vector<Row> rows;
    Status status = m_spool->run("SELECT uid, module, time_ns, channel, record FROM event WHERE weld_id = $1",
                                 {id}, &rows);
    const Sql insert = "INSERT INTO event (weld_id, uid, module, time_ns, channel, record) VALUES "
                       "($1, $2, $3, $4, $5, $6) ON CONFLICT (uid) DO NOTHING";
    return status ? insertRows(insert, remote, rows) : status;
}

Status Forwarder::sendFindings(std::int64_t id, std::int64_t remote)
{
    std::vector<Row> rows;
    Status status =
        m_spool->run("SELECT judged_ns, level, metric, value, low, high, from_s, to_s, reference FROM "
                     "finding WHERE weld_id = $1 ORDER BY id",
                     {id}, &rows);
    // Findings have no key of their own. Those of the same judging were sent before, and not confirmed.
    status =
        status && !rows.empty()
            ? m_remote->run("DELETE FROM finding WHERE weld_id = $1 AND judged_ns = $2", {remote, rows[0][0]})
            : status;
    const Sql insert =
        "INSERT INTO finding (weld_id, judged_ns, level, metric, value, low, high, from_s, to_s, "
        "reference) VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9, $10)";
    return status ? insertRows(insert, remote, rows) : status;
}

/// Inserts rows of the spool, each after the id of its weld.
Status Forwarder::insertRows(const Sql& statement, std::int64_t remote, const std::vector<Row>& rows)
{
    Status status;
    for (const Row& row : rows) {
        Row values = {remote};
        values.insert(values.end(), row.begin(), row.end());
        status = status ? m_remote->run(statement, values) : status;
    }
    return status;
}

} // namespace TelvaneArchive

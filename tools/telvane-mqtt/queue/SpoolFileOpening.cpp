// A file can come from an earlier session, an earlier boot of the machine or an earlier version of the program. What it has
// is checked and brought to the clocks of this boot before a session begins.

#include "telvane-mqtt/queue/SpoolFile.h"

#include <algorithm>
#include <fstream>
#include <limits>

namespace TelvaneTool::Mqtt
{

using TelvaneArchive::Database;
using TelvaneArchive::Sql;
using TelvaneArchive::textOf;
using TelvaneArchive::Transaction;
using TelvaneArchive::wholeOf;

namespace
{

constexpr std::int64_t kFormat = 1;

} // namespace

SpoolClocks machineClocks()
{
    const WallTime time = wallTimeNow();
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    SpoolClocks clocks = {{}, monotonicNow(), time.milliseconds, time.isSet};
    std::getline(file, clocks.boot);
    return clocks;
}

SpoolFile::Status SpoolFile::open(const std::string& path, const SpoolClocks& clocks, std::uint64_t& session)
{
    Status status;
    m_database = TelvaneArchive::openSqlite(path, Database::Access::ReadWrite, status);
    if (status) {
        status = check();
    }
    if (status) {
        status = createTables();
    }
    if (status) {
        status = readTotals();
    }
    return status ? beginSession(clocks, session) : status;
}

SpoolFile::Status SpoolFile::check()
{
    std::vector<Row> rows;
    Status status = m_database->run("PRAGMA locking_mode = EXCLUSIVE", {}, &rows);
    rows.clear();
    if (status) {
        status = m_database->run("PRAGMA quick_check", {}, &rows);
    }
    if (status && (rows.size() != 1 || textOf(rows[0][0]) != "ok")) {
        status = Status::failed(Status::Code::Damaged, rows.empty() ? "no answer" : textOf(rows[0][0]));
    }
    return status;
}

SpoolFile::Status SpoolFile::createTables()
{
    std::vector<Row> rows;
    Status status = m_database->run("PRAGMA user_version", {}, &rows);
    if (!status) {
        return status;
    }
    static const Sql retained =
        "CREATE TABLE IF NOT EXISTS retained (topic TEXT PRIMARY KEY, id INTEGER NOT NULL) WITHOUT ROWID";
    const std::int64_t format = rows.empty() ? 0 : wholeOf(rows[0][0]);
    if (format != 0) {
        return format == kFormat
                   ? m_database->run(retained) // the first files of this format had no such table
                   : Status::failed(Status::Code::Refused, "it is of another version");
    }
    static const Sql messages =
        "CREATE TABLE message (id INTEGER PRIMARY KEY AUTOINCREMENT, session INTEGER NOT NULL, "
        "channel TEXT NOT NULL, number INTEGER NOT NULL, topic TEXT NOT NULL, class TEXT NOT NULL, "
        "body TEXT NOT NULL, time TEXT NOT NULL, wall INTEGER NOT NULL, clock_set INTEGER NOT NULL, "
        "retain INTEGER NOT NULL, queued INTEGER NOT NULL, done INTEGER NOT NULL DEFAULT 0)";
    static const Sql statements[] = {
        messages,
        "CREATE INDEX by_number ON message (channel, session, number)",
        "CREATE INDEX waiting ON message (id) WHERE done = 0",
        "CREATE INDEX history ON message (id) WHERE done = 1",
        retained,
        "CREATE TABLE meta (key TEXT PRIMARY KEY, value) WITHOUT ROWID",
        "CREATE TABLE unreported (channel TEXT PRIMARY KEY, count INTEGER NOT NULL) WITHOUT ROWID",
        "PRAGMA user_version = 1",
    };
    Transaction transaction(*m_database);
    status = transaction.begun();
    for (const Sql& statement : statements) {
        status = status ? m_database->run(statement) : status;
    }
    return status ? transaction.commit() : status;
}

SpoolFile::Status SpoolFile::beginSession(const SpoolClocks& clocks, std::uint64_t& session)
{
    std::string boot;
    std::vector<Row> rows;
    Status status = m_database->run("SELECT key, value FROM meta", {}, &rows); // a full disk can be read
    Transaction transaction(*m_database);
    status = status ? transaction.begun() : status;
    for (const Row& row : rows) {
        if (textOf(row[0]) == "boot") {
            boot = textOf(row[1]);
        } else if (textOf(row[0]) == "session") {
            session = std::max(session, static_cast<std::uint64_t>(wholeOf(row[1])) + 1);
        }
    }
    if (status && (boot.empty() || boot != clocks.boot)) {
        status = moveToThisBoot(clocks);
    }
    const auto setMeta = [this, &status](const char* key, TelvaneArchive::Value value) {
        if (status) {
            status = m_database->run("INSERT OR REPLACE INTO meta VALUES ($1, $2)",
                                     {std::string(key), std::move(value)});
        }
    };
    setMeta("boot", clocks.boot);
    setMeta("session", static_cast<std::int64_t>(session));
    return status ? transaction.commit() : status;
}

/// The monotonic clock has started over. Gives each message the time at which it would have been accepted by the clock of
/// this boot. Unless both clocks were set, the time between the two boots is unknown and taken as zero.
SpoolFile::Status SpoolFile::moveToThisBoot(const SpoolClocks& clocks)
{
    std::vector<Row> rows;
    Status status = m_database->run("SELECT id, queued, wall, clock_set FROM message ORDER BY id", {}, &rows);
    Nanoseconds newest = std::numeric_limits<Nanoseconds>::min();
    for (const Row& row : rows) {
        newest = std::max(newest, wholeOf(row[1]));
    }
    Nanoseconds previous = std::numeric_limits<Nanoseconds>::min();
    for (const Row& row : rows) {
        const bool bothSet = clocks.wallIsSet && wholeOf(row[3]) != 0;
        const Nanoseconds age = bothSet
                                    ? std::max<std::int64_t>(clocks.wall - wholeOf(row[2]), 0) * kMillisecond
                                    : newest - wholeOf(row[1]) + clocks.monotonic;
        previous = std::max(previous, clocks.monotonic - age); // keeps the order
        if (status) {
            status = m_database->run("UPDATE message SET queued = $2 WHERE id = $1", {row[0], previous});
        }
    }
    return status;
}

SpoolFile::Status SpoolFile::readTotals()
{
    std::vector<Row> rows;
    Status status = m_database->run("SELECT count(*) FROM message WHERE done = 0", {}, &rows);
    if (status) {
        // Identifiers of messages that have left the file are not used again.
        status = m_database->run("SELECT coalesce(max(seq), 0) FROM sqlite_sequence", {}, &rows);
    }
    if (status) {
        m_waiting = static_cast<std::size_t>(wholeOf(rows.at(0)[0]));
        m_lastStored = wholeOf(rows.at(1)[0]);
        status = usedBytes(m_bytes);
    }
    return status;
}

SpoolFile::Status SpoolFile::continueAfter(std::int64_t last)
{
    m_lastStored = last;
    const Status status = m_database->run("DELETE FROM sqlite_sequence");
    return !status
               ? status
               : m_database->run("INSERT INTO sqlite_sequence (name, seq) VALUES ('message', $1)", {last});
}

} // namespace TelvaneTool::Mqtt

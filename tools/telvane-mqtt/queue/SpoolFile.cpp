// A message stays in the file after it was sent, until its room is needed: consumers can ask for it again. All times are
// of the monotonic clock, so setting the clock of the machine ages nothing.

#include "telvane-mqtt/queue/SpoolFile.h"

#include <algorithm>
#include <fstream>
#include <iterator>
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
constexpr std::size_t kPageSize = 8192;
constexpr std::size_t kReserve = 16 * kPageSize; ///< for indexes and pages that are not full
constexpr std::size_t kReadBytes = std::size_t{256} * 1024;
constexpr std::size_t kFoundBytes = std::size_t{4} * 1024 * 1024;

OutgoingMessage messageOf(const TelvaneArchive::Row& row)
{
    OutgoingMessage message;
    message.stored = wholeOf(row[0]);
    message.session = static_cast<std::uint64_t>(wholeOf(row[1]));
    message.channel = textOf(row[2]);
    message.number = static_cast<std::uint64_t>(wholeOf(row[3]));
    message.topic = textOf(row[4]);
    message.className = textOf(row[5]);
    message.body = textOf(row[6]);
    message.time.text = textOf(row[7]);
    message.time.milliseconds = wholeOf(row[8]);
    message.time.isSet = wholeOf(row[9]) != 0;
    message.retain = wholeOf(row[10]) != 0;
    message.queued = wholeOf(row[11]);
    return message;
}

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

SpoolFile::Status SpoolFile::usedBytes(std::uint64_t& bytes)
{
    std::vector<Row> rows;
    Status status = m_database->run("PRAGMA page_count", {}, &rows);
    if (status) {
        status = m_database->run("PRAGMA freelist_count", {}, &rows);
    }
    if (status) {
        bytes = static_cast<std::uint64_t>(wholeOf(rows.at(0)[0]) - wholeOf(rows.at(1)[0])) * kPageSize;
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

SpoolFile::Status SpoolFile::write(SpoolBatch& batch, std::uint64_t session, Nanoseconds now,
                                   std::vector<Evicted>& evicted)
{
    Transaction transaction(*m_database);
    Status status = transaction.begun();
    std::size_t changed = 0;
    if (status) {
        status = markDone(batch.done, changed);
    }
    if (status) {
        status = dropOld(now, evicted);
    }
    std::size_t needed = 0;
    for (const OutgoingMessage& message : batch.accepted) {
        needed += message.size();
    }
    if (status && needed != 0) {
        status = makeRoom(needed, evicted);
    }
    std::int64_t last = m_lastStored;
    for (OutgoingMessage& message : batch.accepted) {
        if (status) {
            message.stored = ++last;
            status = store(message, session);
        }
    }
    for (const auto& [channel, count] : batch.unreported) {
        if (status) {
            status = m_database->run("INSERT OR REPLACE INTO unreported VALUES ($1, $2)",
                                     {channel, static_cast<std::int64_t>(count)});
        }
    }
    std::uint64_t bytes = 0;
    if (status) {
        status = usedBytes(bytes);
    }
    if (status) {
        status = transaction.commit();
    }
    if (status) {
        m_waiting += batch.accepted.size() - changed - evicted.size();
        m_bytes = bytes;
        m_lastStored = last;
    }
    return status;
}

/// Marks messages as done. Notes which one the broker retains, also for the time when it has left the file.
SpoolFile::Status SpoolFile::markDone(const std::vector<Done>& done, std::size_t& changed)
{
    Status status;
    for (auto first = done.begin(); first != done.end();) {
        auto next = first;
        for (std::int64_t id = first->stored; next != done.end() && next->stored == id; ++id, ++next) {
            if (status && !next->retainedTopic.empty()) {
                status = m_database->run("INSERT INTO retained VALUES ($1, $2) "
                                         "ON CONFLICT (topic) DO UPDATE SET id = max(id, excluded.id)",
                                         {next->retainedTopic, id});
            }
        }
        if (status) {
            status = markDone(first->stored, std::prev(next)->stored, changed);
        }
        first = next;
    }
    return status;
}

SpoolFile::Status SpoolFile::markDone(std::int64_t first, std::int64_t last, std::size_t& changed)
{
    Status status =
        m_database->run("UPDATE message SET done = 1 WHERE id BETWEEN $1 AND $2 AND done = 0", {first, last});
    std::vector<Row> rows;
    if (status) {
        status = m_database->run("SELECT changes()", {}, &rows);
    }
    changed += rows.empty() ? 0 : static_cast<std::size_t>(wholeOf(rows[0][0]));
    return status;
}

/// Stores a message under the identifier that it has.
SpoolFile::Status SpoolFile::store(const OutgoingMessage& message, std::uint64_t session)
{
    return m_database->run(
        "INSERT INTO message (session, channel, number, topic, class, body, time, wall, clock_set, retain, "
        "queued, id) VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9, $10, $11, $12)",
        {static_cast<std::int64_t>(session), message.channel, static_cast<std::int64_t>(message.number),
         message.topic, message.className, message.body, message.time.text, message.time.milliseconds,
         static_cast<std::int64_t>(message.time.isSet), static_cast<std::int64_t>(message.retain),
         message.queued, message.stored});
}

SpoolFile::Status SpoolFile::dropOld(Nanoseconds now, std::vector<Evicted>& evicted)
{
    for (;;) {
        std::vector<Row> rows;
        Status status = m_database->run("SELECT queued FROM message ORDER BY id LIMIT 1", {}, &rows);
        if (!status || rows.empty() || now - wholeOf(rows[0][0]) <= m_limits.age) {
            return status;
        }
        rows.clear();
        status =
            m_database->run("SELECT id, channel, done, queued FROM message ORDER BY id LIMIT 64", {}, &rows);
        const auto young = std::find_if(
            rows.begin(), rows.end(), [&](const Row& row) { return now - wholeOf(row[3]) <= m_limits.age; });
        rows.erase(young, rows.end());
        if (status) {
            status = remove(rows, true, evicted);
        }
        if (!status) {
            return status;
        }
    }
}

SpoolFile::Status SpoolFile::makeRoom(std::size_t needed, std::vector<Evicted>& evicted)
{
    for (;;) {
        std::uint64_t used = 0;
        Status status = usedBytes(used);
        if (!status || used + needed + kReserve <= m_limits.bytes) {
            return status;
        }
        std::vector<Row> rows;
        status = m_database->run("SELECT id, channel, done FROM message WHERE done = 1 ORDER BY id LIMIT 64",
                                 {}, &rows);
        if (status && rows.empty()) {
            status = m_database->run(
                "SELECT id, channel, done FROM message WHERE done = 0 ORDER BY id LIMIT 64", {}, &rows);
        }
        if (status && rows.empty()) {
            status = Status::failed(Status::Code::Full, "the messages are larger than the file may become");
        }
        if (status) {
            status = remove(rows, false, evicted);
        }
        if (!status) {
            return status;
        }
    }
}

SpoolFile::Status SpoolFile::remove(const std::vector<Row>& rows, bool tooOld, std::vector<Evicted>& evicted)
{
    Status status;
    for (const Row& row : rows) {
        if (status) {
            status = m_database->run("DELETE FROM message WHERE id = $1", {row[0]});
        }
        if (wholeOf(row[2]) == 0) {
            evicted.push_back({wholeOf(row[0]), textOf(row[1]), tooOld});
        }
    }
    return status;
}

SpoolFile::Status SpoolFile::read(std::int64_t after, std::int64_t last, std::size_t count,
                                  std::vector<OutgoingMessage>& messages)
{
    Status status;
    std::size_t bytes = 0;
    while (status && messages.size() < count && bytes < kReadBytes) {
        std::vector<Row> rows;
        status = m_database->run(
            "SELECT id, session, channel, number, topic, class, body, time, wall, clock_set, retain AND NOT "
            "EXISTS (SELECT 1 FROM retained WHERE retained.topic = message.topic AND retained.id > "
            "message.id), "
            "queued FROM message WHERE done = 0 AND id > $1 AND id <= $2 ORDER BY id LIMIT 1",
            {messages.empty() ? after : messages.back().stored, last}, &rows);
        if (rows.empty()) {
            break;
        }
        messages.push_back(messageOf(rows[0]));
        bytes += messages.back().size();
    }
    return status;
}

SpoolFile::Status SpoolFile::find(const std::string& channel, std::uint64_t session, std::uint64_t from,
                                  std::uint64_t& to, std::vector<OutgoingMessage>& messages)
{
    Status status;
    std::size_t bytes = 0;
    for (std::uint64_t next = from; next <= to; next = messages.back().number + 1) {
        std::vector<Row> rows;
        status = m_database->run(
            "SELECT id, session, channel, number, topic, class, body, time, wall, clock_set, retain, queued "
            "FROM message WHERE channel = $1 AND session = $2 AND number BETWEEN $3 AND $4 "
            "ORDER BY number LIMIT 1",
            {channel, static_cast<std::int64_t>(session), static_cast<std::int64_t>(next),
             static_cast<std::int64_t>(to)},
            &rows);
        if (rows.empty()) {
            break;
        }
        messages.push_back(messageOf(rows[0]));
        bytes += messages.back().size();
        if (bytes >= kFoundBytes) {
            to = messages.back().number;
        }
    }
    return status;
}

SpoolFile::Status SpoolFile::readUnreported(std::map<std::string, std::uint64_t>& unreported)
{
    std::vector<Row> rows;
    Status status = m_database->run("SELECT channel, count FROM unreported WHERE count > 0", {}, &rows);
    for (const Row& row : rows) {
        unreported[textOf(row[0])] = static_cast<std::uint64_t>(wholeOf(row[1]));
    }
    return status;
}

} // namespace TelvaneTool::Mqtt

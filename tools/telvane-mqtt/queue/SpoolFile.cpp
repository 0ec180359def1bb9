// A message stays in the file after it was sent, until its room is needed: consumers can ask for it again. All times are
// of the monotonic clock, so setting the clock of the machine ages nothing.

#include "telvane-mqtt/queue/SpoolFile.h"

#include <algorithm>
#include <iterator>

namespace TelvaneTool::Mqtt
{

using TelvaneArchive::textOf;
using TelvaneArchive::Transaction;
using TelvaneArchive::wholeOf;

namespace
{

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

// What goes wrong with the file must not stop the bridge: on a full disk messages wait in memory as without a spool, and a
// damaged file is replaced. Both are reported once.

#include "telvane-mqtt/queue/Spool.h"

#include "common/cli/Messages.h"

#include <cstdio>
#include <unistd.h>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr Nanoseconds kPauseAfterFailure = kSecond;

} // namespace

std::string Spool::open(const SpoolClocks& clocks, std::uint64_t& session)
{
    const std::lock_guard lock(m_mutex);
    m_clocks = clocks;
    m_session = session;
    const Status status = openFile(session);
    m_session = session;
    if (status.code == Status::Code::Damaged) {
        setAside(status);
    } else if (status.code == Status::Code::Full) {
        report(status);
    } else if (!status) {
        return "cannot use the spool " + m_path + ": " + status.text;
    }
    return {};
}

Spool::Status Spool::openFile(std::uint64_t& session)
{
    auto file = std::make_unique<SpoolFile>(m_limits);
    Status status = file->open(m_path, m_clocks, session);
    m_begun = m_begun || (status && session == m_session);
    if (status && m_lastStored > file->lastStored()) {
        status = file->continueAfter(m_lastStored); // identifiers of an earlier file may be in memory
    }
    std::map<std::string, std::uint64_t> unreported;
    if (status) {
        status = file->readUnreported(unreported);
    }
    if (status) {
        m_lastStored = file->lastStored();
        m_file = std::move(file);
        m_opened = {m_opened.generation + 1, m_lastStored, std::move(unreported)};
        showTotals();
    }
    return status;
}

/// Opens the file while the session runs. Messages may have left with its number, which cannot be raised any more.
Spool::Status Spool::openLate()
{
    std::uint64_t session = m_session;
    Status status = openFile(session);
    if (!status || session == m_session || m_begun) {
        return status;
    }
    forget();
    m_refused = true;
    printError("the spool " + m_path +
               " has a later session, and is not used before the bridge starts again");
    return Status::failed(Status::Code::Refused, "it has a later session");
}

Spool::Result Spool::write(SpoolBatch& batch, Nanoseconds now)
{
    const std::lock_guard lock(m_mutex);
    Result result;
    if (m_refused || (m_failing && now < m_tryAfter)) {
        return result;
    }
    m_tryAfter = now + kPauseAfterFailure;
    Status status;
    if (m_file == nullptr) {
        status = openLate();
    }
    if (status) {
        status = m_file->write(batch, m_session, now, result.evicted);
    }
    if (status) {
        result.written = true;
        result.generation = m_opened.generation;
        m_lastStored = m_file->lastStored();
        showTotals();
    } else {
        result.evicted.clear();
        for (OutgoingMessage& message : batch.accepted) {
            message.stored = 0;
        }
    }
    handle(status);
    return result;
}

std::vector<OutgoingMessage> Spool::read(std::uint64_t generation, std::int64_t after, std::int64_t last,
                                         std::size_t count)
{
    const std::lock_guard lock(m_mutex);
    std::vector<OutgoingMessage> messages;
    if (m_file != nullptr && generation == m_opened.generation) {
        const Status status = m_file->read(after, last, count, messages);
        if (!status) {
            handle(status);
        }
    }
    return messages;
}

std::vector<OutgoingMessage> Spool::find(const std::string& channel, std::uint64_t session,
                                         std::uint64_t from, std::uint64_t& to)
{
    const std::lock_guard lock(m_mutex);
    std::vector<OutgoingMessage> messages;
    if (m_file != nullptr) {
        const Status status = m_file->find(channel, session, from, to, messages);
        if (!status) {
            handle(status);
        }
    }
    return messages;
}

Spool::Opened Spool::opened() const
{
    const std::lock_guard lock(m_mutex);
    return m_opened;
}

void Spool::handle(const Status& status)
{
    if (status.code == Status::Code::Damaged) {
        setAside(status);
    } else {
        report(status);
    }
}

/// Goes on without the file.
void Spool::forget()
{
    m_file.reset();
    m_opened = {m_opened.generation + 1, 0, {}};
    showTotals();
}

/// Shows the totals to the threads that must not wait for the disk.
void Spool::showTotals()
{
    m_waiting = m_file != nullptr ? m_file->waiting() : 0;
    m_bytes = m_file != nullptr ? m_file->bytes() : 0;
    m_generation = m_opened.generation;
}

/// Renames a damaged file and begins a new one.
void Spool::setAside(const Status& reason)
{
    forget();
    ++m_failures;
    const std::string damaged = m_path + ".damaged";
    std::rename(m_path.c_str(), damaged.c_str());
    // What the log has belongs to the old file, and would damage the new one.
    std::rename((m_path + "-wal").c_str(), (damaged + "-wal").c_str());
    unlink((m_path + "-shm").c_str());
    printError("the spool " + m_path + " is damaged (" + reason.text + "); it is now " + damaged +
               ", and a new one begins");
    const Status status = openLate();
    if (!status) {
        report(status);
    }
}

/// Reports when storing begins to fail, and when it succeeds again.
void Spool::report(const Status& status)
{
    m_failures += status ? 0 : 1;
    if (!status && !m_failing) {
        printError("cannot write the spool " + m_path + ": " + status.text +
                   "; messages are kept in memory only");
    } else if (status && m_failing) {
        printStatus("the spool " + m_path + " can be written again");
    }
    m_failing = !status;
}

} // namespace TelvaneTool::Mqtt

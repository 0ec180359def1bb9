#pragma once

#include "archive/database/Database.h"
#include "common/support/Clock.h"
#include "telvane-mqtt/channels/Payload.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace TelvaneTool::Mqtt
{

/// Bounds of the spool.
struct SpoolLimits
{
    std::uint64_t bytes = std::uint64_t{64} * 1024 * 1024;
    Nanoseconds age = kSecond * 3600 * 24;
};

/// The clocks at the start. Tests bring their own.
struct SpoolClocks
{
    std::string boot;          ///< identifies the start of the machine since which the monotonic clock runs
    Nanoseconds monotonic = 0; ///< now
    std::int64_t wall = 0;     ///< now, in milliseconds since 1970
    bool wallIsSet = false;    ///< whether it has been set since the machine started
};

/// \return the clocks of this machine
SpoolClocks machineClocks();

/// A message that was not sent and had to go.
struct Evicted
{
    std::int64_t stored = 0;
    std::string channel;
    bool tooOld = false; ///< otherwise its room was needed
};

/// A message that was sent or dropped.
struct Done
{
    std::int64_t stored = 0;
    std::string retainedTopic; ///< where the broker may retain it; empty if it does not
};

/// The messages to store, and what happened to others since the last time.
struct SpoolBatch
{
    std::vector<OutgoingMessage> accepted;           ///< their stored is set when they are written
    std::vector<Done> done;                          ///< in the order of their identifiers
    std::map<std::string, std::uint64_t> unreported; ///< drops by channel that no message has reported yet
};

/// The tables of a spool in an open SQLite file.
/// \par Threads  One at a time.
class SpoolFile
{
public:
    using Status = TelvaneArchive::Status;

    explicit SpoolFile(const SpoolLimits& limits) : m_limits(limits) {}

    /// Opens the file, or creates it, checks it and begins a session.
    /// \param[in,out] session its number; higher than all in the file afterwards
    Status open(const std::string& path, const SpoolClocks& clocks, std::uint64_t& session);

    /// Stores a batch, all or nothing, and drops what exceeds the bounds: what is too old, then what is done, then the
    /// oldest.
    Status write(SpoolBatch& batch, std::uint64_t session, Nanoseconds now, std::vector<Evicted>& evicted);

    /// Reads messages that wait, with identifiers above \p after and up to \p last, in order. They are not to be retained
    /// where a later message of their topic was.
    Status read(std::int64_t after, std::int64_t last, std::size_t count,
                std::vector<OutgoingMessage>& messages);

    /// Reads the messages of a channel with numbers from \p from to \p to, whether they were sent or not.
    /// \param[in,out] to lowered to the last number that was read, if the others would need too much memory
    Status find(const std::string& channel, std::uint64_t session, std::uint64_t from, std::uint64_t& to,
                std::vector<OutgoingMessage>& messages);

    /// Reads the drops by channel that no message has reported.
    Status readUnreported(std::map<std::string, std::uint64_t>& unreported);

    /// Gives new messages identifiers above \p last.
    Status continueAfter(std::int64_t last);

    std::size_t waiting() const { return m_waiting; }        ///< \return messages that are not done
    std::uint64_t bytes() const { return m_bytes; }          ///< \return size of the pages in use
    std::int64_t lastStored() const { return m_lastStored; } ///< \return the highest identifier

private:
    using Row = TelvaneArchive::Row;

    Status check();
    Status createTables();
    Status beginSession(const SpoolClocks& clocks, std::uint64_t& session);
    Status moveToThisBoot(const SpoolClocks& clocks);
    Status readTotals();
    Status markDone(const std::vector<Done>& done, std::size_t& changed);
    Status markDone(std::int64_t first, std::int64_t last, std::size_t& changed);
    Status store(const OutgoingMessage& message, std::uint64_t session);
    Status dropOld(Nanoseconds now, std::vector<Evicted>& evicted);
    Status makeRoom(std::size_t needed, std::vector<Evicted>& evicted);
    Status remove(const std::vector<Row>& rows, bool tooOld, std::vector<Evicted>& evicted);
    Status usedBytes(std::uint64_t& bytes);

    const SpoolLimits m_limits;
    std::unique_ptr<TelvaneArchive::Database> m_database;
    std::size_t m_waiting = 0;
    std::uint64_t m_bytes = 0;
    std::int64_t m_lastStored = 0;
};

} // namespace TelvaneTool::Mqtt

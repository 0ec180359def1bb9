#pragma once

#include "telvane-mqtt/queue/SpoolFile.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace TelvaneTool::Mqtt
{

/// Messages on disk: those that wait, so that they survive the process, and those that were sent, for consumers that
/// ask for them again.
///
/// While the disk is full or fails, write() stores nothing, and later calls try again. A damaged file is set aside under
/// the name FILE.damaged, and a new one begins.
/// \par Threads  Any.
class Spool
{
public:
    /// What became of a batch.
    struct Result
    {
        bool written = false;
        std::uint64_t generation = 0; ///< of the file
        std::vector<Evicted> evicted;
    };

    Spool(std::string path, const SpoolLimits& limits) : m_path(std::move(path)), m_limits(limits) {}

    /// Opens the file, or creates it, and begins a session. Goes on without the file while the disk is full.
    /// \param[in,out] session its number; raised above that of the last session if the clock was set back
    /// \return an error message if the file cannot be used, or an empty text
    std::string open(const SpoolClocks& clocks, std::uint64_t& session);

    /// Stores a batch, all or nothing.
    Result write(SpoolBatch& batch, Nanoseconds now);

    /// \return messages that wait, with identifiers above \p after and up to \p last, in order; at most \p count, and none
    /// if the file is not that of \p generation
    std::vector<OutgoingMessage> read(std::uint64_t generation, std::int64_t after, std::int64_t last,
                                      std::size_t count);

    /// \param[in,out] to lowered to the last number that was read, if the others would need too much memory
    /// \return the messages of a channel with numbers from \p from to \p to, whether they were sent or not
    std::vector<OutgoingMessage> find(const std::string& channel, std::uint64_t session, std::uint64_t from,
                                      std::uint64_t& to);

    /// What the file had when it was opened.
    struct Opened
    {
        std::uint64_t generation = 0;
        std::int64_t lastStored = 0;                     ///< the highest identifier
        std::map<std::string, std::uint64_t> unreported; ///< drops by channel that no message has reported
    };
    Opened opened() const;

    /// \name Totals
    /// They do not wait for the disk.
    /// @{
    std::size_t waiting() const { return m_waiting; }         ///< messages that are not done
    std::uint64_t bytes() const { return m_bytes; }           ///< size of the file's pages in use
    std::uint64_t failures() const { return m_failures; }     ///< failed writes and damaged files
    std::uint64_t generation() const { return m_generation; } ///< changes when a file is opened or set aside
    /// @}

private:
    using Status = SpoolFile::Status;

    Status openFile(std::uint64_t& session);
    Status openLate();
    void handle(const Status& status);
    void setAside(const Status& reason);
    void forget();
    void showTotals();
    void report(const Status& status);

    const std::string m_path;
    const SpoolLimits m_limits;
    mutable std::mutex m_mutex;
    std::unique_ptr<SpoolFile> m_file; ///< null while it cannot be opened
    SpoolClocks m_clocks;
    std::uint64_t m_session = 0;
    std::int64_t m_lastStored = 0;
    Opened m_opened;
    std::atomic<std::size_t> m_waiting{0};
    std::atomic<std::uint64_t> m_bytes{0};
    std::atomic<std::uint64_t> m_failures{0};
    std::atomic<std::uint64_t> m_generation{0};
    Nanoseconds m_tryAfter = 0;
    bool m_failing = false;
    bool m_begun = false;   ///< a file has this session
    bool m_refused = false; ///< the file is opened no more
};

} // namespace TelvaneTool::Mqtt

#pragma once

#include "archive/database/Database.h"
#include "archive/store/BlockMaker.h"
#include "common/support/Clock.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace TelvaneArchive
{

/// Sends the welds of an SQLite archive, the spool, to a database of many modules.
///
/// It only reads the spool. Welds that have arrived as a whole are named by takeSent(), so that the writer of the
/// spool can delete them. Sending anything twice does no harm: the other database knows welds by their uid and chunks
/// by their numbers. While there is nothing to send, it makes the blocks of the other database.
/// \par Threads  One of its own, which may wait for the network. The functions may be called from any thread.
class Forwarder
{
public:
    struct Settings
    {
        std::string spool;
        std::string location;                                              ///< of the other database
        TelvaneTool::Nanoseconds interval = TelvaneTool::kSecond;          ///< between looks into the spool
        TelvaneTool::Nanoseconds longestPause = 30 * TelvaneTool::kSecond; ///< between attempts to connect
    };
    /// Called on the forwarder's thread when the state changes; an empty text means that all is well again.
    using Report = std::function<void(const std::string& text)>;

    Forwarder(Settings settings, Report report);
    ~Forwarder();
    Forwarder(const Forwarder&) = delete;
    Forwarder& operator=(const Forwarder&) = delete;

    /// \return ids of the welds that have arrived as a whole, in the spool's numbering, since the last call
    std::vector<std::int64_t> takeSent();
    /// Forgets welds that the spool does not have any more.
    void forget(const std::vector<std::int64_t>& welds);

private:
    void run();
    Status sendAll();
    Status makeBlock();
    Status connect();
    Status sendWeld(std::int64_t id);
    Status sendRow(const Row& weld, std::int64_t& remote);
    Status sendChunks(std::int64_t id, std::int64_t remote, bool& all);
    Status sendEnvelopes(std::int64_t id, std::int64_t remote);
    Status sendEvents(std::int64_t id, std::int64_t remote);
    Status sendFindings(std::int64_t id, std::int64_t remote);
    Status insertRows(const Sql& statement, std::int64_t remote, const std::vector<Row>& rows);
    bool pause(TelvaneTool::Nanoseconds time);
    void report(const std::string& text);

    const Settings m_settings;
    const Report m_report;
    std::string m_reported;
    std::unique_ptr<Database> m_spool;
    std::unique_ptr<Database> m_remote;
    std::map<std::int64_t, std::int64_t> m_chunks; ///< sent of each weld
    BlockMaker m_blocks;
    bool m_mayNeedBlock = true;
    std::mt19937 m_random;

    std::mutex m_lock; ///< guards the members below
    std::condition_variable m_condition;
    bool m_stop = false;
    std::vector<std::int64_t> m_sent;
    std::set<std::int64_t> m_done;
    std::thread m_thread; ///< last: uses all others
};

} // namespace TelvaneArchive

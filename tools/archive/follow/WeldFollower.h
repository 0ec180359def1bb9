#pragma once

#include "archive/follow/Context.h"
#include "archive/store/ArchiveStore.h"
#include "common/weld/WeldMatcher.h"

#include <Telvane/Bus.h>
#include <Telvane/DeviceRecords.h>
#include <Telvane/WeldRecords.h>

#include <map>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

namespace TelvaneArchive
{

/// Follows the welds on a bus and keeps them in an archive.
///
/// \par Threads  The records are taken on the receiver thread of the bus, which only queues them. Everything else
///               runs on the thread that calls work().
class WeldFollower
{
public:
    struct Settings
    {
        std::string bus;                                              ///< path of the bus
        std::string module;                                           ///< name of this module
        TelvaneTool::Nanoseconds interval = TelvaneTool::kSecond;     ///< between commits while an arc burns
        TelvaneTool::Nanoseconds silence = 10 * TelvaneTool::kSecond; ///< ends a weld without an end
        std::size_t maxQueued = 500'000;                              ///< records that wait for work()
        Context context;
    };

    /// What went wrong, for the log; each text once until it changes.
    using Report = std::function<void(const std::string& text)>;

    WeldFollower(ArchiveStore& store, Settings settings, Report report);

    /// \return a descriptor that is readable when records have arrived
    int descriptor() const { return m_event.get(); }

    /// \return when work() is due even if nothing arrives, on the monotonic clock; -1 for never
    TelvaneTool::Nanoseconds nextWork() const;

    /// Takes what has arrived, and commits if that is due.
    void work();

    /// Ends the welds in progress and commits.
    void stop();

    /// \return ids of the welds that were closed since the last call
    std::vector<std::int64_t> takeClosed() { return m_store.takeClosed(); }

    bool waitConnected(std::chrono::nanoseconds timeout) { return !m_bus.waitConnected(timeout); }
    /// Publishes a record on the bus that is followed.
    std::error_code publish(const std::string& channel, const Telvane::TelvaneDataTypeBase& record)
    {
        return m_bus.publish(channel, record);
    }
    /// \return samples that belong to no weld
    std::uint64_t strays() const { return m_strays; }
    std::uint64_t dropped() const { return m_dropped; }

private:
    struct Lost
    {};
    struct Noted
    {
        std::string channel;
        std::string record;
        std::int64_t time = 0;
    };
    struct Identity
    {
        std::string type;
        std::string serial;
    };
    using Item = std::variant<Telvane::WeldTraceData, Telvane::WeldTriggerStart, Telvane::WeldTriggerEnd,
                              Lost, Noted, Identity>;
    struct Open
    {
        TelvaneTool::Nanoseconds lastRecord = 0; ///< on the monotonic clock
        bool lost = false;                       ///< the connection was lost since then
    };

    template <class Record>
    void follow();
    template <class Record>
    void note(const char* channel);
    void queue(Item item);
    void take(const Telvane::WeldTriggerStart& start);
    void take(const Telvane::WeldTraceData& trace);
    void take(const Telvane::WeldTriggerEnd& end);
    void take(const Lost& lost);
    void take(const Noted& noted);
    void take(const Identity& identity);
    void endSilent(TelvaneTool::Nanoseconds now);
    void report(const std::string& text);

    ArchiveStore& m_store;
    const Settings m_settings;
    Report m_report;
    std::string m_reported;
    TelvaneTool::FileDescriptor m_event;
    std::mutex m_lock; ///< guards the two members below
    std::vector<Item> m_queue;
    std::uint64_t m_dropped = 0;

    TelvaneTool::WeldMatcher m_matcher;
    std::map<std::int64_t, Open> m_open; ///< welds in progress, by their handles
    Identity m_identity;
    bool m_ended = false; ///< a weld has ended since the last commit
    TelvaneTool::Nanoseconds m_lastCommit = 0;
    std::uint64_t m_strays = 0;
    Telvane::Bus m_bus; ///< after all that its callbacks use
    std::vector<Telvane::Subscription> m_subscriptions;
};

} // namespace TelvaneArchive

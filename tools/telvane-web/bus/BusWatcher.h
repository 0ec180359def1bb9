#pragma once

#include "common/bus/StatusPayload.h"
#include "common/bus/TopModel.h"
#include "telvane-web/bus/LatestRecord.h"
#include "telvane-web/live/BatchPause.h"
#include "telvane-web/live/LiveWeld.h"

#include <Telvane/Bus.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace TelvaneTool
{

/// The bus as the page sees it. It subscribes and asks for the status, and publishes nothing else.
///
/// Records arrive on the thread of the Bus; all other functions are for one thread, the event loop. While that writes to
/// the pages, samples are put aside: the bus holds those of a few milliseconds only, and would drop others.
class BusWatcher
{
public:
    /// Most channels whose records are watched at the same time.
    static constexpr std::size_t kMaxWatched = 16;

    explicit BusWatcher(const std::string& path);
    ~BusWatcher();
    BusWatcher(const BusWatcher&) = delete;
    BusWatcher& operator=(const BusWatcher&) = delete;

    /// Asks for the status when due, ends watches that are not used any more, and notices silence.
    void tick(Nanoseconds now);

    /// Calls a function with the live weld, which does not change meanwhile.
    template <class Function>
    auto withLive(Function function)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        takeSamples();
        return function(static_cast<const LiveWeld&>(m_live));
    }

    /// \return channels, clients and rates as JSON. The status is asked for more often for a while.
    std::string busJson();
    /// \return the last record of a channel as JSON, decoded; empty if there is no such channel
    std::string recordJson(const std::string& channel);

    /// \return the latest status, and how old it is
    Nanoseconds status(std::vector<ChannelStatus>& channels, std::vector<ClientStatus>& clients);

    Telvane::BusStatistics statistics() const { return m_bus.statistics(); }
    bool connected() const { return m_bus.state() == Telvane::ConnectionState::Connected; }

private:
    struct Watch
    {
        Telvane::Subscription subscription;
        std::shared_ptr<LatestPayload> latest;
        Nanoseconds used = 0;
    };

    /// A sample that waits for the lock.
    struct Sample
    {
        Telvane::WeldTraceData record;
        Nanoseconds now;
        Nanoseconds wallClock;
    };

    void subscribe();
    void take(const Telvane::WeldTraceData& record, Nanoseconds now);
    void takeSamples();
    template <class Record, class Take>
    void follow(Take take);
    template <class Item>
    void followStatus(const char* channel, StatusResponse<Item>& response, std::uint64_t& count);
    void report(const Telvane::BusEvent& event);
    bool updateModel();

    std::mutex m_lock;
    LiveWeld m_live;
    std::vector<Sample> m_takenSamples; ///< empty without the lock
    std::mutex m_samplesLock;           ///< held for moments only, also with the other lock
    std::vector<Sample> m_samples;      ///< those that wait
    std::mutex m_statusLock;            ///< guards the status, so that its answers do not wait for a page
    BatchPause m_pause;                 ///< of the thread of the Bus
    StatusResponse<ChannelStatus> m_channels;
    StatusResponse<ClientStatus> m_clients;
    std::uint64_t m_channelResponses = 0;
    std::uint64_t m_clientResponses = 0;
    Nanoseconds m_statusTime = 0;

    TopModel m_model;
    std::uint64_t m_modelResponses = 0;
    Nanoseconds m_asked = 0;      ///< when the status was asked for
    Nanoseconds m_statusUsed = 0; ///< when a page wanted it
    std::map<std::string, Watch> m_watches;
    Telvane::Bus m_bus;
    std::vector<Telvane::Subscription> m_subscriptions;
};

} // namespace TelvaneTool

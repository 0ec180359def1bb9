#pragma once

#include "Announcements.h"
#include "MqttClient.h"
#include "OutgoingQueue.h"

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <random>
#include <thread>

namespace TelvaneTool::Mqtt
{

/// What the link has counted.
struct LinkCounts
{
    std::atomic<bool> connected{false};
    std::atomic<std::uint64_t> connections{0};
    std::atomic<std::uint64_t> failures{0}; ///< attempts that failed and connections that were lost
    std::atomic<std::uint64_t> corrections{0};
    std::atomic<std::uint64_t> ignoredRetained{0};
};

/// Keeps a connection to the broker on a thread of its own, and sends what is in the queue.
class BrokerLink
{
public:
    /// Called for each message on W and R, on the link's thread. It must not wait for long.
    using Receiver = std::function<void(TopicKind kind, const std::string& channel, IncomingMessage message)>;

    BrokerLink(const BridgeSettings& settings, const Session& session, OutgoingQueue& queue,
               Receiver receive);
    BrokerLink(const BrokerLink&) = delete;
    BrokerLink& operator=(const BrokerLink&) = delete;
    ~BrokerLink();

    void start();

    /// Sends what waits, at most for \p patience, reports the module as offline and disconnects.
    /// \return whether the thread ended; it does not while TCP connects
    bool stop(Nanoseconds patience);

    const LinkCounts& counts() const { return m_counts; }

private:
    /// A message without acknowledgement. Those of the link itself, such as the state, have no channel.
    struct InFlight
    {
        OutgoingMessage message;
        std::size_t bytes = 0;
        Nanoseconds sent = 0;
        bool fromQueue = false;
        std::string topic;
    };
    class Connection;

    void run();
    bool connectOnce(bool version5, std::string& error, bool& versionRefused, bool& takenOver);
    void pause(bool takenOver);
    bool isStopping() const { return m_stopping.load(); }

    const BridgeSettings& m_settings;
    const Session& m_session;
    OutgoingQueue& m_queue;
    const Receiver m_receive;
    const Topics m_topics;
    LinkCounts m_counts;
    std::atomic<bool> m_stopping{false};
    std::atomic<Nanoseconds> m_stopBefore{0};
    std::atomic<bool> m_ended{false};
    bool m_schemasKnown = false;
    Nanoseconds m_pause = 0;
    std::mt19937 m_random{std::random_device{}()};
    std::map<std::string, int> m_refusedTopics; ///< the last reason code that was reported
    std::thread m_thread;
};

} // namespace TelvaneTool::Mqtt

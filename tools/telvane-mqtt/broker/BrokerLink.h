#pragma once

#include "telvane-mqtt/broker/BrokerConnection.h"

#include <atomic>
#include <random>
#include <thread>

namespace TelvaneTool::Mqtt
{

/// Keeps a connection to the broker on a thread of its own, and sends what is in the queue.
class BrokerLink
{
public:
    BrokerLink(const BridgeSettings& settings, const Session& session, OutgoingQueue& queue,
               Receiver receive);
    BrokerLink(const BrokerLink&) = delete;
    BrokerLink& operator=(const BrokerLink&) = delete;
    ~BrokerLink();

    void start();

    /// Sends what waits, at most for \p patience, reports the module as offline and disconnects.
    /// \return whether the thread ended; it does not while TCP connects
    bool stop(Nanoseconds patience);

    const LinkCounts& counts() const { return m_state.counts; }

private:
    void run();
    bool connectOnce(bool version5, std::string& error, bool& versionRefused, bool& takenOver);
    void pause(bool takenOver);
    bool isStopping() const { return m_state.stopping.load(); }

    const BridgeSettings& m_settings;
    LinkState m_state;
    std::atomic<bool> m_ended{false};
    Nanoseconds m_pause = 0;
    std::mt19937 m_random{std::random_device{}()};
    std::thread m_thread;
};

} // namespace TelvaneTool::Mqtt

// The client library would reconnect by itself, but without jitter, and keeps state of one connection for the next.

#include "telvane-mqtt/broker/BrokerLink.h"

#include "common/cli/Messages.h"

#include <poll.h>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr int kSuspiciousLosses = 4; ///< some brokers do not say that they gave the session to another client

} // namespace

BrokerLink::BrokerLink(const BridgeSettings& settings, const Session& session, OutgoingQueue& queue,
                       Receiver receive)
    : m_settings(settings), m_state(settings, session, queue, std::move(receive))
{}

BrokerLink::~BrokerLink()
{
    if (m_thread.joinable()) {
        stop(0);
    }
    if (m_thread.joinable()) {
        m_thread.detach();
    }
}

void BrokerLink::start()
{
    m_thread = std::thread([this] { run(); });
}

bool BrokerLink::stop(Nanoseconds patience)
{
    m_state.stopBefore = monotonicNow() + patience;
    m_state.stopping = true;
    const Nanoseconds deadline = m_state.stopBefore + kSecond;
    while (!m_ended && monotonicNow() < deadline) {
        poll(nullptr, 0, 10);
    }
    if (m_ended && m_thread.joinable()) {
        m_thread.join();
    }
    return m_ended;
}

void BrokerLink::run()
{
    bool version5 = m_settings.broker.protocol != Protocol::Version311;
    std::string lastError;
    int shortLived = 0;
    while (!isStopping()) {
        std::string error;
        bool versionRefused = false;
        bool takenOver = false;
        const Nanoseconds began = monotonicNow();
        const bool wasConnected = connectOnce(version5, error, versionRefused, takenOver);
        if (isStopping()) {
            break;
        }
        ++m_state.counts.failures;
        if (versionRefused && m_settings.broker.protocol == Protocol::Automatic) {
            version5 = false;
            continue;
        }
        if (!wasConnected && m_settings.broker.protocol == Protocol::Automatic) {
            version5 = true;
        }
        if (wasConnected || error != lastError) {
            printError(m_settings.broker.host + ": " + error);
        }
        lastError = wasConnected ? "" : error;
        // A connection that does not last must not be made again and again without a pause.
        const bool lasted = wasConnected && monotonicNow() - began >= m_settings.broker.longestPause;
        m_pause = lasted ? 0 : m_pause;
        shortLived = lasted || !wasConnected ? 0 : shortLived + 1;
        if (shortLived == kSuspiciousLosses) {
            printError(
                "connections are lost soon after they are made; another client may use the identifier " +
                m_settings.broker.clientId);
        }
        pause(takenOver);
    }
    m_ended = true;
}

bool BrokerLink::connectOnce(bool version5, std::string& error, bool& versionRefused, bool& takenOver)
{
    BrokerConnection connection(m_state, version5);
    error = connection.run();
    m_state.counts.connected = false;
    connection.finish();
    versionRefused = !connection.wasConnected() && connection.versionRefused();
    takenOver = connection.takenOver();
    return connection.wasConnected();
}

void BrokerLink::pause(bool takenOver)
{
    const BrokerSettings& broker = m_settings.broker;
    m_pause = m_pause == 0 ? broker.firstPause : std::min(2 * m_pause, broker.longestPause);
    if (takenOver) {
        printError("another client uses the identifier " + broker.clientId +
                   "; two bridges must not have the same module");
        m_pause = broker.longestPause;
    }
    std::uniform_real_distribution<double> jitter(0.5, 1.0);
    const Nanoseconds end =
        monotonicNow() + static_cast<Nanoseconds>(static_cast<double>(m_pause) * jitter(m_random));
    while (!isStopping() && monotonicNow() < end) {
        poll(nullptr, 0, 20);
    }
}

} // namespace TelvaneTool::Mqtt

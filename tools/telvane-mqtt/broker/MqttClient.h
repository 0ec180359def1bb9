#pragma once

#include "telvane-mqtt/settings/Settings.h"

#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

namespace TelvaneTool::Mqtt
{

/// What the broker allows on a connection.
struct BrokerLimits
{
    unsigned receiveMaximum = 65535;
    std::size_t packetSize = 268'435'455;
    int maximumQos = 1;
    bool retain = true;
    bool sessionPresent = false;
};

/// A message from the broker.
struct IncomingMessage
{
    std::string topic;
    std::string payload;
    std::string responseTopic;
    std::string correlation;
    bool retained = false;
};

/// A message to the broker, as it is sent.
struct Publication
{
    std::string topic;
    std::string payload;
    int qos = 0;
    bool retain = false;
    std::string correlation;
    std::vector<std::pair<const char*, std::string>> properties; ///< user properties
};

/// One connection to a broker. Another one needs another object, so that no state of the library outlives it.
/// \par Threads  One at a time; the functions of Events are called on it, in handle() and publish().
class MqttClient
{
public:
    /// What a connection reports.
    class Events
    {
    public:
        virtual ~Events() = default;
        virtual void connected(const BrokerLimits& limits) = 0;
        /// \param reason 0, or the broker's reason code if it refused the message
        virtual void acknowledged(int id, int reason) = 0;
        virtual void subscribed(int id, bool granted) = 0;
        virtual void received(IncomingMessage message) = 0;
    };

    MqttClient(const BrokerSettings& settings, bool version5, Events& events);
    MqttClient(const MqttClient&) = delete;
    MqttClient& operator=(const MqttClient&) = delete;
    ~MqttClient();

    /// Connects. Blocks while the host's name is resolved and TCP connects.
    /// \return an error message, or an empty text
    std::string connect(const Publication& will);

    /// \return the socket and the events to wait for before handle(); no socket if the connection has ended
    pollfd awaited() const;

    /// Handles what poll() returned for the socket.
    /// \return whether the connection continues; error() says why it does not
    bool handle(short events);

    /// \return whether the socket takes more data at once
    bool isWritable() const;

    /// Lets the kernel send messages that follow in few large packets, until endBurst().
    void beginBurst();
    /// Sends what beginBurst() has held back.
    void endBurst();

    /// \return the message's identifier; nothing if the connection ended
    std::optional<int> publish(const Publication& publication);
    std::optional<int> subscribe(const std::string& topic);
    void disconnect();

    /// \return whether the connection has ended, as far as this object knows
    bool hasEnded() const { return m_ended; }
    /// \return why the connection ended
    const std::string& error() const { return m_error; }
    /// \return whether the broker speaks no MQTT 5, as far as can be seen
    bool versionRefused() const { return m_versionRefused; }
    /// \return whether another client with the same identifier took the session over
    bool takenOver() const { return m_takenOver; }
    /// \return whether the connection ended because the library could not read what the broker sent on it
    bool answerUnreadable() const { return m_answerUnreadable; }

private:
    struct Callbacks;

    bool fail(int result);
    void setSocketOption(int option, int value) const;

    const BrokerSettings& m_settings;
    const bool m_version5;
    Events& m_events;
    mosquitto* m_client = nullptr;
    std::string m_error;
    std::string m_tlsError;
    unsigned m_burst = 0; ///< messages since the kernel was told to send what it has
    bool m_inBurst = false;
    bool m_answered = false;
    bool m_ended = false;
    bool m_versionRefused = false;
    bool m_takenOver = false;
    bool m_answerUnreadable = false;
};

} // namespace TelvaneTool::Mqtt

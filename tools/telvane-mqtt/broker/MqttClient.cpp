// The library is used without its thread and without its reconnecting: it would reconnect without jitter, keep an
// unlimited queue and send more than the broker's new limits allow. Its message queue remains empty here, because the
// caller sends no more than the limits that the broker named.

#include "telvane-mqtt/broker/MqttClient.h"

#include <cstring>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr std::uint32_t kSessionExpiry =
    60; ///< seconds; longer than the delay of the will, which would not work
constexpr std::uint32_t kWillDelay = 10;
constexpr std::uint32_t kLargestIncoming = 65536; ///< bytes of a packet; the bus takes 16384
constexpr unsigned kLongestBurst = 32;

/// Owns a list of properties.
class Properties
{
public:
    Properties() = default;
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;
    ~Properties() { mosquitto_property_free_all(&m_list); }

    mosquitto_property** get() { return &m_list; }
    mosquitto_property* release() { return std::exchange(m_list, nullptr); }

private:
    mosquitto_property* m_list = nullptr;
};

void addDescription(Properties& properties, const Publication& publication)
{
    mosquitto_property_add_byte(properties.get(), MQTT_PROP_PAYLOAD_FORMAT_INDICATOR, 1);
    mosquitto_property_add_string(properties.get(), MQTT_PROP_CONTENT_TYPE, "application/json");
    if (!publication.correlation.empty()) {
        mosquitto_property_add_binary(properties.get(), MQTT_PROP_CORRELATION_DATA,
                                      publication.correlation.data(),
                                      static_cast<std::uint16_t>(publication.correlation.size()));
    }
    for (const auto& [name, value] : publication.properties) {
        mosquitto_property_add_string_pair(properties.get(), MQTT_PROP_USER_PROPERTY, name, value.c_str());
    }
}

BrokerLimits limitsOf(const mosquitto_property* properties, int flags)
{
    BrokerLimits limits;
    limits.sessionPresent = (flags & 1) != 0;
    std::uint16_t receiveMaximum = 0;
    if (mosquitto_property_read_int16(properties, MQTT_PROP_RECEIVE_MAXIMUM, &receiveMaximum, false) !=
        nullptr) {
        limits.receiveMaximum = std::max<unsigned>(receiveMaximum, 1);
    }
    std::uint32_t packetSize = 0;
    if (mosquitto_property_read_int32(properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, &packetSize, false) !=
        nullptr) {
        limits.packetSize = packetSize;
    }
    std::uint8_t byte = 0;
    if (mosquitto_property_read_byte(properties, MQTT_PROP_MAXIMUM_QOS, &byte, false) != nullptr) {
        limits.maximumQos = std::min<int>(byte, 1);
    }
    if (mosquitto_property_read_byte(properties, MQTT_PROP_RETAIN_AVAILABLE, &byte, false) != nullptr) {
        limits.retain = byte != 0;
    }
    return limits;
}

} // namespace

/// The library's callbacks, which get the client as a pointer.
struct MqttClient::Callbacks
{
    static MqttClient& self(void* object) { return *static_cast<MqttClient*>(object); }

    static void onConnect(mosquitto* /*client*/, void* object, int result, int flags,
                          const mosquitto_property* properties)
    {
        MqttClient& client = self(object);
        client.m_answered = true;
        if (result == 0) {
            // The library prints a line for each packet, which is needed no more.
            mosquitto_log_callback_set(client.m_client, nullptr);
            client.m_events.connected(limitsOf(properties, flags));
            return;
        }
        client.m_versionRefused =
            client.m_version5 && (result == MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION || result == 1);
        client.m_error =
            std::string("the broker refuses the connection: ") +
            (client.m_version5 ? mosquitto_reason_string(result) : mosquitto_connack_string(result)) +
            " (reason code " + std::to_string(result) + ")";
        client.m_ended = true;
    }

    static void onDisconnect(mosquitto* /*client*/, void* object, int result,
                             const mosquitto_property* /*properties*/)
    {
        MqttClient& client = self(object);
        client.m_ended = true;
        if (result >= MQTT_RC_UNSPECIFIED) { // sent by the broker
            client.m_takenOver = result == MQTT_RC_SESSION_TAKEN_OVER;
            client.m_error = std::string("the broker ends the connection: ") +
                             mosquitto_reason_string(result) + " (reason code " + std::to_string(result) +
                             ")";
        }
    }

    static void onPublish(mosquitto* /*client*/, void* object, int id, int reason,
                          const mosquitto_property* /*properties*/)
    {
        self(object).m_events.acknowledged(id, reason >= MQTT_RC_UNSPECIFIED ? reason : 0);
    }

    static void onSubscribe(mosquitto* /*client*/, void* object, int id, int count, const int* granted,
                            const mosquitto_property* /*properties*/)
    {
        self(object).m_events.subscribed(id, count > 0 && granted[0] < 0x80);
    }

    static void onMessage(mosquitto* /*client*/, void* object, const mosquitto_message* received,
                          const mosquitto_property* properties)
    {
        IncomingMessage message;
        message.topic = received->topic;
        if (received->payload != nullptr) {
            message.payload.assign(static_cast<const char*>(received->payload),
                                   static_cast<std::size_t>(received->payloadlen));
        }
        message.retained = received->retain;
        char* topic = nullptr;
        if (mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false) != nullptr) {
            message.responseTopic = topic;
            free(topic);
        }
        void* data = nullptr;
        std::uint16_t length = 0;
        if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length, false) !=
            nullptr) {
            message.correlation.assign(static_cast<const char*>(data), length);
            free(data);
        }
        self(object).m_events.received(std::move(message));
    }

    static void onLog(mosquitto* /*client*/, void* object, int level, const char* text)
    {
        // Why TLS failed is only in the log. Messages at this level contain nothing of a password.
        if (level == MOSQ_LOG_ERR && std::strstr(text, "OpenSSL") != nullptr) {
            self(object).m_tlsError = text;
        }
    }
};

MqttClient::MqttClient(const BrokerSettings& settings, bool version5, Events& events)
    : m_settings(settings),
      m_version5(version5),
      m_events(events),
      m_client(mosquitto_new(settings.clientId.c_str(), !version5, this))
{}

MqttClient::~MqttClient()
{
    mosquitto_destroy(m_client);
}

std::string MqttClient::connect(const Publication& will)
{
    if (m_client == nullptr) {
        return "out of memory";
    }
    mosquitto_int_option(m_client, MOSQ_OPT_PROTOCOL_VERSION,
                         m_version5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
    mosquitto_int_option(m_client, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_int_option(m_client, MOSQ_OPT_SEND_MAXIMUM, 65535);
    mosquitto_connect_v5_callback_set(m_client, &Callbacks::onConnect);
    mosquitto_disconnect_v5_callback_set(m_client, &Callbacks::onDisconnect);
    mosquitto_publish_v5_callback_set(m_client, &Callbacks::onPublish);
    mosquitto_subscribe_v5_callback_set(m_client, &Callbacks::onSubscribe);
    mosquitto_message_v5_callback_set(m_client, &Callbacks::onMessage);
    mosquitto_log_callback_set(m_client, &Callbacks::onLog);
    if (!m_settings.user.empty()) {
        mosquitto_username_pw_set(m_client, m_settings.user.c_str(),
                                  m_settings.password.empty() ? nullptr : m_settings.password.c_str());
    }
    if (m_settings.tls) {
        const auto orNull = [](const std::string& text) {
            return text.empty() ? nullptr : text.c_str();
        };
        int result = mosquitto_tls_set(
            m_client, orNull(m_settings.caFile), m_settings.caFile.empty() ? "/etc/ssl/certs" : nullptr,
            orNull(m_settings.certificateFile), orNull(m_settings.keyFile), nullptr);
        if (result == MOSQ_ERR_SUCCESS) {
            result = mosquitto_tls_opts_set(m_client, SSL_VERIFY_PEER, "tlsv1.2", nullptr);
        }
        if (result != MOSQ_ERR_SUCCESS) {
            return std::string("cannot use the certificates: ") + mosquitto_strerror(result);
        }
    }
    Properties willProperties;
    Properties properties;
    if (m_version5) {
        addDescription(willProperties, will);
        mosquitto_property_add_int32(willProperties.get(), MQTT_PROP_WILL_DELAY_INTERVAL, kWillDelay);
        mosquitto_property_add_int32(properties.get(), MQTT_PROP_SESSION_EXPIRY_INTERVAL, kSessionExpiry);
        mosquitto_property_add_int32(properties.get(), MQTT_PROP_MAXIMUM_PACKET_SIZE, kLargestIncoming);
    }
    int result = mosquitto_will_set_v5(m_client, will.topic.c_str(), static_cast<int>(will.payload.size()),
                                       will.payload.data(), will.qos, will.retain, *willProperties.get());
    if (result == MOSQ_ERR_SUCCESS) {
        willProperties.release(); // belongs to the client now
        result = mosquitto_connect_bind_v5(m_client, m_settings.host.c_str(), m_settings.port,
                                           m_settings.keepAlive, nullptr, *properties.get());
    }
    return fail(result) ? "" : m_error;
}

bool MqttClient::fail(int result)
{
    if (result == MOSQ_ERR_SUCCESS) {
        return true;
    }
    m_ended = true;
    if (!m_tlsError.empty()) {
        m_error = "TLS failed: " + m_tlsError;
    } else if (m_error.empty() || result == MOSQ_ERR_TLS) {
        m_error = result == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(result);
    }
    const bool isUnreadable = result == MOSQ_ERR_PROTOCOL || result == MOSQ_ERR_MALFORMED_PACKET;
    m_answerUnreadable = m_answered && isUnreadable;
    // A broker without MQTT 5 answers in a form that the library cannot read, or closes the connection.
    m_versionRefused = m_versionRefused || (m_version5 && !m_answered && m_tlsError.empty() &&
                                            (isUnreadable || result == MOSQ_ERR_CONN_LOST));
    return false;
}

pollfd MqttClient::awaited() const
{
    return {m_ended ? -1 : mosquitto_socket(m_client),
            static_cast<short>(isWritable() ? POLLIN : POLLIN | POLLOUT), 0};
}

bool MqttClient::handle(short events)
{
    if (mosquitto_socket(m_client) < 0 || m_ended) {
        m_error = m_error.empty() ? "the connection was lost" : m_error;
        return false;
    }
    int result = MOSQ_ERR_SUCCESS;
    if ((events & POLLOUT) != 0) {
        result = mosquitto_loop_write(m_client, 1);
    }
    if (result == MOSQ_ERR_SUCCESS && (events & (POLLIN | POLLHUP | POLLERR)) != 0) {
        result = mosquitto_loop_read(m_client, 1);
        // What OpenSSL has read ahead does not make the socket readable.
        const auto* const ssl = static_cast<const SSL*>(mosquitto_ssl_get(m_client));
        while (result == MOSQ_ERR_SUCCESS && ssl != nullptr && mosquitto_socket(m_client) >= 0 &&
               SSL_pending(ssl) > 0) {
            result = mosquitto_loop_read(m_client, 1);
        }
    }
    if (result == MOSQ_ERR_SUCCESS) {
        result = mosquitto_loop_misc(m_client);
    }
    return fail(result) && !m_ended;
}

bool MqttClient::isWritable() const
{
    return !mosquitto_want_write(m_client);
}

void MqttClient::setSocketOption(int option, int value) const
{
    setsockopt(mosquitto_socket(m_client), IPPROTO_TCP, option, &value, sizeof value);
}

void MqttClient::beginBurst()
{
    if (!m_inBurst) {
        m_inBurst = true;
        m_burst = 0;
        setSocketOption(TCP_CORK, 1);
    }
}

void MqttClient::endBurst()
{
    if (m_inBurst) {
        m_inBurst = false;
        setSocketOption(TCP_CORK, 0);
    }
}

std::optional<int> MqttClient::publish(const Publication& publication)
{
    Properties properties;
    if (m_version5) {
        addDescription(properties, publication);
    }
    int id = 0;
    const int result = mosquitto_publish_v5(
        m_client, &id, publication.topic.c_str(), static_cast<int>(publication.payload.size()),
        publication.payload.data(), publication.qos, publication.retain, *properties.get());
    if (m_inBurst && ++m_burst == kLongestBurst) {
        m_burst = 0;
        setSocketOption(TCP_NODELAY, 1); // sends at once, and the broker has something to do meanwhile
    }
    return fail(result) ? std::optional<int>(id) : std::nullopt;
}

std::optional<int> MqttClient::subscribe(const std::string& topic)
{
    int id = 0;
    const int result = mosquitto_subscribe_v5(m_client, &id, topic.c_str(), 1, 0, nullptr);
    return fail(result) ? std::optional<int>(id) : std::nullopt;
}

void MqttClient::disconnect()
{
    mosquitto_disconnect_v5(m_client, 0, nullptr);
}

} // namespace TelvaneTool::Mqtt

#pragma once

#include "mqtt/Eventually.h"
#include "telvane-mqtt/broker/BrokerLink.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <atomic>
#include <functional>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>

namespace TelvaneTool::Mqtt
{

constexpr const char* kTopic = "telvane/m1/N/LogData";

/// \return a record of a retained channel
inline OutgoingMessage retainedRecord(std::uint64_t number, Nanoseconds queued)
{
    OutgoingMessage result;
    result.channel = "LogData";
    result.topic = kTopic;
    result.className = "LogData";
    result.body = R"("record":{"log":"x"})";
    result.number = number;
    result.queued = queued;
    result.retain = true;
    return result;
}

/// A packet that a client published.
struct Published
{
    std::string topic;
    std::string payload; ///< after the packet's identifier and properties
    bool retain = false;
    int connection = 0; ///< counts from 1

    bool isNumber(int number) const
    {
        return payload.find("\"n\":" + std::to_string(number) + ",") != std::string::npos;
    }
};

/// A broker of MQTT 5 with one client, whose session lasts. A thread of the test answers as the test says.
class ScriptedBroker
{
public:
    enum class Answer
    {
        Accept,
        Refuse,
        RefuseLater, ///< with the next answer
        Garble,      ///< with a packet that is too short
        Disconnect,  ///< without an answer; what was answered before arrives
    };

    /// \param answer says what becomes of a message. It is called on the broker's thread.
    explicit ScriptedBroker(std::function<Answer(const Published&)> answer)
        : m_answer(std::move(answer)), m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        bind(m_listener.get(), reinterpret_cast<sockaddr*>(&address), length);
        getsockname(m_listener.get(), reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        listen(m_listener.get(), 1);
        m_thread = std::thread([this] { run(); });
    }
    ScriptedBroker(const ScriptedBroker&) = delete;
    ScriptedBroker& operator=(const ScriptedBroker&) = delete;
    ~ScriptedBroker()
    {
        m_stopping = true;
        m_thread.join();
    }

    int port() const { return m_port; }
    int goodbyes() const { return m_goodbyes; } ///< \return connections that their client has ended

private:
    void run()
    {
        while (!m_stopping) {
            if (isReadable(m_listener.get())) {
                ++m_connection;
                m_refusals.clear();
                const FileDescriptor client(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
                while (!m_stopping && (!isReadable(client.get()) || serve(client.get()))) {
                }
            }
        }
    }

    static bool isReadable(int descriptor)
    {
        pollfd one = {descriptor, POLLIN, 0};
        return poll(&one, 1, 20) == 1;
    }

    static bool receive(int client, std::string& bytes, std::size_t size)
    {
        bytes.resize(size);
        return size == 0 || recv(client, bytes.data(), size, MSG_WAITALL) == static_cast<ssize_t>(size);
    }

    /// Reads a packet and answers it.
    /// \return whether the connection goes on
    bool serve(int client)
    {
        std::string byte;
        std::string packet;
        if (!receive(client, byte, 1)) {
            return false;
        }
        const auto header = static_cast<unsigned char>(byte[0]);
        std::size_t length = 0;
        for (int shift = 0; shift == 0 || (static_cast<unsigned char>(byte[0]) & 0x80U) != 0; shift += 7) {
            if (!receive(client, byte, 1)) {
                return false;
            }
            length |= (static_cast<unsigned char>(byte[0]) & 0x7FU) << shift;
        }
        if (!receive(client, packet, length)) {
            return false;
        }
        std::string answer;
        switch (header >> 4U) {
        case 1: // CONNECT
            answer = std::string("\x20\x03", 2) + (m_connection > 1 ? '\1' : '\0') + std::string("\0\0", 2);
            break;
        case 8: // SUBSCRIBE
            answer = std::string("\x90\x04", 2) + packet.substr(0, 2) + std::string("\0\1", 2);
            break;
        case 3: // PUBLISH
            return acknowledge(client, header, packet);
        case 14: // DISCONNECT
            ++m_goodbyes;
            return false;
        default:
            break;
        }
        return send(client, answer.data(), answer.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(answer.size());
    }

    bool acknowledge(int client, unsigned header, const std::string& packet)
    {
        const auto length = static_cast<std::size_t>(static_cast<unsigned char>(packet[1]));
        const Answer answer =
            m_answer({packet.substr(2, length), packet.substr(2 + length), (header & 1U) != 0, m_connection});
        if ((header & 6U) == 0) {
            return true; // QoS 0
        }
        const std::string id = packet.substr(2 + length, 2);
        if (answer == Answer::Disconnect) {
            shutdown(client, SHUT_WR);
            std::string rest;
            while (receive(client, rest, 1)) {
            }
            return false;
        }
        if (answer == Answer::RefuseLater) {
            m_refusals += "\x40\x03" + id + "\x97";
            return true;
        }
        if (answer == Answer::Garble) {
            return send(client, "\x40\x01", 3, MSG_NOSIGNAL) > 0;
        }
        const std::string answers = std::exchange(m_refusals, "") + "\x40\x03" + id +
                                    (answer == Answer::Refuse ? "\x97" : std::string(1, '\0'));
        return send(client, answers.data(), answers.size(), MSG_NOSIGNAL) > 0;
    }

    const std::function<Answer(const Published&)> m_answer;
    FileDescriptor m_listener;
    int m_port = 0;
    int m_connection = 0;
    std::atomic<int> m_goodbyes{0};
    std::string m_refusals; ///< to be sent with the next answer
    std::atomic<bool> m_stopping{false};
    std::thread m_thread;
};

/// The bridge's link to a broker.
class LinkToScript
{
public:
    explicit LinkToScript(const ScriptedBroker& broker)
    {
        Settings options;
        options.bus = "unused";
        options.module = "m1";
        options.broker = "mqtt://127.0.0.1:" + std::to_string(broker.port());
        options.out = {"LogData"};
        options.firstPause = "10ms";
        options.longestPause = "20ms";
        options.drainRate = 0;
        EXPECT_EQ(checkSettings(options, m_settings), "");
        m_link.emplace(m_settings, m_session, m_queue,
                       [](TopicKind, const std::string&, const IncomingMessage&) {});
        m_link->start();
    }
    ~LinkToScript() { stop(kTimeout); }

    /// Makes the link send a record.
    void send(std::uint64_t number, Nanoseconds queued)
    {
        m_queue.putBack({retainedRecord(number, queued)}, queued);
        OutgoingMessage other; // the queue wakes the link only for new ones
        other.topic = "telvane/m1/state/errors";
        m_queue.push(other, monotonicNow());
    }

    void stop(Nanoseconds patience) { m_link->stop(patience); }

    ChannelCounts counts() const { return m_queue.counts()["LogData"]; }

private:
    BridgeSettings m_settings;
    OutgoingQueue m_queue{{1000, 1'000'000, 3600 * kSecond}};
    const Session m_session = startSession();
    std::optional<BrokerLink> m_link;
};

} // namespace TelvaneTool::Mqtt

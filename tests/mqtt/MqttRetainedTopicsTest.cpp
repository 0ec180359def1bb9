// What a broker retains if it refuses messages while connections are lost. The broker is a thread of the test, which answers
// as the test says.

#include "telvane-mqtt/broker/BrokerLink.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <future>
#include <poll.h>
#include <sys/socket.h>

namespace TelvaneTool::Mqtt
{
namespace
{

constexpr Nanoseconds kHour = 3600 * kSecond;
constexpr Nanoseconds kTimeout = 100 * kSecond;
constexpr const char* kTopic = "telvane/m1/N/LogData";

OutgoingMessage message(std::int64_t queued)
{
    OutgoingMessage result;
    result.topic = kTopic;
    result.queued = queued;
    result.retain = true;
    return result;
}

TEST(MqttRetainedTopics, AMessageIsTheNewestUntilANewerOneIsSent)
{
    RetainedTopics topics;
    EXPECT_TRUE(topics.isNewest(kTopic, 5));
    topics.noteAsked(kTopic, 5);
    EXPECT_FALSE(topics.isNewest(kTopic, 4));
    EXPECT_TRUE(topics.isNewest(kTopic, 5));
    topics.noteRefused(kTopic, 5);
    EXPECT_TRUE(topics.isNewest(kTopic, 4));
    topics.noteAsked(kTopic, 5);
    topics.noteAccepted(kTopic, 5);
    EXPECT_FALSE(topics.isNewest(kTopic, 4));
}

TEST(MqttRetainedTopics, TheNewestOfThosePassedTakesThePlaceOfARefusedOne)
{
    RetainedTopics topics;
    topics.noteAsked(kTopic, 5);
    for (const std::int64_t queued : {2, 4, 3}) {
        topics.notePassed(message(queued));
        EXPECT_FALSE(topics.takeNewest(kTopic)) << "the newest has no answer";
    }
    topics.noteRefused(kTopic, 5);
    ASSERT_EQ(topics.takeNewest(kTopic).value_or(message(0)).queued, 4);
    EXPECT_FALSE(topics.takeNewest(kTopic));
}

TEST(MqttRetainedTopics, WhatWasPassedIsForgottenOnceANewerOneIsAccepted)
{
    RetainedTopics topics;
    topics.noteAsked(kTopic, 5);
    topics.notePassed(message(4));
    topics.noteAccepted(kTopic, 5);
    topics.notePassed(message(3));
    EXPECT_TRUE(topics.takeNewest().empty());
}

TEST(MqttRetainedTopics, WhatWasPassedOutlivesConnections)
{
    RetainedTopics topics;
    topics.noteAsked(kTopic, 5);
    topics.notePassed(message(4));
    topics.noteLost();
    EXPECT_TRUE(topics.takeNewest().empty()) << "a newer one comes again";
    topics.noteAsked(kTopic, 5);
    topics.noteRefused(kTopic, 5);
    ASSERT_EQ(topics.takeNewest().size(), 1U);
    topics.noteAsked(kTopic, 4);
    topics.notePassed(message(4));
    topics.noteLost();
    EXPECT_EQ(topics.takeNewest().size(), 1U) << "its answer was lost with the connection";
}

/// A packet that a client published.
struct Published
{
    std::string payload;
    bool retain = false;
    int connection = 0; ///< counts from 1

    bool isNumber(int number) const
    {
        return payload.find("\"n\":" + std::to_string(number) + ",") != std::string::npos;
    }
};

/// A broker of MQTT 5 with one client at a time.
class ScriptedBroker
{
public:
    enum class Answer
    {
        Accept,
        Refuse,
        RefuseLater, ///< with the next answer
        Disconnect,  ///< without an answer; what was answered before arrives
    };

    /// \param answer says what becomes of a message on N. It is called on the broker's thread.
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
            answer = std::string("\x20\x03\0\0\0", 5);
            break;
        case 8: // SUBSCRIBE
            answer = std::string("\x90\x04", 2) + packet.substr(0, 2) + std::string("\0\1", 2);
            break;
        case 3: // PUBLISH
            return acknowledge(client, header, packet);
        default:
            break;
        }
        return send(client, answer.data(), answer.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(answer.size());
    }

    bool acknowledge(int client, unsigned header, const std::string& packet)
    {
        if ((header & 6U) == 0) {
            return true; // QoS 0
        }
        const auto length = static_cast<std::size_t>(static_cast<unsigned char>(packet[1]));
        const std::string topic = packet.substr(2, length);
        Answer answer = Answer::Accept;
        if (topic == kTopic) {
            answer = m_answer({packet.substr(2 + length), (header & 1U) != 0, m_connection});
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
        const std::string answers = std::exchange(m_refusals, "") + "\x40\x03" + id +
                                    (answer == Answer::Refuse ? "\x97" : std::string(1, '\0'));
        return send(client, answers.data(), answers.size(), MSG_NOSIGNAL) > 0;
    }

    const std::function<Answer(const Published&)> m_answer;
    FileDescriptor m_listener;
    int m_port = 0;
    int m_connection = 0;
    std::string m_refusals; ///< to be sent with the next answer
    std::atomic<bool> m_stopping{false};
    std::thread m_thread;
};

using Answer = ScriptedBroker::Answer;

/// The numbers of two records. The older one leaves second on the first connection, as a part of the backlog.
constexpr int kNewest = 9;
constexpr int kOlder = 7;

/// The bridge's link to a broker.
class Link
{
public:
    explicit Link(const ScriptedBroker& broker)
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
    ~Link() { m_link->stop(kTimeout); }

    /// Makes the link send a record.
    void queue(int number, Nanoseconds queued)
    {
        OutgoingMessage record = message(queued);
        record.channel = "LogData";
        record.className = "LogData";
        record.body = R"("record":{"log":"x"})";
        record.number = static_cast<std::uint64_t>(number);
        m_queue.putBack({record}, queued);
        OutgoingMessage other; // the queue wakes the link only for new ones
        other.topic = "telvane/m1/state/errors";
        m_queue.push(other, monotonicNow());
    }

private:
    BridgeSettings m_settings;
    OutgoingQueue m_queue{{1000, 1'000'000, kHour}};
    const Session m_session = startSession();
    std::optional<BrokerLink> m_link;
};

/// Lets a broker answer both records, until it is asked to retain the older one in a connection that lasts.
void expectOlderIsRetained(std::function<Answer(const Published&)> answer)
{
    std::promise<void> newestArrived;
    std::promise<void> olderIsQueued;
    std::promise<void> olderIsRetained;
    bool isFirst = true;
    bool isRetained = false;
    const ScriptedBroker broker([&](const Published& published) {
        if (std::exchange(isFirst, false)) {
            EXPECT_TRUE(published.isNumber(kNewest));
            newestArrived.set_value();
            olderIsQueued.get_future().wait();
        }
        const Answer result = answer(published);
        if (result == Answer::Accept && published.isNumber(kOlder) && published.retain &&
            !std::exchange(isRetained, true)) {
            olderIsRetained.set_value();
        }
        return result;
    });
    Link link(broker);
    const Nanoseconds now = monotonicNow();
    link.queue(kNewest, now);
    newestArrived.get_future().wait();
    link.queue(kOlder, now - 1);
    olderIsQueued.set_value();
    EXPECT_EQ(olderIsRetained.get_future().wait_for(std::chrono::nanoseconds(kTimeout)),
              std::future_status::ready);
}

TEST(MqttRetainedTopics, AReplacementThatIsLostWithItsConnectionIsSentAgain)
{
    expectOlderIsRetained([](const Published& published) {
        if (published.isNumber(kNewest)) {
            return Answer::RefuseLater;
        }
        return published.retain && published.connection == 1 ? Answer::Disconnect : Answer::Accept;
    });
}

TEST(MqttRetainedTopics, ARecordOfAnEarlierConnectionReplacesARefusedOne)
{
    expectOlderIsRetained([](const Published& published) {
        if (published.isNumber(kNewest)) {
            return published.connection < 3 ? Answer::Disconnect : Answer::Refuse;
        }
        return Answer::Accept;
    });
}

} // namespace
} // namespace TelvaneTool::Mqtt

#pragma once

#include "telvane-mqtt/broker/MqttClient.h"
#include "telvane-mqtt/channels/Topics.h"
#include "telvane-mqtt/queue/OutgoingQueue.h"

#include <Telvane/Bus.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace TelvaneTool::Mqtt
{

/// What came in.
struct InboundCounts
{
    std::atomic<std::uint64_t> published{0};
    std::atomic<std::uint64_t> answered{0};
    std::atomic<std::uint64_t> refused{0};
    std::atomic<std::uint64_t> repeated{0}; ///< messages that were asked for again
};

/// Publishes on the bus what the broker brings, and makes its requests.
/// \par Threads  handle() belongs to one thread. Requests wait on a thread of their own.
class InboundHandler
{
public:
    InboundHandler(const BridgeSettings& settings, const Session& session, Telvane::Bus& bus,
                   OutgoingQueue& queue);
    InboundHandler(const InboundHandler&) = delete;
    InboundHandler& operator=(const InboundHandler&) = delete;
    ~InboundHandler();

    void handle(TopicKind kind, const std::string& channel, IncomingMessage message);

    const InboundCounts& counts() const { return m_counts; }

private:
    struct Request
    {
        std::string channel;
        IncomingMessage message;
    };

    void publish(const std::string& channel, const IncomingMessage& message);
    void runRequests();
    void answer(const Request& request);
    void repeat(const Request& request, RepeatRequest wanted);
    void send(const Request& request, const std::string& body);
    void sendMessage(const Request& request, OutgoingMessage message);
    void reportError(const std::string& channel, const std::string& error);

    const BridgeSettings& m_settings;
    const Session& m_session;
    Telvane::Bus& m_bus;
    OutgoingQueue& m_queue;
    const Topics m_topics;
    InboundCounts m_counts;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Request> m_requests;
    bool m_closing = false;
    std::thread m_thread;
};

} // namespace TelvaneTool::Mqtt

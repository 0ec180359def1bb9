#pragma once

#include "MqttClient.h"
#include "OutgoingQueue.h"
#include "Topics.h"

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
};

/// Publishes on the bus what the broker brings, and makes its requests.
/// \par Threads  handle() belongs to one thread. Requests wait on a thread of their own.
class InboundHandler
{
public:
    InboundHandler(const BridgeSettings& settings, Telvane::Bus& bus, OutgoingQueue& queue);
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
    void send(const Request& request, const std::string& body);
    void reportError(const std::string& channel, const std::string& error);

    const BridgeSettings& m_settings;
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

// What comes from the network is checked against its class before anything of it reaches the bus. Each refusal is
// reported where its sender can read it: in the answer, or on state/errors.

#include "InboundHandler.h"

#include "common/bus/DecodedRecord.h"
#include "common/bus/RecordBuilder.h"

#include <Telvane/RequestType.h>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr std::size_t kMaxRequests = 100;
constexpr std::size_t kMaxPayload = 32768;
constexpr std::chrono::milliseconds kPublishDeadline(200);

std::string errorBody(const std::string& error)
{
    const JsonTree text(cJSON_CreateString(error.c_str()));
    return "\"error\":" + printJson(text.get());
}

} // namespace

InboundHandler::InboundHandler(const BridgeSettings& settings, Telvane::Bus& bus, OutgoingQueue& queue)
    : m_settings(settings),
      m_bus(bus),
      m_queue(queue),
      m_topics(settings.prefix, settings.module),
      m_thread([this] { runRequests(); })
{}

InboundHandler::~InboundHandler()
{
    {
        const std::lock_guard lock(m_mutex);
        m_closing = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void InboundHandler::handle(TopicKind kind, const std::string& channel, IncomingMessage message)
{
    if (kind == TopicKind::Write) {
        publish(channel, message);
        return;
    }
    if (m_settings.rules.requests().count(channel) == 0) {
        return; // not subscribed to
    }
    Request request = {channel, std::move(message)};
    {
        const std::lock_guard lock(m_mutex);
        if (m_requests.size() < kMaxRequests) {
            m_requests.push_back(std::move(request));
            m_changed.notify_one();
            return;
        }
    }
    ++m_counts.refused;
    send(request, errorBody("too many requests are waiting"));
}

void InboundHandler::publish(const std::string& channel, const IncomingMessage& message)
{
    const auto rule = m_settings.rules.in().find(channel);
    if (rule == m_settings.rules.in().end()) {
        return; // not subscribed to
    }
    std::string error = message.payload.size() > kMaxPayload ? "the payload does not fit the bus" : "";
    if (error.empty()) {
        const auto record = readRecord(message.payload, *rule->second.recordClass, error);
        if (record != nullptr) {
            error = checkPublicationSize(publicationSize(channel, *record));
        }
        if (error.empty()) {
            const Telvane::Publication publication = m_bus.publish(channel, *record, kPublishDeadline);
            error = publication.error ? publication.message() : "";
        }
    }
    if (error.empty()) {
        ++m_counts.published;
    } else {
        ++m_counts.refused;
        reportError(channel, error);
    }
}

void InboundHandler::reportError(const std::string& channel, const std::string& error)
{
    const JsonTree name(cJSON_CreateString(channel.c_str()));
    OutgoingMessage message;
    message.topic = m_topics.errors();
    message.time = wallTimeNow();
    message.body = "\"channel\":" + printJson(name.get()) + "," + errorBody(error);
    message.qos = 0;
    m_queue.push(std::move(message), monotonicNow());
}

void InboundHandler::runRequests()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_closing || !m_requests.empty(); });
        if (m_closing) {
            return;
        }
        const Request request = std::move(m_requests.front());
        m_requests.pop_front();
        lock.unlock();
        answer(request);
        lock.lock();
    }
}

void InboundHandler::answer(const Request& request)
{
    const Telvane::RecordClass& recordClass = *m_settings.rules.requests().at(request.channel).recordClass;
    DecodedRecord record(&recordClass);
    const std::error_code error = m_bus.request(request.channel, Telvane::RequestType(), record,
                                                std::chrono::nanoseconds(m_settings.requestTimeout));
    if (error || !record.decodeError().empty()) {
        ++m_counts.refused;
        send(request, errorBody(error ? error.message() : record.decodeError()));
    } else {
        ++m_counts.answered;
        send(request, "\"record\":" + record.text());
    }
}

void InboundHandler::send(const Request& request, const std::string& body)
{
    OutgoingMessage message;
    message.topic = request.message.responseTopic;
    message.className = m_settings.rules.requests().at(request.channel).recordClass->name;
    message.body = body;
    message.time = wallTimeNow();
    message.correlation = request.message.correlation;
    if (message.topic.empty()) {
        // MQTT 3.1.1 has no response topic. If the channel goes out anyway, the answer has been sent.
        if (m_settings.rules.out().count(request.channel) != 0 && body.compare(0, 8, "\"error\":") != 0) {
            return;
        }
        message.topic = m_topics.notification(request.channel);
    } else if (!m_topics.mayAnswerOn(message.topic)) {
        reportError(request.channel, "the response topic is not one that may be answered on");
        return;
    }
    m_queue.push(std::move(message), monotonicNow());
}

} // namespace TelvaneTool::Mqtt

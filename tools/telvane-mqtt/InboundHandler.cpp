// What comes from the network is checked against its class before anything of it reaches the bus. Each refusal is
// reported where its sender can read it: in the answer, or on state/errors.

#include "telvane-mqtt/InboundHandler.h"

#include "common/bus/DecodedRecord.h"
#include "common/bus/RecordBuilder.h"

#include <Telvane/RequestType.h>

namespace TelvaneTool::Mqtt
{

namespace
{

constexpr std::size_t kMaxRequests = 100;
constexpr std::size_t kMaxPayload = 32768;
constexpr std::uint64_t kMaxRepeated = 1000;
constexpr const char* kWrongResponseTopic = "the response topic is not one that may be answered on";
constexpr std::chrono::milliseconds kPublishDeadline(200);

std::string errorBody(const std::string& error)
{
    const JsonTree text(cJSON_CreateString(error.c_str()));
    return "\"error\":" + printJson(text.get());
}

} // namespace

InboundHandler::InboundHandler(const BridgeSettings& settings, const Session& session, Telvane::Bus& bus,
                               OutgoingQueue& queue)
    : m_settings(settings),
      m_session(session),
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
    if (m_settings.rules.requests().count(channel) == 0 && !m_settings.keepsInSpool(channel)) {
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
    RepeatRequest wanted;
    const bool isRepeat = readRepeatRequest(request.message.payload, wanted);
    if (m_settings.keepsInSpool(request.channel) &&
        (isRepeat || m_settings.rules.requests().count(request.channel) == 0)) {
        repeat(request, wanted);
        return;
    }
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

/// Sends messages of the spool again, as they were, and then what there was.
void InboundHandler::repeat(const Request& request, RepeatRequest wanted)
{
    const std::string& topic = request.message.responseTopic;
    if (!topic.empty() && !m_topics.mayAnswerOn(topic)) {
        reportError(request.channel, kWrongResponseTopic);
        return;
    }
    if (wanted.from < 1 || wanted.to < wanted.from || wanted.to - wanted.from >= kMaxRepeated) {
        ++m_counts.refused;
        send(request, errorBody("expected {\"session\":S,\"from\":N,\"to\":N} with at most " +
                                std::to_string(kMaxRepeated) + " numbers"));
        return;
    }
    std::uint64_t count = 0;
    for (OutgoingMessage& message : m_queue.find(request.channel, wanted.session, wanted.from, wanted.to)) {
        message.text = m_settings.bare ? barePayloadOf(message) : payloadOf(message, m_session);
        message.channel.clear(); // it has its number, and must not get another one
        message.body.clear();
        message.stored = 0;
        message.retain = false;
        sendMessage(request, std::move(message));
        ++m_counts.repeated;
        ++count;
    }
    OutgoingMessage end;
    end.className = m_settings.classOf(request.channel);
    end.time = wallTimeNow();
    end.body = "\"repeated\":{\"session\":" + std::to_string(wanted.session) +
               ",\"from\":" + std::to_string(wanted.from) + ",\"to\":" + std::to_string(wanted.to) +
               ",\"count\":" + std::to_string(count) + "}";
    sendMessage(request, std::move(end));
}

void InboundHandler::send(const Request& request, const std::string& body)
{
    // MQTT 3.1.1 has no response topic. If the channel goes out anyway, the answer has been sent.
    if (request.message.responseTopic.empty() && m_settings.rules.out().count(request.channel) != 0 &&
        body.compare(0, 8, "\"error\":") != 0) {
        return;
    }
    OutgoingMessage message;
    message.className = m_settings.classOf(request.channel);
    message.body = body;
    message.time = wallTimeNow();
    sendMessage(request, std::move(message));
}

void InboundHandler::sendMessage(const Request& request, OutgoingMessage message)
{
    message.correlation = request.message.correlation;
    message.topic = request.message.responseTopic;
    if (message.topic.empty()) {
        message.topic = m_topics.notification(request.channel);
    } else if (!m_topics.mayAnswerOn(message.topic)) {
        reportError(request.channel, kWrongResponseTopic);
        return;
    }
    m_queue.push(std::move(message), monotonicNow());
}

} // namespace TelvaneTool::Mqtt

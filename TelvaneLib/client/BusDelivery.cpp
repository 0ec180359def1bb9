// Handles a packet on the receiver thread: finds its recipients, reads the payload into a record for each, and runs
// the callback or queues the record. No packet may end the thread: packets that cannot be read are dropped and
// counted, and so are messages for a full queue.

#include "client/BusState.h"
#include "client/Relay.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace Telvane::Detail
{

namespace
{

constexpr const char* kAnswerStart = "{\"header\":\"."; ///< relays are printed over several lines
constexpr auto kLinger =
    std::chrono::seconds(1); ///< time for which a channel stays subscribed after a request

} // namespace

/// Takes a message that has to be parsed.
void BusState::takeMessage(const char* text)
{
    JsonTree message(cJSON_Parse(text));
    if (message == nullptr) {
        const std::lock_guard<std::mutex> guard(lock);
        m_received.add();
        ++m_counters.notJson;
        if (m_link != nullptr && std::strncmp(text, kAnswerStart, std::strlen(kAnswerStart)) == 0) {
            // An answer was lost because memory ran out. A new connection brings a new answer.
            m_link->shutDown();
        }
        return;
    }
    const char* const header = headerOf(message.get());
    if (std::strcmp(header, kSubscribeHeader) == 0 || std::strcmp(header, kUnsubscribeHeader) == 0) {
        takeAnswer(header, message.get());
    } else {
        Relay relay;
        relay.begin(std::move(message), text);
        takeRelay(relay);
    }
}

void BusState::takeAnswer(const char* header, const cJSON* message)
{
    Held held(lock);
    m_received.add();
    noteAnswer(header, message);
    if (m_windowFull && m_answersDue < kWindow) {
        m_windowFull = false;
        updateServer(held);
    }
}

/// Requires the lock.
void BusState::noteAnswer(const char* header, const cJSON* message)
{
    const char* const name = channelOf(message);
    if (name == nullptr || m_closed) {
        return;
    }
    m_answered = true;
    if (std::strcmp(header, kSubscribeHeader) != 0) {
        return;
    }
    const auto found = m_channels.find(std::string_view(name));
    if (found == m_channels.end() || found->second.answersDue == 0) {
        return;
    }
    Channel& channel = found->second;
    --channel.answersDue;
    --(channel.answersGivenUp > 0 ? channel.answersGivenUp : m_answersDue);
    if (channel.answersDue > 0 || !channel.asked) {
        eraseIfIdle(found);
        return;
    }
    channel.active = isSuccess(message);
    channel.refused = !channel.active;
    if (channel.refused) {
        channel.asked = false;
        for (const RequestPointer& request : channel.requests) {
            request->fail(BusError::Refused);
        }
        for (const EndpointPointer& endpoint : channel.endpoints) {
            endpoint->error = BusError::Refused;
        }
        report(BusEvent::Kind::SubscriptionRefused, BusError::Refused, found->first, "");
    } else {
        for (const EndpointPointer& endpoint : channel.endpoints) {
            endpoint->error.clear();
        }
    }
    changed.notify_all();
}

void BusState::takeRelay(Relay& relay)
{
    const Clock::time_point arrival = Clock::now();
    {
        Held held(lock);
        m_received.add();
        if (!relay.hasPayload()) {
            ++m_counters.withoutPayload;
            return;
        }
        const auto found = m_channels.find(relay.channel);
        if (found == m_channels.end()) {
            ++m_counters.notSubscribed;
            return;
        }
        Channel& channel = found->second;
        if (!channel.active && channel.asked && channel.answersDue > 0) {
            // Only a subscriber gets relays: the answer was lost, or comes later.
            channel.active = true;
            changed.notify_all();
        }
        m_targets = channel.endpoints;
        m_asked = channel.requests;
        considerDirect(channel);
        if (m_targets.empty() && m_asked.empty()) {
            ++m_counters.notSubscribed;
            if (channel.lingers && arrival - channel.lastRequest > kLinger) {
                channel.lingers = false;
                markDirty(*found);
                updateServer(held);
            }
            return;
        }
    }
    if (!m_asked.empty()) {
        answerRequests(relay);
    }
    for (const EndpointPointer& endpoint : m_targets) {
        deliver(endpoint, relay, arrival);
    }
    if (!relay.isJson()) {
        const std::lock_guard<std::mutex> guard(lock);
        ++m_counters.notJson;
    }
}

void BusState::answerRequests(Relay& relay)
{
    for (const RequestPointer& request : m_asked) {
        std::unique_ptr<TelvaneDataTypeBase> answer = relay.read(*request->prototype);
        if (answer == nullptr || (relay.isAddressed(*answer) && relay.identifier(*answer) != request->id)) {
            continue;
        }
        const std::lock_guard<std::mutex> guard(lock);
        if (!request->done) {
            request->done = true;
            request->answer = std::move(answer);
            request->changed.notify_all();
        }
    }
}

void BusState::deliver(const EndpointPointer& endpoint, Relay& relay, Clock::time_point arrival)
{
    std::unique_ptr<TelvaneDataTypeBase> record = relay.readFor(*endpoint);
    std::list<Item> message; // allocated and destroyed without the lock, and so is what it replaces
    std::list<Item> dropped;
    if (!endpoint->inReceiver()) {
        message.emplace_back();
    }
    Held held(lock);
    if (endpoint->ended || !relay.isJson()) {
        return;
    }
    const Delivery delivery = noteDelivery(*endpoint, relay, record.get(), m_counters.connections, arrival);
    if (record == nullptr) {
        ++endpoint->counters.undecodable;
        return;
    }
    if (endpoint->inReceiver()) {
        run(held, endpoint, Run::Direct, std::move(record), delivery);
        return;
    }
    Item& item = message.front();
    item.kind = Item::Kind::Message;
    item.record = std::move(record);
    item.delivery = delivery;
    enqueue(endpoint, message, dropped);
}

/// Moves a message to a queue. Never waits: from a full queue, the oldest message moves to \p dropped, or \p message
/// stays where it is.
void BusState::enqueue(const EndpointPointer& endpoint, std::list<Item>& message, std::list<Item>& dropped)
{
    const Limit& limit = endpoint->settings.limit;
    const bool isQueue = endpoint->settings.kind == EndpointSettings::Kind::Queue;
    if (endpoint->messages >= std::max<std::size_t>(limit.messages, 1)) {
        ++endpoint->counters.dropped;
        if (!endpoint->overflowing) {
            endpoint->overflowing = true;
            report(BusEvent::Kind::MessagesDropped, {}, endpoint->name, "");
        }
        if (limit.overflow == Overflow::DropNewest) {
            return;
        }
        endpoint->takeOldest(true, dropped);
        --endpoint->messages;
        if (!isQueue) {
            --executorOf(*endpoint).messages;
        }
    }
    endpoint->items.splice(endpoint->items.end(), message);
    ++endpoint->messages;
    if (isQueue) {
        endpoint->updateEvent();
        endpoint->changed.notify_one();
    } else {
        ++executorOf(*endpoint).messages;
        pushReady(endpoint);
        for (PendingRequest* helper = m_helpers; helper != nullptr; helper = helper->nextHelper) {
            helper->changed.notify_all();
        }
    }
}

} // namespace Telvane::Detail

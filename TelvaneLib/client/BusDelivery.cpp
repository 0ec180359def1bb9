// What the receiver thread does with a packet: finds out who gets it, reads the payload into a record for
// each, and runs the callback or queues the record. It survives whatever a server sends: what cannot be read
// is dropped and counted, and a queue that is full drops.

#include "client/BusState.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

namespace Telvane::Detail
{

namespace
{

constexpr const char* kAnswerStart = "{\"header\":\"."; ///< relays are printed over several lines
constexpr auto kLinger = std::chrono::seconds(1); ///< a channel stays subscribed so long after a request

/// \return the record read from \p payload, or null
std::unique_ptr<TelvaneDataTypeBase> decode(const TelvaneDataTypeBase& prototype, cJSON* payload)
{
    std::unique_ptr<TelvaneDataTypeBase> record(prototype.BuildNewDataType());
    if (record == nullptr) {
        throw std::bad_alloc();
    }
    try {
        const int result = record->Unpackage(payload);
        if (result == -ENOMEM) {
            throw std::bad_alloc();
        }
        if (result != 0) {
            record.reset();
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        record.reset(); // a time text without digits, say
    }
    return record;
}

} // namespace

void BusState::take(const char* text)
{
    bool outOfMemory = false;
    const char* header = "";
    try {
        const JsonTree message(cJSON_Parse(text));
        if (message == nullptr) {
            const std::lock_guard<std::mutex> guard(lock);
            ++m_counters.received;
            ++m_counters.notJson;
            if (m_link != nullptr && std::strncmp(text, kAnswerStart, std::strlen(kAnswerStart)) == 0) {
                // An answer is lost, if memory has run out: a new connection brings another.
                m_link->shutDown();
            }
            return;
        }
        header = headerOf(message.get());
        if (std::strcmp(header, kSubscribeHeader) == 0 || std::strcmp(header, kUnsubscribeHeader) == 0) {
            takeAnswer(header, message.get());
        } else {
            takeRelay(header, message.get());
        }
    } catch (const std::bad_alloc&) {
        outOfMemory = true;
    }
    m_targets.clear();
    m_asked.clear();
    if (outOfMemory) {
        const std::lock_guard<std::mutex> guard(lock);
        ++m_counters.outOfMemory;
    }
}

void BusState::takeAnswer(const char* header, const cJSON* message)
{
    const std::lock_guard<std::mutex> guard(lock);
    ++m_counters.received;
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
    --m_answersDue;
    if (channel.answersDue > 0 || !channel.asked) {
        eraseIfIdle(found);
        return;
    }
    channel.active = isSuccess(message);
    channel.refused = !channel.active;
    if (channel.refused) {
        channel.asked = false;
        for (const RequestPointer& request : channel.requests) {
            request->done = true;
            request->error = BusError::Refused;
            request->changed.notify_all();
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

void BusState::takeRelay(const char* name, const cJSON* message)
{
    const Clock::time_point arrival = Clock::now();
    cJSON* const payload = payloadOf(message);
    const int sequence = sequenceOf(message);
    {
        Held held(lock);
        ++m_counters.received;
        if (payload == nullptr) {
            ++m_counters.withoutPayload;
            return;
        }
        const auto found = m_channels.find(std::string_view(name));
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
        answerRequests(payload);
    }
    for (const EndpointPointer& endpoint : m_targets) {
        deliver(endpoint, payload, sequence, arrival);
    }
}

void BusState::answerRequests(cJSON* payload)
{
    const char* const id = cJSON_GetStringValue(cJSON_GetObjectItem(payload, "_id"));
    const bool addressed = id != nullptr && std::string_view(id).substr(0, kRequestId.size()) == kRequestId;
    for (const RequestPointer& request : m_asked) {
        if (addressed && request->id != id) {
            continue;
        }
        std::unique_ptr<TelvaneDataTypeBase> answer = decode(*request->prototype, payload);
        if (answer == nullptr) {
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

void BusState::deliver(const EndpointPointer& endpoint, cJSON* payload, int sequence,
                       Clock::time_point arrival)
{
    std::unique_ptr<TelvaneDataTypeBase> record = decode(*endpoint->prototype, payload);
    Held held(lock);
    if (endpoint->ended) {
        return;
    }
    Delivery delivery;
    delivery.sequence = sequence;
    delivery.epoch = m_counters.connections;
    delivery.arrival = arrival;
    if (endpoint->lastEpoch == delivery.epoch) {
        delivery.skippedNumbers = static_cast<unsigned>(sequence - endpoint->lastSequence - 1) & 0xFFFFU;
    }
    endpoint->lastEpoch = delivery.epoch;
    endpoint->lastSequence = sequence;
    if (record == nullptr) {
        ++endpoint->counters.undecodable;
        return;
    }
    if (endpoint->inReceiver()) {
        run(held, endpoint, Run::Direct, std::move(record), delivery);
        return;
    }
    Item item;
    item.kind = Item::Kind::Message;
    item.record = std::move(record);
    item.delivery = delivery;
    enqueue(held, endpoint, std::move(item));
}

/// Queues a message. Never waits: a full queue drops.
void BusState::enqueue(Held& held, const EndpointPointer& endpoint, Item item)
{
    Item dropped; // destroyed without the lock
    const Limit& limit = endpoint->settings.limit;
    const bool isQueue = endpoint->settings.kind == EndpointSettings::Kind::Queue;
    if (endpoint->messages >= std::max<std::size_t>(limit.messages, 1)) {
        ++endpoint->counters.dropped;
        if (!endpoint->overflowing) {
            endpoint->overflowing = true;
            report(BusEvent::Kind::MessagesDropped, {}, endpoint->name, "");
        }
        if (limit.overflow == Overflow::DropNewest) {
            held.unlock();
            return;
        }
        const auto oldest = std::find_if(endpoint->items.begin(), endpoint->items.end(),
                                         [](const Item& one) { return one.kind == Item::Kind::Message; });
        dropped = std::move(*oldest);
        endpoint->items.erase(oldest);
        --endpoint->messages;
        if (!isQueue) {
            --executorOf(*endpoint).messages;
        }
    }
    endpoint->items.push_back(std::move(item));
    ++endpoint->messages;
    if (isQueue) {
        updateEvent(*endpoint);
        endpoint->changed.notify_one();
    } else {
        ++executorOf(*endpoint).messages;
        pushReady(endpoint);
        for (PendingRequest* helper = m_helpers; helper != nullptr; helper = helper->nextHelper) {
            helper->changed.notify_all();
        }
    }
    held.unlock();
}

} // namespace Telvane::Detail

// Handles a packet on the receiver thread: finds its recipients, reads the payload into a record for each, and runs
// the callback or queues the record. No packet may end the thread: packets that cannot be read are dropped and
// counted, and so are messages for a full queue.

#include "base/RecordEngine.h"
#include "client/BusState.h"
#include "support/JsonScanner.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <string_view>

namespace Telvane::Detail
{

namespace
{

constexpr const char* kAnswerStart = "{\"header\":\"."; ///< relays are printed over several lines
constexpr auto kLinger =
    std::chrono::seconds(1); ///< time for which a channel stays subscribed after a request

} // namespace

/// A relay whose payload is read from its text as long as the text is as a server prints it, else from a tree.
class Relay
{
public:
    /// \return whether \p text begins as a printed relay
    bool begin(const char* text)
    {
        JsonScanner start(text);
        if (beginRelay(start, channel, sequence)) {
            m_payload.emplace(start);
            m_text = text;
        }
        return m_payload.has_value();
    }

    void begin(JsonTree message)
    {
        channel = headerOf(message.get());
        sequence = sequenceOf(message.get());
        m_tree = std::move(message);
    }

    bool hasPayload() const { return m_payload || payloadOf(m_tree.get()) != nullptr; }
    /// \return false if a read() has found that the text is not JSON
    bool isJson() const { return m_isJson; }

    /// \return the payload as a record of the class of \p prototype, or null
    std::unique_ptr<TelvaneDataTypeBase> read(const TelvaneDataTypeBase& prototype)
    {
        std::unique_ptr<TelvaneDataTypeBase> record;
        try {
            record = newRecord(prototype);
            if (m_payload && prototype._recordTable() != nullptr) {
                JsonScanner payload = *m_payload;
                if (RecordEngine::scan(*record, payload, 1) && endRelay(payload)) {
                    return record;
                }
                record = newRecord(prototype);
            }
            if (m_tree == nullptr) {
                m_tree.reset(cJSON_Parse(m_text));
                m_isJson = m_tree != nullptr;
            }
            cJSON* const payload = payloadOf(m_tree.get());
            const int result = payload != nullptr ? record->Unpackage(payload) : -EINVAL;
            if (result == -ENOMEM) {
                throw std::bad_alloc();
            }
            if (result != 0) {
                record.reset();
            }
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception&) {
            record.reset(); // for example a time without digits
        }
        return record;
    }

    /// \return whether the payload is the answer to one request. \p record is what read() made of it.
    bool isAddressed(const TelvaneDataTypeBase& record) const
    {
        return identifier(record).substr(0, kRequestId.size()) == kRequestId;
    }

    std::string_view identifier(const TelvaneDataTypeBase& record) const
    {
        if (m_tree == nullptr) {
            return record._id;
        }
        const char* const id = cJSON_GetStringValue(cJSON_GetObjectItem(payloadOf(m_tree.get()), "_id"));
        return id != nullptr ? id : "";
    }

    std::string_view channel;
    int sequence = 0;

private:
    static std::unique_ptr<TelvaneDataTypeBase> newRecord(const TelvaneDataTypeBase& prototype)
    {
        std::unique_ptr<TelvaneDataTypeBase> record(prototype.BuildNewDataType());
        if (record == nullptr) {
            throw std::bad_alloc();
        }
        return record;
    }

    const char* m_text = nullptr;
    bool m_isJson = true;
    std::optional<JsonScanner> m_payload;
    JsonTree m_tree;
};

void BusState::take(const char* text)
{
    bool outOfMemory = false;
    try {
        Relay relay;
        if (relay.begin(text)) {
            takeRelay(relay);
        } else {
            takeMessage(text);
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

/// Takes a message that has to be parsed.
void BusState::takeMessage(const char* text)
{
    JsonTree message(cJSON_Parse(text));
    if (message == nullptr) {
        const std::lock_guard<std::mutex> guard(lock);
        ++m_counters.received;
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
        relay.begin(std::move(message));
        takeRelay(relay);
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
        ++m_counters.received;
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
    std::unique_ptr<TelvaneDataTypeBase> record = relay.read(*endpoint->prototype);
    Held held(lock);
    if (endpoint->ended || !relay.isJson()) {
        return;
    }
    Delivery delivery;
    delivery.sequence = relay.sequence;
    delivery.epoch = m_counters.connections;
    delivery.arrival = arrival;
    // The answer from a server's memory has the number that it had before.
    const auto step = static_cast<unsigned>(relay.sequence - endpoint->lastSequence) & 0xFFFFU;
    const bool isOld = record != nullptr && relay.isAddressed(*record) && (step == 0 || step > 0x8000U);
    if (endpoint->lastEpoch != delivery.epoch || !isOld) {
        delivery.skippedNumbers = endpoint->lastEpoch == delivery.epoch ? (step - 1) & 0xFFFFU : 0;
        endpoint->lastEpoch = delivery.epoch;
        endpoint->lastSequence = relay.sequence;
    }
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

/// Queues a message. Never waits: a full queue drops a message.
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
        dropped = endpoint->takeOldest(true);
        --endpoint->messages;
        if (!isQueue) {
            --executorOf(*endpoint).messages;
        }
    }
    endpoint->items.push_back(std::move(item));
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
    held.unlock();
}

} // namespace Telvane::Detail

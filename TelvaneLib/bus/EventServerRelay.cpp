// Dispatch of messages, on the receiver thread of the client that sent them. The handler lock serialises it.
// Messages that cannot be dispatched are dropped and counted. Sends do not wait: a subscriber whose buffer is
// full misses the relay, and the others get it.

#include "bus/EventServerState.h"

#include "support/Diagnostics.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <sys/socket.h>

namespace Telvane
{

namespace
{

void reportRelayError(int client, int result)
{
    char text[256];
    std::snprintf(text, sizeof text, "RELAY ERROR to client %d: [%d]: %s", client, result,
                  std::strerror(std::abs(result)));
    writeErrorLine(text);
}

int sendToClient(int fd, const char* data, int length)
{
    SentPacket packet;
    do {
        packet = sendPacket(fd, data, length, MSG_DONTWAIT);
    } while (packet.sent < 0 && errno == EINTR);
    if (packet.sent < 0) {
        return -errno;
    }
    return packet.complete() ? 0 : packet.sent;
}

} // namespace

void EventServer::State::handlePackets(int client, const Packet* packets, int number)
{
    count(counters.received, static_cast<std::uint64_t>(number));
    std::array<PrintedPublication, kMaxPackets> publications;
    const Packet* const end = packets + number;
    while (packets != end) {
        std::size_t printed = 0;
        while (packets != end && publications[printed].read(packets->text)) {
            ++printed;
            ++packets;
        }
        relayPrinted(client, publications.data(), printed);
        if (packets != end) {
            handleParsed(client, *packets);
            ++packets;
        }
    }
}

/// Relays publications whose payloads need not be parsed.
void EventServer::State::relayPrinted(int client, PrintedPublication* publications, std::size_t number)
{
    PrintedPublication* const end = publications + number;
    while (publications != end) {
        std::array<Relay, kMaxPackets> relays;
        std::size_t relayCount = 0;
        int bytes = 0;
        // Limit the time for which messages of other clients wait.
        const std::lock_guard<std::mutex> guard(handlerLock);
        Channel::Entry* channel = nullptr;
        bool permitted = true;
        for (; publications != end && bytes < kMaxBytes; ++publications) {
            if (channel == nullptr || channel->first != publications->header()) {
                const auto found = channels.find(publications->header());
                channel = found != channels.end() ? &*found : nullptr;
                permitted = rights.permitsMessage(client, publications->header());
            }
            if (!permitted) {
                dropMessage(client, publications->header());
                continue;
            }
            if (memory != nullptr &&
                answerFromMemory(client, channel != nullptr ? &channel->second : nullptr, *publications)) {
                incrementUnshared(counters.dispatched);
                continue;
            }
            if (channel == nullptr) {
                keepUnrelayed(*publications);
                incrementUnshared(counters.unknownChannel);
                continue;
            }
            const int sequenceNumber = sequence.fetch_add(1);
            const std::string_view text = publications->makeRelay(sequenceNumber);
            keep(channel->first, text);
            Relay& relay = relays[relayCount++];
            relay = {&channel->second, text.data(), static_cast<int>(text.size())};
            noteRelay(channel->second, sequenceNumber, relay.length);
            bytes += relay.length;
        }
        incrementUnshared(counters.dispatched, relayCount);
        sendToSubscribers(relays.data(), relayCount);
    }
}

/// Dispatches a message that is not a publication in printed form.
void EventServer::State::handleParsed(int client, const Packet& packet)
{
    const JsonTree message(cJSON_Parse(packet.text));
    if (message == nullptr) {
        count(packet.length < kMessageLimit ? counters.notJson : counters.tooLarge);
        return;
    }
    cJSON* const payload = payloadOf(message.get());
    if (payload == nullptr) {
        count(counters.withoutPayload);
        return;
    }
    const std::lock_guard<std::mutex> guard(handlerLock);
    const std::string_view header = headerOf(message.get());
    const auto found = channels.find(header);
    const bool isMeta = found != channels.end() && found->second.metaHandler != nullptr;
    if (!isMeta && !rights.permitsMessage(client, header)) {
        dropMessage(client, header);
        return;
    }
    if (answerFromMemory(client, found != channels.end() ? &found->second : nullptr, header, payload)) {
        incrementUnshared(counters.dispatched);
        return;
    }
    if (found == channels.end()) {
        keepUnrelayed(header, payload);
        incrementUnshared(counters.unknownChannel);
        return;
    }
    incrementUnshared(counters.dispatched);
    int result = 0;
    try {
        result = dispatch(client, *found, payload);
    } catch (const std::bad_alloc&) {
        result = -ENOMEM;
    }
    if (result == -ENOMEM) {
        // Only this message is lost.
        incrementUnshared(counters.outOfMemory);
    }
}

int EventServer::State::dispatch(int client, Channel::Entry& channel, cJSON* payload)
{
    const int sequenceNumber = sequence.fetch_add(1);
    const EventHandler metaHandler = channel.second.metaHandler;
    return metaHandler != nullptr
               ? metaHandler(&server, client, channel.first, sequenceNumber, payload, nullptr)
               : relay(channel, sequenceNumber, payload);
}

int EventServer::meta_subscribeHandler(void* server, int fd, const std::string& header, int sequence,
                                       cJSON* payload, void* /*user*/)
{
    State& state = State::of(server);
    const char* const channel = channelOf(payload);
    if (channel == nullptr) {
        return -EINVAL;
    }
    const bool accepted = isSubscribable(channel) && state.subscribe(fd, channel);
    const int result = state.answer(fd, kSubscribeHeader, accepted, channel);
    if (result == 0) {
        state.onSubscribe.call(state.server, fd, header, sequence, payload);
    }
    return result;
}

int EventServer::meta_unsubscribeHandler(void* server, int fd, const std::string& header, int sequence,
                                         cJSON* payload, void* /*user*/)
{
    State& state = State::of(server);
    const char* const channel = channelOf(payload);
    if (channel == nullptr) {
        return -EINVAL;
    }
    const bool accepted = isSubscribable(channel) && state.unsubscribe(fd, channel);
    const int result = state.answer(fd, kUnsubscribeHeader, accepted, channel);
    if (result == 0) {
        state.onUnsubscribe.call(state.server, fd, header, sequence, payload);
    }
    return result;
}

/// \return false if it is refused or memory runs out
bool EventServer::State::subscribe(int client, std::string_view channel)
{
    try {
        const auto found = channels.find(channel);
        if (found != channels.end() && isSubscribed(client, found->second)) {
            return true;
        }
        if (refusesSubscription(client, channel, found == channels.end())) {
            return false;
        }
        Channel::Entry& entry = found != channels.end() ? *found : addChannel(channel);
        const std::lock_guard<std::mutex> guard(subscribersLock);
        std::vector<ServerSubscription>& own = subscriptions[client];
        if (own.size() == own.capacity()) {
            own.reserve(std::max<std::size_t>(4, 2 * own.size())); // the next two must not fail separately
        }
        Subscriber& delivery = entry.second.subscribers[client];
        delivery.position = own.size();
        own.push_back({&entry, &delivery});
        entry.second.subscriberCount = entry.second.subscribers.size();
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool EventServer::State::isSubscribed(int client, const Channel& channel)
{
    const std::lock_guard<std::mutex> guard(subscribersLock);
    return channel.subscribers.find(client) != channel.subscribers.end();
}

Channel::Entry& EventServer::State::addChannel(std::string_view name)
{
    Channel::Entry& entry = *channels.try_emplace(std::string(name)).first;
    entry.second.older = newestChannel;
    newestChannel = &entry;
    ++channelCount;
    return entry;
}

/// \return whether the channel exists, even if the client is not subscribed to it
bool EventServer::State::unsubscribe(int client, std::string_view channel)
{
    const auto found = channels.find(channel);
    if (found == channels.end()) {
        return false;
    }
    Channel& entry = found->second;
    const std::lock_guard<std::mutex> guard(subscribersLock);
    const auto subscriber = entry.subscribers.find(client);
    if (subscriber != entry.subscribers.end()) {
        // Move the last subscription of the list to this place.
        std::vector<ServerSubscription>& own = subscriptions.find(client)->second;
        const std::size_t position = subscriber->second.position;
        own[position] = own.back();
        own[position].delivery->position = position;
        own.pop_back();
        entry.subscribers.erase(subscriber);
        entry.subscriberCount = entry.subscribers.size();
    }
    return true;
}

void EventServer::State::removeSubscriptions(int client)
{
    const std::lock_guard<std::mutex> guard(subscribersLock);
    const auto found = subscriptions.find(client);
    if (found == subscriptions.end()) {
        return;
    }
    for (const ServerSubscription& subscription : found->second) {
        Channel& channel = subscription.channel->second;
        channel.subscribers.erase(client);
        channel.subscriberCount = channel.subscribers.size();
    }
    subscriptions.erase(found);
}

int EventServer::State::answer(int client, const char* header, bool success, const char* channel)
{
    writeResponse(relayText, header, success, channel);
    const char* const text = relayText.finish();
    return text != nullptr ? sendToClient(client, text, static_cast<int>(relayText.length())) : -ENOMEM;
}

int EventServer::subscriptionHandler(void* server, int /*fd*/, const std::string& channel, int sequence,
                                     cJSON* payload, void* /*user*/)
{
    State& state = State::of(server);
    const auto found = state.channels.find(channel);
    return found != state.channels.end() ? state.relay(*found, sequence, payload) : 0;
}

int EventServer::State::relay(Channel::Entry& channel, int sequenceNumber, cJSON* payload)
{
    writeRelay(relayText, channel.first, sequenceNumber, payload);
    const char* const text = relayText.finish();
    if (text == nullptr) {
        return -ENOMEM;
    }
    const Relay relay = {&channel.second, text, static_cast<int>(relayText.length())};
    keep(channel.first, {text, relayText.length()});
    noteRelay(channel.second, sequenceNumber, relay.length);
    sendToSubscribers(&relay, 1);
    return 0;
}

void EventServer::State::noteRelay(Channel& channel, int sequenceNumber, int length)
{
    incrementUnshared(channel.publications);
    incrementUnshared(channel.bytes, static_cast<std::uint64_t>(length));
    channel.lastSequence.store(sequenceNumber, std::memory_order_relaxed);
    if (length >= kMessageLimit) {
        incrementUnshared(counters.relaysTooLarge);
    }
}

/// Sends all relays of one subscriber before those of the next, so that each subscriber is woken once.
void EventServer::State::sendToSubscribers(const Relay* relays, std::size_t number)
{
    const std::lock_guard<std::mutex> guard(subscribersLock);
    const Relay* const end = relays + number;
    for (const Relay* relay = relays; relay != end; ++relay) {
        const auto isOfChannel = [relay](const Relay& earlier) {
            return earlier.channel == relay->channel;
        };
        if (std::any_of(relays, relay, isOfChannel)) {
            continue;
        }
        for (auto& [subscriber, delivery] : relay->channel->subscribers) {
            const int client = subscriber;
            const auto isForClient = [client](const Relay& earlier) {
                return earlier.channel->subscribers.count(client) != 0;
            };
            if (std::none_of(relays, relay, isForClient)) {
                sendShare(subscriber, delivery, relay, end);
            }
        }
    }
}

/// \param begin the first relay that is for \p subscriber, whose \p delivery that is
void EventServer::State::sendShare(int subscriber, Subscriber& delivery, const Relay* begin, const Relay* end)
{
    const Channel* channel = begin->channel;
    Subscriber* own = &delivery;
    std::uint64_t relayed = 0;
    for (const Relay* relay = begin; relay != end; ++relay) {
        if (relay->channel != channel) {
            channel = relay->channel;
            const auto found = relay->channel->subscribers.find(subscriber);
            own = found != relay->channel->subscribers.end() ? &found->second : nullptr;
        }
        if (own == nullptr) {
            continue;
        }
        const int result = sendToClient(subscriber, relay->text, relay->length);
        if (result == 0) {
            ++own->relayed;
            ++relayed;
        } else {
            ++own->missed;
            own->lastError = result;
            incrementUnshared(counters.relaysFailed);
            incrementUnshared(relay->channel->missed);
            if (relayErrorLines) {
                reportRelayError(subscriber, result);
            }
        }
    }
    incrementUnshared(counters.relayed, relayed);
}

int EventServer::writeDataToSocket(int fd, char* data, int length)
{
    return sendToClient(fd, data, length);
}

} // namespace Telvane

// What the server does with a message. Everything here runs on the receiver thread of the client that sent
// it; dispatch is serialised by the handler lock. A message that cannot be dispatched is dropped without an
// answer and counted. Sends never wait: a subscriber whose buffer is full misses the relay, the others do
// not.

#include "bus/EventServerState.h"

#include "support/Diagnostics.h"

#include <algorithm>
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

bool isSubscribable(std::string_view channel)
{
    return channel.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_") ==
           std::string_view::npos;
}

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

void EventServer::State::handlePacket(int client, const char* text, int length)
{
    count(counters.received);
    const JsonTree message(cJSON_Parse(text));
    if (message == nullptr) {
        count(length < kMessageLimit ? counters.notJson : counters.tooLarge);
        return;
    }
    cJSON* const payload = payloadOf(message.get());
    if (payload == nullptr) {
        count(counters.withoutPayload);
        return;
    }
    const std::lock_guard<std::mutex> guard(handlerLock);
    const auto found = channels.find(std::string_view(headerOf(message.get())));
    if (found == channels.end()) {
        count(counters.unknownChannel);
        return;
    }
    count(counters.dispatched);
    int result = 0;
    try {
        result = dispatch(client, *found, payload);
    } catch (const std::bad_alloc&) {
        result = -ENOMEM;
    }
    if (result == -ENOMEM) {
        // The message is lost, as it would be to a full buffer; the server goes on.
        count(counters.outOfMemory);
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

/// \return false when it is refused, or memory has run out
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
        std::vector<Subscription>& own = subscriptions[client];
        if (own.size() == own.capacity()) {
            own.reserve(std::max<std::size_t>(4, 2 * own.size())); // nothing may fail between the next two
        }
        Delivery& delivery = entry.second.subscribers[client];
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

/// \return whether the channel exists, subscribed to by this client or not
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
        // The last subscription of the list takes the place of this one.
        std::vector<Subscription>& own = subscriptions.find(client)->second;
        const std::size_t position = subscriber->second.position;
        own[position] = own.back();
        own[position].delivery->position = position;
        own.pop_back();
        entry.subscribers.erase(subscriber);
        entry.subscriberCount = entry.subscribers.size();
    }
    return true;
}

void EventServer::State::forget(int client)
{
    const std::lock_guard<std::mutex> guard(subscribersLock);
    const auto found = subscriptions.find(client);
    if (found == subscriptions.end()) {
        return;
    }
    for (const Subscription& subscription : found->second) {
        Channel& channel = subscription.channel->second;
        channel.subscribers.erase(client);
        channel.subscriberCount = channel.subscribers.size();
    }
    subscriptions.erase(found);
}

int EventServer::State::answer(int client, const char* header, bool success, const char* channel)
{
    const JsonTree response = makeResponse(header, success, channel);
    const char* const text =
        response != nullptr ? printer.print(response.get(), MessagePrinter::Form::Compact) : nullptr;
    return text != nullptr ? sendToClient(client, text, printer.length()) : -ENOMEM;
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
    // The relay refers to the payload, and the printer skips references: the payload's numbers come first.
    printer.preformatNumbers(payload);
    cJSON* const message = relayEnvelope.wrap(channel.first, sequenceNumber, payload);
    const char* const text =
        message != nullptr ? printer.print(message, MessagePrinter::Form::Formatted) : nullptr;
    if (text == nullptr) {
        return -ENOMEM;
    }
    Channel& own = channel.second;
    incrementUnshared(own.publications);
    incrementUnshared(own.bytes, static_cast<std::uint64_t>(printer.length()));
    own.lastSequence.store(sequenceNumber, std::memory_order_relaxed);
    sendToSubscribers(own, text, printer.length());
    return 0;
}

void EventServer::State::sendToSubscribers(Channel& channel, const char* text, int length)
{
    if (length >= kMessageLimit) {
        count(counters.relaysTooLarge);
    }
    const std::lock_guard<std::mutex> guard(subscribersLock);
    std::uint64_t failed = 0;
    for (auto& [subscriber, delivery] : channel.subscribers) {
        const int result = sendToClient(subscriber, text, length);
        if (result == 0) {
            ++delivery.relayed;
        } else {
            ++delivery.missed;
            delivery.lastError = result;
            ++failed;
            reportRelayError(subscriber, result);
        }
    }
    count(counters.relayed, channel.subscribers.size() - failed);
    if (failed != 0) {
        count(counters.relaysFailed, failed);
        incrementUnshared(channel.missed, failed);
    }
}

int EventServer::writeDataToSocket(int fd, char* data, int length)
{
    return sendToClient(fd, data, length);
}

} // namespace Telvane

// Last values for late comers: the server keeps the last relay of chosen channels and sends it to a client that
// requests it, if no client is subscribed to the requests. All of it runs under the handler lock.

#include "bus/EventServerState.h"

#include <Telvane/RequestType.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace Telvane
{

namespace
{

bool isRequest(std::string_view channel)
{
    return channel.substr(0, std::strlen(kRequestPrefix)) == kRequestPrefix;
}

} // namespace

int EventServer::SetMemory(EventServerMemory memory)
{
    try {
        m_state->memory = memory.remembers ? std::make_unique<LastValues>(std::move(memory)) : nullptr;
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    return 0;
}

bool EventServer::State::isKept(std::string_view channel) const
{
    return memory != nullptr && isSubscribable(channel) && !isRequest(channel) && memory->remembers(channel);
}

void EventServer::State::keep(std::string_view channel, std::string_view relay)
{
    if (isKept(channel)) {
        memory->put(channel, relay);
    }
}

/// Keeps a publication that is not relayed, because its channel never had a subscriber.
void EventServer::State::keepUnrelayed(PrintedPublication& publication)
{
    if (!isKept(publication.header())) {
        return;
    }
    try {
        const std::string channel(publication.header()); // the text moves
        memory->put(channel, publication.makeRelay(latestSequence()));
    } catch (const std::bad_alloc&) {
        memory->forget(publication.header());
    }
}

void EventServer::State::keepUnrelayed(std::string_view header, const cJSON* payload)
{
    if (!isKept(header)) {
        return;
    }
    memory->forget(header); // in case that memory runs out
    try {
        writeRelay(relayText, std::string(header), latestSequence(), payload);
        if (const char* const text = relayText.finish()) {
            memory->put(header, {text, relayText.length()});
        }
    } catch (const std::bad_alloc&) {
        incrementUnshared(counters.outOfMemory);
    }
}

/// \return the number of the latest relay, for a message that gets none
int EventServer::State::latestSequence() const
{
    return static_cast<std::uint16_t>(sequence.load() - 1);
}

bool EventServer::State::answerFromMemory(int client, const Channel* requests,
                                          const PrintedPublication& request)
{
    if (!isRequest(request.header())) {
        return false;
    }
    const JsonTree message(cJSON_ParseWithLength(request.text().data(), request.text().size()));
    return answerFromMemory(client, requests, request.header(), payloadOf(message.get()));
}

/// Sends the last value to the client that requests it, which must be subscribed to its channel.
/// \param requests the channel of the requests, or null
/// \param payload  payload of the request
/// \return whether the request is answered
bool EventServer::State::answerFromMemory(int client, const Channel* requests, std::string_view header,
                                          const cJSON* payload)
{
    if (memory == nullptr || !isRequest(header) || (requests != nullptr && requests->subscriberCount != 0)) {
        return false;
    }
    const std::string_view name = header.substr(std::strlen(kRequestPrefix));
    const std::string* const value = memory->find(name);
    const auto channel = channels.find(name);
    if (value == nullptr || channel == channels.end()) {
        return false;
    }
    const std::string_view text = withIdentifier(*value, channel->first, payload);
    const Relay relay = {&channel->second, text.data(), static_cast<int>(text.size())};
    const std::lock_guard<std::mutex> guard(subscribersLock);
    const auto subscriber = channel->second.subscribers.find(client);
    if (subscriber == channel->second.subscribers.end()) {
        return false;
    }
    sendShare(client, subscriber->second, &relay, &relay + 1);
    return true;
}

/// \return \p value with the identifier of the request, by which Bus finds the request that a record answers
std::string_view EventServer::State::withIdentifier(const std::string& value, const std::string& channel,
                                                    const cJSON* request)
{
    constexpr const char* kIdentifier = "_id";
    const char* const identifier = cJSON_GetStringValue(cJSON_GetObjectItem(request, kIdentifier));
    if (identifier == nullptr) {
        return value;
    }
    const JsonTree message(cJSON_Parse(value.c_str()));
    cJSON* const payload = payloadOf(message.get());
    if (cJSON_IsObject(payload) == 0) {
        return value;
    }
    cJSON_DeleteItemFromObject(payload, kIdentifier);
    cJSON_AddStringToObject(payload, kIdentifier, identifier);
    writeRelay(relayText, channel, sequenceOf(message.get()), payload);
    const char* const text = relayText.finish();
    const bool fits = text != nullptr && relayText.length() < static_cast<std::size_t>(kMessageLimit);
    return fits ? std::string_view(text, relayText.length()) : std::string_view(value);
}

} // namespace Telvane

// Requests with the public operations of a client. The caller's record is both prototype and target of the
// reply.

#include <Telvane/EventClientSynchronizer.h>

#include <Telvane/RequestType.h>

#include "bus/PendingRequest.h"

#include <cerrno>
#include <new>
#include <utility>

namespace Telvane
{

struct EventClientSynchronizer::State : PendingRequest
{};

EventClientSynchronizer::EventClientSynchronizer() : m_state(std::make_shared<State>()) {}

EventClientSynchronizer::~EventClientSynchronizer() = default;

int EventClientSynchronizer::Request(EventClient& client, const std::string& channel,
                                     TelvaneDataTypeBase& reply, unsigned int timeout)
{
    if (!client.IsConnected()) {
        return -ENOTCONN;
    }
    std::string requestChannel;
    EventClient::Callback takeReply;
    try {
        requestChannel = kRequestPrefix + channel;
        // The subscription shares the state, because it may outlive the synchronizer if the server does not
        // end it.
        takeReply = [state = m_state](void*, TelvaneDataTypeBase* record, int, void*) {
            state->take(record);
        };
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    if (const int result = client.Subscribe(channel, std::move(takeReply), reply, this); result < 0) {
        return result;
    }
    int result = 0;
    m_state->begin(reply);
    if (!m_state->ask(client, requestChannel, timeout, result)) {
        result = 0; // the request ends without a reply
    }
    const int unsubscribed = client.Unsubscribe(channel);
    m_state->end();
    return unsubscribed != 0 ? unsubscribed : result;
}

void EventClientSynchronizer::callback(void* /*client*/, TelvaneDataTypeBase* record, int /*sequence*/,
                                       void* user)
{
    static_cast<EventClientSynchronizer*>(user)->m_state->take(record);
}

} // namespace Telvane

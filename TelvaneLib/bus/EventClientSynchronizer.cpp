// One request, one reply, one waiting thread. The lock is held from before the request goes out until the
// wait begins, so a quick reply waits for the waiter. The caller's record is the reply's prototype and its
// target.

#include <Telvane/EventClientSynchronizer.h>

#include <Telvane/RequestType.h>

#include "support/Deadline.h"
#include "transport/Envelope.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <string>
#include <utility>

namespace Telvane
{

struct EventClientSynchronizer::State
{
    std::mutex lock;
    std::condition_variable replyCondition;
    bool answered = false;
    TelvaneDataTypeBase* replyTarget = nullptr;

    void take(TelvaneDataTypeBase* reply)
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (replyTarget == nullptr) {
            return;
        }
        try {
            replyTarget->copy(reply);
        } catch (const std::bad_alloc&) {
            return; // as if it had not arrived
        }
        answered = true;
        replyCondition.notify_all();
    }
};

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
        // The subscription holds the state itself: should it outlive the synchronizer, because the server did
        // not end it, it finds no target there and does nothing.
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
    {
        RequestType request;
        std::unique_lock<std::mutex> guard(m_state->lock);
        m_state->answered = false;
        m_state->replyTarget = &reply;
        if (client.Publish(requestChannel, request) == 0) {
            const auto deadline = deadlineAfter(std::chrono::system_clock::now(), timeout);
            const auto answered = [this] {
                return m_state->answered;
            };
            if (timeout == 0 || !m_state->replyCondition.wait_until(guard, deadline, answered)) {
                result = ETIMEDOUT;
            }
        }
    }
    const int unsubscribed = client.Unsubscribe(channel);
    {
        // A late reply must not be copied into a record that is gone.
        const std::lock_guard<std::mutex> guard(m_state->lock);
        m_state->replyTarget = nullptr;
    }
    return unsubscribed != 0 ? unsubscribed : result;
}

void EventClientSynchronizer::callback(void* /*client*/, TelvaneDataTypeBase* record, int /*sequence*/,
                                       void* user)
{
    static_cast<EventClientSynchronizer*>(user)->m_state->take(record);
}

} // namespace Telvane

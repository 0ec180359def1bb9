// One request, one reply, one waiting thread. The lock is held from before the request goes out until the
// wait begins, so a quick reply waits for the waiter. The caller's record is the reply's prototype and its
// target.

#include <Telvane/EventClientSynchronizer.h>

#include <Telvane/RequestType.h>

#include "Deadline.h"
#include "Envelope.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Telvane
{

struct EventClientSynchronizer::State
{
    std::mutex lock;
    std::condition_variable replyCondition;
    bool answered = false;
    TelvaneDataTypeBase* replyTarget = nullptr;
};

EventClientSynchronizer::EventClientSynchronizer() : m_state(std::make_unique<State>()) {}

EventClientSynchronizer::~EventClientSynchronizer() = default;

int EventClientSynchronizer::Request(EventClient& client, const std::string& channel,
                                     TelvaneDataTypeBase& reply, unsigned int timeout)
{
    if (!client.IsConnected()) {
        return -ENOTCONN;
    }
    {
        // Until the request is out nothing on the channel is an answer, but a late one of before may arrive.
        const std::lock_guard<std::mutex> guard(m_state->lock);
        m_state->answered = false;
        m_state->replyTarget = nullptr;
    }
    if (const int result = client.Subscribe(channel, &callback, reply, this); result < 0) {
        return result;
    }
    int result = 0;
    {
        RequestType request;
        std::unique_lock<std::mutex> guard(m_state->lock);
        m_state->answered = false;
        m_state->replyTarget = &reply;
        if (client.Publish(kRequestPrefix + channel, request) == 0) {
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
        // Should the subscription stand after all, nothing may be copied into a record that is gone.
        const std::lock_guard<std::mutex> guard(m_state->lock);
        m_state->replyTarget = nullptr;
    }
    return unsubscribed != 0 ? unsubscribed : result;
}

void EventClientSynchronizer::callback(void* /*client*/, TelvaneDataTypeBase* record, int /*sequence*/,
                                       void* user)
{
    State& state = *static_cast<EventClientSynchronizer*>(user)->m_state;
    const std::lock_guard<std::mutex> guard(state.lock);
    if (state.replyTarget == nullptr) {
        return;
    }
    state.replyTarget->copy(record);
    state.answered = true;
    state.replyCondition.notify_all();
}

} // namespace Telvane

#include "bus/PendingRequest.h"

#include "support/Deadline.h"

#include <Telvane/RequestType.h>

#include <cerrno>
#include <new>

namespace Telvane
{

void PendingRequest::begin(TelvaneDataTypeBase& reply)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_answered = false;
    m_target = &reply;
}

bool PendingRequest::ask(EventClient& client, const std::string& requestChannel, unsigned int timeout,
                         int& result)
{
    RequestType request;
    std::unique_lock<std::mutex> guard(m_lock);
    result = client.Publish(requestChannel, request);
    if (result != 0) {
        return false;
    }
    const auto deadline = deadlineAfter(std::chrono::system_clock::now(), timeout);
    if (timeout == 0 || !m_condition.wait_until(guard, deadline, [this] { return m_answered; })) {
        result = ETIMEDOUT;
    }
    return true;
}

void PendingRequest::end()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_target = nullptr;
}

void PendingRequest::take(TelvaneDataTypeBase* reply)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_target == nullptr) {
        return;
    }
    try {
        m_target->copy(reply);
    } catch (const std::bad_alloc&) {
        return;
    }
    m_answered = true;
    m_condition.notify_all();
}

} // namespace Telvane

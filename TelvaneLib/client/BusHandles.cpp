// The handles. Each owns its endpoint, which owns the data that the bus and its threads share. So a handle may outlive
// its bus, and end() works even if it destroys the handle itself.

#include <Telvane/BusTypes.h>

#include "client/BusState.h"

#include <cerrno>

namespace Telvane
{

BusHandle& BusHandle::operator=(BusHandle&& other) noexcept
{
    if (this != &other) {
        end();
        m_endpoint = std::move(other.m_endpoint);
        m_error = other.m_error;
    }
    return *this;
}

BusHandle::~BusHandle()
{
    end();
}

void BusHandle::end()
{
    if (const std::shared_ptr<Detail::Endpoint> endpoint = m_endpoint) {
        endpoint->bus->endEndpoint(endpoint, true);
    }
}

void BusHandle::cancel()
{
    if (const std::shared_ptr<Detail::Endpoint> endpoint = m_endpoint) {
        endpoint->bus->endEndpoint(endpoint, false);
    }
}

void BusHandle::keep() &&
{
    m_endpoint.reset();
}

bool BusHandle::active() const
{
    if (m_endpoint == nullptr) {
        return false;
    }
    const std::lock_guard<std::mutex> guard(m_endpoint->bus->lock);
    return !m_endpoint->ended;
}

std::error_code BusHandle::error() const
{
    if (m_endpoint == nullptr) {
        return m_error ? m_error : make_error_code(BusError::Closed);
    }
    const std::lock_guard<std::mutex> guard(m_endpoint->bus->lock);
    return m_endpoint->error;
}

std::error_code BusHandle::waitActive(std::chrono::nanoseconds timeout) const
{
    return m_endpoint != nullptr ? m_endpoint->bus->waitActive(m_endpoint, Detail::deadlineAfter(timeout))
                                 : error();
}

EndpointStatistics BusHandle::statistics() const
{
    if (m_endpoint == nullptr) {
        return {};
    }
    const std::lock_guard<std::mutex> guard(m_endpoint->bus->lock);
    EndpointStatistics now = m_endpoint->counters;
    now.delivered += m_endpoint->deliveredDirectly.value();
    now.waiting = m_endpoint->messages;
    return now;
}

Detail::Item BusHandle::nextItem(std::chrono::nanoseconds timeout)
{
    if (m_endpoint == nullptr) {
        Detail::Item item;
        item.kind = Detail::Item::Kind::Ended;
        item.reason = error();
        return item;
    }
    const std::shared_ptr<Detail::Endpoint> endpoint = m_endpoint; // the handle may move meanwhile
    return endpoint->bus->nextItem(endpoint, timeout);
}

int BusHandle::descriptor()
{
    if (m_endpoint == nullptr) {
        errno = EBADF;
        return -1;
    }
    return m_endpoint->bus->queueDescriptor(m_endpoint);
}

} // namespace Telvane

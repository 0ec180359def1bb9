// Hooks and settings. Hooks need no lock, because they are installed before Start(). Settings that may change
// at any time are atomic or have a lock.

#include "bus/EventServerState.h"

#include <cerrno>
#include <utility>

namespace Telvane
{

namespace
{

// The deepest message that the JSON library accepts needs up to 160 KiB of stack.
constexpr std::size_t kMinStackSize = std::size_t{256} * 1024;

} // namespace

int Hook::install(EventHandler newFn, void* newUser)
{
    if (newFn == nullptr) {
        return -EINVAL;
    }
    fn = newFn;
    user = newUser;
    return 0;
}

int Hook::uninstall()
{
    if (fn == nullptr) {
        return -EALREADY;
    }
    fn = nullptr;
    return 0;
}

int EventServer::install_OnSubscribe(EventHandler fn, void* user)
{
    return m_state->onSubscribe.install(fn, user);
}

int EventServer::install_OnUnsubscribe(EventHandler fn, void* user)
{
    return m_state->onUnsubscribe.install(fn, user);
}

int EventServer::install_OnConnect(EventHandler fn, void* user)
{
    return m_state->onConnect.install(fn, user);
}

int EventServer::install_OnDisconnect(EventHandler fn, void* user)
{
    return m_state->onDisconnect.install(fn, user);
}

int EventServer::uninstall_OnSubscribe()
{
    return m_state->onSubscribe.uninstall();
}

int EventServer::uninstall_OnUnsubscribe()
{
    return m_state->onUnsubscribe.uninstall();
}

int EventServer::uninstall_OnConnect()
{
    return m_state->onConnect.uninstall();
}

int EventServer::uninstall_OnDisconnect()
{
    return m_state->onDisconnect.uninstall();
}

int EventServer::install_OnRefusal(std::function<void(EventServer&, const EventServerRefusal&)> fn)
{
    if (!fn) {
        return -EINVAL;
    }
    m_state->onRefusal = std::move(fn);
    return 0;
}

int EventServer::uninstall_OnRefusal()
{
    if (!m_state->onRefusal) {
        return -EALREADY;
    }
    m_state->onRefusal = nullptr;
    return 0;
}

void EventServer::SetLimits(EventServerLimits limits)
{
    const std::lock_guard<std::mutex> guard(m_state->limitsLock);
    std::swap(m_state->limits, limits);
}

int EventServer::SetSubscriberSendBuffer(int bytes)
{
    if (bytes < 0) {
        return -EINVAL;
    }
    m_state->sendBuffer = bytes;
    return 0;
}

int EventServer::GrantedSubscriberSendBuffer() const
{
    return m_state->grantedSendBuffer;
}

void EventServer::SetRelayErrorLines(bool enabled)
{
    m_state->relayErrorLines = enabled;
}

int EventServer::SetThreadStackSize(std::size_t bytes)
{
    if (bytes < kMinStackSize) {
        return -EINVAL;
    }
    m_state->stackSize = bytes;
    return 0;
}

} // namespace Telvane

// The linker sends every call of, say, send() to __wrap_send(), and that of __real_send() to the system. A
// thread of the library is known by the entry that it is started with.

#include "helpers/FaultInjection.h"

#include <Telvane/EventClient.h>
#include <Telvane/EventServer.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <pthread.h>
#include <sys/socket.h>
#include <vector>

namespace Telvane::Detail
{
void* runReceiver(void* argument); // the threads of a Bus
void* runWorker(void* argument);
} // namespace Telvane::Detail

namespace Telvane::Testing
{

namespace
{

thread_local Caller caller = Caller::Application;

std::atomic<int> sendFlags[static_cast<int>(Caller::Anyone)];

std::mutex faultsLock;
std::vector<Fault*> faults;

/// \return whether the call is to fail, and then how
bool applies(Call call, FaultScript& how)
{
    const std::lock_guard<std::mutex> guard(faultsLock);
    for (Fault* const fault : faults) {
        const FaultScript& script = fault->script();
        if (script.call == call && (script.caller == Caller::Anyone || script.caller == caller)) {
            how = script;
            return fault->applies();
        }
    }
    return false;
}

/// Fails the call with -1 when a script says so, else makes it.
template <class Action>
auto failOr(Call call, Action action) -> decltype(action())
{
    FaultScript how;
    if (applies(call, how)) {
        if (how.gate != nullptr) {
            how.gate->pass();
        }
        if (how.gate == nullptr || how.error != 0) {
            errno = how.error;
            return -1;
        }
    }
    return action();
}

using ThreadEntry = void* (*)(void*);

Caller callerOf(ThreadEntry entry)
{
    if (entry == &EventServer::connectionListener) {
        return Caller::Listener;
    }
    if (entry == &EventServer::rx_handler) {
        return Caller::Receiver;
    }
    const bool ofClient =
        entry == &EventClient::rx_handler || entry == &Detail::runReceiver || entry == &Detail::runWorker;
    return ofClient ? Caller::ClientReceiver : Caller::Application;
}

struct ThreadStart
{
    ThreadEntry entry;
    void* argument;
};

void* runThread(void* argument)
{
    auto* const given = static_cast<ThreadStart*>(argument);
    const ThreadStart start = *given;
    std::free(given);
    caller = callerOf(start.entry);
    return start.entry(start.argument);
}

} // namespace

Caller currentCaller()
{
    return caller;
}

int flagsOfLastSend(Caller of)
{
    return sendFlags[static_cast<int>(of)];
}

Fault::Fault(const FaultScript& script) : m_script(script)
{
    const std::lock_guard<std::mutex> guard(faultsLock);
    faults.push_back(this);
}

Fault::~Fault()
{
    const std::lock_guard<std::mutex> guard(faultsLock);
    faults.erase(std::find(faults.begin(), faults.end(), this));
}

bool Fault::applies()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    ++m_calls;
    if (m_calls <= m_script.passing || m_failures >= m_script.failing) {
        return false;
    }
    ++m_failures;
    m_failed.notify_all();
    return true;
}

int Fault::calls() const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_calls;
}

int Fault::failures() const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_failures;
}

bool Fault::awaitFailures(int count) const
{
    std::unique_lock<std::mutex> guard(m_lock);
    return m_failed.wait_for(guard, kTimeout, [this, count] { return m_failures >= count; });
}

} // namespace Telvane::Testing

using namespace Telvane::Testing;

extern "C" {
int __real_socket(int domain, int type, int protocol);
int __real_bind(int fd, const sockaddr* address, socklen_t length);
int __real_listen(int fd, int backlog);
int __real_accept4(int fd, sockaddr* address, socklen_t* length, int flags);
int __real_connect(int fd, const sockaddr* address, socklen_t length);
ssize_t __real_send(int fd, const void* data, std::size_t length, int flags);
ssize_t __real_recv(int fd, void* data, std::size_t length, int flags);
int __real_recvmmsg(int fd, mmsghdr* messages, unsigned int number, int flags, timespec* timeout);
int __real_shutdown(int fd, int how);
int __real_close(int fd);
int __real_eventfd(unsigned int count, int flags);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, ThreadEntry entry,
                          void* argument);
int __real_pthread_join(pthread_t thread, void** result);
int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);

int __wrap_socket(int domain, int type, int protocol)
{
    return failOr(Call::Socket, [=] { return __real_socket(domain, type, protocol); });
}

int __wrap_bind(int fd, const sockaddr* address, socklen_t length)
{
    return failOr(Call::Bind, [=] { return __real_bind(fd, address, length); });
}

int __wrap_listen(int fd, int backlog)
{
    return failOr(Call::Listen, [=] { return __real_listen(fd, backlog); });
}

int __wrap_accept4(int fd, sockaddr* address, socklen_t* length, int flags)
{
    return failOr(Call::Accept, [=] { return __real_accept4(fd, address, length, flags); });
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length)
{
    return failOr(Call::Connect, [=] { return __real_connect(fd, address, length); });
}

ssize_t __wrap_send(int fd, const void* data, std::size_t length, int flags)
{
    sendFlags[static_cast<int>(currentCaller())] = flags;
    FaultScript how;
    if (!applies(Call::Send, how)) {
        return __real_send(fd, data, length, flags);
    }
    if (how.error != 0) {
        errno = how.error;
        return -1;
    }
    return how.sentBytes != 0 ? __real_send(fd, data, std::min(length, how.sentBytes), flags) : 0;
}

ssize_t __wrap_recv(int fd, void* data, std::size_t length, int flags)
{
    return failOr(Call::Receive, [=] { return __real_recv(fd, data, length, flags); });
}

int __wrap_recvmmsg(int fd, mmsghdr* messages, unsigned int number, int flags, timespec* timeout)
{
    return failOr(Call::Receive, [=] { return __real_recvmmsg(fd, messages, number, flags, timeout); });
}

int __wrap_shutdown(int fd, int how)
{
    return failOr(Call::Shutdown, [=] { return __real_shutdown(fd, how); });
}

int __wrap_eventfd(unsigned int count, int flags)
{
    return failOr(Call::CreateEventDescriptor, [=] { return __real_eventfd(count, flags); });
}

int __wrap_close(int fd)
{
    // As on Linux: the descriptor is gone even when closing it has failed.
    const int result = __real_close(fd);
    return failOr(Call::Close, [result] { return result; });
}

int __wrap_pthread_join(pthread_t thread, void** result)
{
    FaultScript how;
    applies(Call::JoinThread, how);
    return __real_pthread_join(thread, result);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline)
{
    const int result = __real_pthread_cond_timedwait(condition, mutex, deadline);
    FaultScript how;
    if (applies(Call::Wait, how)) {
        how.gate->pass();
    }
    return result;
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, ThreadEntry entry,
                          void* argument)
{
    FaultScript how;
    if (applies(Call::CreateThread, how)) {
        return how.error;
    }
    // Not with new, which a test may have made to fail.
    auto* const start = static_cast<ThreadStart*>(std::malloc(sizeof(ThreadStart)));
    if (start == nullptr) {
        return EAGAIN;
    }
    *start = {entry, argument};
    const int result = __real_pthread_create(thread, attributes, &runThread, start);
    if (result != 0) {
        std::free(start);
    }
    return result;
}
}

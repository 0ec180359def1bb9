#include "support/Thread.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <unistd.h>

namespace Telvane
{

namespace
{

/// Blocks signals on the calling thread, from which new threads inherit them. Signals that a thread causes
/// itself are not blocked: they would end the process without calling its handler.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGPROF}) {
            sigdelset(&blocked, own);
        }
        pthread_sigmask(SIG_SETMASK, &blocked, &m_previous);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_previous = {};
};

} // namespace

int startThread(pthread_t& thread, void* (*entry)(void*), void* argument, std::size_t stackSize)
{
    const SignalsBlocked blocked;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (stackSize != 0) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const auto least = static_cast<std::size_t>(PTHREAD_STACK_MIN);
        const std::size_t size = (std::max(stackSize, least) + page - 1) / page * page;
        pthread_attr_setstacksize(&attributes, size);
    }
    const int result = pthread_create(&thread, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    return result;
}

} // namespace Telvane

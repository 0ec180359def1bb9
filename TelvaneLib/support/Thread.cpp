#include "support/Thread.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstdint>
#include <pthread.h>
#include <unistd.h>

namespace Telvane
{

namespace
{

/// Signals that threads of the library block. Signals that a thread causes itself are not blocked: they would
/// end the process without calling its handler.
sigset_t blockedSignals()
{
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGPROF}) {
        sigdelset(&blocked, own);
    }
    return blocked;
}

/// \return the signals of a set as bits, without those that cannot be blocked
std::uint64_t bitsOf(const sigset_t& signals)
{
    std::uint64_t bits = 0;
    for (int signal = 1; signal <= 64; ++signal) {
        const bool blockable = signal != SIGKILL && signal != SIGSTOP;
        if (blockable && sigismember(&signals, signal) == 1) {
            bits |= std::uint64_t{1} << (signal - 1);
        }
    }
    return bits;
}

/// Signals that the application had blocked when it started the latest thread, as bits.
std::atomic<std::uint64_t> applicationMask{0};
/// Signals that threads of the library have blocked, as bits. The system may block fewer than it is told to: an emulator
/// keeps some real-time signals to itself.
std::atomic<std::uint64_t> libraryMask{0};

/// Runs in a child process. A callback may run a program, which would inherit the library's mask: nothing but
/// SIGKILL could end it.
void restoreMaskInChild()
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    if (bitsOf(mask) != libraryMask) {
        return; // not a child of a thread of the library
    }
    sigemptyset(&mask);
    const std::uint64_t bits = applicationMask;
    for (int signal = 1; signal <= 64; ++signal) {
        if ((bits >> (signal - 1) & 1) != 0) {
            sigaddset(&mask, signal);
        }
    }
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

/// Blocks signals on the calling thread, from which new threads inherit them.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        static const int registered = pthread_atfork(nullptr, nullptr, &restoreMaskInChild);
        static_cast<void>(registered); // without memory for it, children keep the mask
        sigset_t blocked = blockedSignals();
        pthread_sigmask(SIG_SETMASK, &blocked, &m_previous);
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        libraryMask = bitsOf(blocked);
        if (bitsOf(m_previous) != libraryMask) { // else a callback starts the thread
            applicationMask = bitsOf(m_previous);
        }
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
#ifdef __SANITIZE_THREAD__
        constexpr std::size_t kOfSanitizer =
            std::size_t{1024} * 1024; // its data of the thread are on the stack
#else
        constexpr std::size_t kOfSanitizer = 0;
#endif
        const std::size_t size = (std::max(stackSize, least) + kOfSanitizer + page - 1) / page * page;
        pthread_attr_setstacksize(&attributes, size);
    }
    const int result = pthread_create(&thread, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    return result;
}

} // namespace Telvane

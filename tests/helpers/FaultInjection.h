#pragma once

// Makes system calls of the bus fail. The linker redirects these calls in programs that link this, both the
// library's and the test's own. The library is unchanged.

#include "helpers/BusTestSupport.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>

namespace Telvane::Testing
{

enum class Call
{
    Socket,
    Bind,
    Listen,
    Accept,
    Connect,
    Send,
    Receive,
    Shutdown,
    Close,
    CreateEventDescriptor,
    CreateThread,
    JoinThread, ///< only counted
    Wait,       ///< on a condition and the wall clock
};

/// Kinds of threads that make calls.
enum class Caller
{
    Application, ///< a thread that the library has not started
    Listener,    ///< the server's listener thread
    Receiver,    ///< a server's thread for one of its clients
    ClientReceiver,
    Anyone,
};

/// \return the kind of the calling thread
Caller currentCaller();

/// \return the flags of the last send on that kind of thread
int flagsOfLastSend(Caller caller);

constexpr int kForEver = std::numeric_limits<int>::max();

/// The calls that fail, and how.
struct FaultScript
{
    Call call = Call::Send;
    Caller caller = Caller::Anyone;
    int error = 0;   ///< errno of the failing call; of Call::CreateThread the result
    int passing = 0; ///< how many calls pass before the first that fails
    int failing = 1; ///< how many then fail
    /// Call::Send: sends this many bytes of the packet instead of failing.
    std::size_t sentBytes = 0;
    /// Waits until this is open, and then fails only if there is an error. Call::Wait does not fail, and waits
    /// after its own wait. Not for Call::Send and Call::CreateThread.
    Gate* gate = nullptr;
};

/// Applies a script until destruction. If several match a call, the oldest decides.
class Fault
{
public:
    explicit Fault(const FaultScript& script);
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;
    ~Fault();

    /// \return the count of calls that matched the script
    int calls() const;
    /// \return the count of calls that failed
    int failures() const;
    /// Waits until \p count calls have failed. \return false after a time-out
    bool awaitFailures(int count) const;

    /// \name For the redirected calls
    /// @{
    const FaultScript& script() const { return m_script; }
    bool applies();
    /// @}

private:
    const FaultScript m_script;
    mutable std::mutex m_lock;
    mutable std::condition_variable m_failed;
    int m_calls = 0;
    int m_failures = 0;
};

/// Names tests that run once for each of several error numbers.
inline std::string nameOfError(const ::testing::TestParamInfo<int>& error)
{
    return ::strerrorname_np(error.param);
}

} // namespace Telvane::Testing

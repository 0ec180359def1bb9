#pragma once

// Makes the system calls of the bus fail as a test scripts it. Programs that link this have the calls in
// question redirected by the linker, the library's as well as the test's own; the library itself knows
// nothing of it.

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

/// On which kind of thread a call is made.
enum class Caller
{
    Application, ///< whatever the library has not started
    Listener,    ///< the server's listening thread
    Receiver,    ///< a server's thread for one of its clients
    ClientReceiver,
    Anyone,
};

/// \return what the calling thread is
Caller currentCaller();

/// \return the flags of the last send on that kind of thread
int flagsOfLastSend(Caller caller);

constexpr int kForEver = std::numeric_limits<int>::max();

/// What is to happen to which calls.
struct FaultScript
{
    Call call = Call::Send;
    Caller caller = Caller::Anyone;
    int error = 0;   ///< errno of the failing call; of Call::CreateThread the result
    int passing = 0; ///< how many calls pass before the first that fails
    int failing = 1; ///< how many then fail
    /// Of Call::Send: instead of failing, this many bytes of the packet go out.
    std::size_t sentBytes = 0;
    /// Instead of failing, the call waits until this is open; Call::Wait, which only knows this, when its own
    /// waiting is over. Not for Call::Send and Call::CreateThread.
    Gate* gate = nullptr;
};

/// A script in force, from construction to destruction. Of several that fit a call the oldest decides.
class Fault
{
public:
    explicit Fault(const FaultScript& script);
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;
    ~Fault();

    /// \return how many calls have fitted the script
    int calls() const;
    /// \return how many calls have failed
    int failures() const;
    /// Waits until \p count calls have failed. \return false when that does not happen
    bool awaitFailures(int count) const;

    /// \name For the calls
    /// @{
    const FaultScript& script() const { return m_script; }
    bool strikes();
    /// @}

private:
    const FaultScript m_script;
    mutable std::mutex m_lock;
    mutable std::condition_variable m_struck;
    int m_calls = 0;
    int m_failures = 0;
};

/// Names tests that run once for each of several error numbers.
inline std::string nameOfError(const ::testing::TestParamInfo<int>& error)
{
    return ::strerrorname_np(error.param);
}

} // namespace Telvane::Testing

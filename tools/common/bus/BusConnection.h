#pragma once

#include "common/support/Clock.h"

#include <Telvane/EventClient.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace TelvaneTool
{

/// A connection to the bus that never leaves its user hanging.
///
/// The client itself waits without end for a server that is gone. So a watchman thread looks out for signals,
/// for the loss of the connection and, where standard output carries data, for the loss of its reader. It
/// tells the main thread, ends a send that hangs, and ends the process when the main thread does not come
/// back in time.
class BusConnection
{
public:
    enum class Output
    {
        Data,   ///< standard output carries data; the session ends when nobody reads it any more
        Unused, ///< standard output is of no concern
    };

    enum class Interruption
    {
        ExpectedExit, ///< the command goes on until a signal comes
        Aborts,       ///< the command would have ended by itself
    };

    BusConnection(Output output, Interruption interruption);
    ~BusConnection();
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;

    /// Connects, or complains and says why not.
    /// \param wait how long to wait for a server to appear, in seconds
    /// \return an exit code
    int connect(const std::string& path, double wait);

    /// \return how long the user is ready to wait for a server, in seconds
    double wait() const { return m_wait; }

    /// Subscribes, or complains.
    /// \return an exit code
    int subscribe(const std::string& channel, const Telvane::TelvaneDataTypeBase& prototype,
                  Telvane::EventClient::Callback callback);

    /// Publishes, or complains; without a word when the session is stopping.
    bool publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record);

    /// \return how many messages have arrived that were not whole
    std::uint64_t brokenMessages() const { return m_client.Statistics().notJson; }
    /// \return how many records have arrived that a subscription's class could not read
    std::uint64_t undecodableRecords() const { return m_client.Statistics().undecodable; }

    /// Writes to standard output. A failure stops the session.
    bool write(std::string_view data);

    /// \return true when the main thread should come to its end: finish() tells why
    bool stopping() const { return m_stop.load(std::memory_order_relaxed) != Stop::None; }

    /// Waits until a descriptor can be read.
    /// \return false when the session is stopping
    bool awaitInput(int fd) const;

    /// Waits on the monotonic clock.
    /// \return false when the session is stopping
    bool sleepUntil(Nanoseconds deadline);

    /// Waits until \p condition holds. It is called whenever wake() has been called, without any lock held.
    /// \param deadline on the monotonic clock, or kNoDeadline
    /// \return whether it holds; the session may be stopping all the same
    template <class Condition>
    bool waitFor(Condition condition, Nanoseconds deadline);
    static constexpr Nanoseconds kNoDeadline = -1;

    /// Makes waitFor() look again. From any thread.
    void wake();

    /// Disconnects, and complains if something else than the user has ended the session.
    /// \param result the exit code when nothing has
    /// \return the exit code
    int finish(int result);

private:
    enum class Stop
    {
        None,
        Interrupted,
        ConnectionLost,
        OutputClosed,
        OutputFailed,
    };

    void watch();
    Nanoseconds watchTimeout() const;
    void takeSignal();
    void stop(Stop reason);
    void wakeWatchdog() const;
    void disconnect();
    void tryDisconnect();
    void complainAboutConnect() const;
    void complainAboutStop();
    int stopCode() const;
    void waitOnce(std::unique_lock<std::mutex>& guard, Nanoseconds deadline);

    const Output m_output;
    const Interruption m_interruption;
    std::string m_path;
    double m_wait = 0.0;
    std::mutex m_disconnecting; ///< Disconnect() belongs to one thread at a time

    std::atomic<Stop> m_stop{Stop::None};
    std::atomic<Nanoseconds> m_stopTime{0};
    std::atomic<int> m_signal{0};
    std::atomic<int> m_outputError{0};
    std::atomic<Nanoseconds> m_connectTime{0}; ///< since when a connect has been under way, or 0
    std::atomic<bool> m_finished{false};
    std::atomic<bool> m_complained{false};

    std::mutex m_lock;
    std::condition_variable m_condition;
    std::uint64_t m_wakes = 0;

    int m_signals = -1;
    int m_nudge = -1;
    int m_stopEvent = -1; ///< readable from the stop on
    std::thread m_watchdog;
    Telvane::EventClient m_client; ///< the last member: its receiver thread uses the others until it is gone
};

template <class Condition>
bool BusConnection::waitFor(Condition condition, Nanoseconds deadline)
{
    std::unique_lock<std::mutex> guard(m_lock);
    for (;;) {
        const std::uint64_t wakes = m_wakes;
        guard.unlock();
        const bool holds = condition();
        guard.lock();
        if (holds || stopping() || (deadline >= 0 && monotonicNow() >= deadline)) {
            return holds;
        }
        if (wakes == m_wakes) {
            waitOnce(guard, deadline);
        }
    }
}

} // namespace TelvaneTool

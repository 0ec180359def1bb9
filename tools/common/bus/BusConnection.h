#pragma once

#include "common/support/Clock.h"
#include "common/support/FileDescriptor.h"

#include <Telvane/Bus.h>
#include <Telvane/EventClient.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace TelvaneTool
{

/// A connection to the bus that never blocks its caller forever.
///
/// The client itself waits without a time-out for a server that has died. A watchdog thread therefore watches for
/// signals, for a lost connection and, if standard output is used for data, for a closed reader. It notifies the
/// main thread, unblocks a send by disconnecting, and exits the process if the main thread does not return in time.
/// The functions print their errors.
class BusConnection
{
public:
    enum class Output
    {
        Data,   ///< stop when the reader closes standard output
        Unused, ///< standard output is not used
    };

    enum class Interruption
    {
        ExpectedExit, ///< a signal is the usual end of the command
        Aborts,       ///< a signal ends the command before its work is done
    };

    BusConnection(Output output, Interruption interruption);
    ~BusConnection();
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;

    /// Makes the connection last: after a loss, it is made again with its subscriptions. Call it before connect().
    /// \param notices report each loss and each new connection
    /// \param onChange called after each loss (false) and each new connection (true), on a thread of its own
    void reconnect(bool notices, std::function<void(bool connected)> onChange = {});

    /// \return how often a connection that lasts has been lost
    std::uint64_t losses() const { return m_losses; }

    /// Connects to a server.
    /// \param wait how long to wait for the server to start, s
    /// \return an exit code
    int connect(const std::string& path, double wait);

    /// \return the waiting time passed to connect(), s
    double wait() const { return m_wait; }

    /// Subscribes to a channel.
    /// \return an exit code
    int subscribe(const std::string& channel, const Telvane::TelvaneDataTypeBase& prototype,
                  Telvane::EventClient::Callback callback);

    /// Publishes a record. Prints no error if the connection is stopping.
    bool publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record);

    /// \return the number of messages that were not valid JSON
    std::uint64_t brokenMessages() const;
    /// \return the number of records that a subscription's class could not read
    std::uint64_t undecodableRecords() const;

    /// Writes text to standard output, without control characters except newlines and tabs. A failure stops the
    /// connection.
    bool write(std::string_view text);
    /// Writes text with control sequences to a terminal. It must not contain text from other processes as it is.
    bool writeToTerminal(std::string_view text);

    /// \return whether the main thread should end; finish() returns the reason
    bool stopping() const { return m_stop.load(std::memory_order_relaxed) != Stop::None; }

    bool connectionLost() const { return m_stop == Stop::ConnectionLost; }
    /// \return the signal that stopped the connection, or 0
    int signal() const { return m_signal; }

    /// Waits until a descriptor can be read.
    /// \return false if the connection is stopping
    bool awaitInput(int fd, Nanoseconds deadline = kNoDeadline) const;

    /// Sleeps until a time on the monotonic clock.
    /// \return false if the connection is stopping
    bool sleepUntil(Nanoseconds deadline);

    /// Waits until \p condition returns true. It is called after each wake(), with no lock held.
    /// \param deadline on the monotonic clock, or kNoDeadline
    /// \return the last result of \p condition; false also if the connection is stopping
    template <class Condition>
    bool waitFor(Condition condition, Nanoseconds deadline);
    static constexpr Nanoseconds kNoDeadline = -1;

    /// Makes waitFor() check its condition again. Any thread may call this.
    void wake();

    /// Disconnects, and prints why the connection stopped unless the user stopped it.
    /// \param result the exit code if the connection did not stop
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

    int connectLasting();
    void takeEvent(const Telvane::BusEvent& event);
    int subscribeLasting(const std::string& channel, const Telvane::TelvaneDataTypeBase& prototype,
                         Telvane::EventClient::Callback callback);
    int reportSubscription(const std::string& channel, const std::string& reason) const;
    void watch();
    Nanoseconds watchTimeout() const;
    void takeSignal();
    void stop(Stop reason);
    void wakeWatchdog() const;
    void disconnect();
    void tryDisconnect();
    void printConnectError() const;
    void printStopReason();
    std::string connectionEndReason() const;
    int stopCode() const;
    void waitOnce(std::unique_lock<std::mutex>& guard, Nanoseconds deadline);

    const Output m_output;
    const Interruption m_interruption;
    std::string m_path;
    double m_wait = 0.0;
    std::mutex m_disconnecting; ///< held while calling Disconnect()

    std::atomic<Stop> m_stop{Stop::None};
    std::atomic<Nanoseconds> m_stopTime{0};
    std::atomic<int> m_signal{0};
    std::atomic<int> m_outputError{0};
    std::atomic<Nanoseconds> m_connectEnd{0}; ///< latest end of the connect in progress, or 0
    std::atomic<Nanoseconds> m_connectedTime{0};
    std::atomic<bool> m_returned{false}; ///< finish() has been called: the main thread does not hang
    std::atomic<bool> m_finished{false};
    std::atomic<bool> m_stopReported{false};

    std::mutex m_lock;
    std::condition_variable m_condition;
    std::uint64_t m_wakes = 0;

    FileDescriptor m_signals;
    FileDescriptor m_watchdogEvent; ///< wakes the watchdog
    FileDescriptor m_stopEvent;     ///< readable after the stop
    std::thread m_watchdog;

    bool m_lasts = false;
    bool m_notices = false;
    std::function<void(bool connected)> m_onChange;
    bool m_connectedOnce = false; ///< for the thread that takes events
    std::atomic<bool> m_attemptFailed{false};
    std::atomic<std::uint64_t> m_losses{0};

    // Last members: their threads use the others.
    Telvane::EventClient m_client;
    std::optional<Telvane::Bus> m_bus; ///< a connection that lasts, in place of the client
    std::vector<Telvane::Subscription> m_subscriptions;
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

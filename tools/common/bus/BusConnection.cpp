// Where a command could block, and what ends it:
// - Connect() to a suspended server: the watchdog exits the process at the end of the waiting time;
// - Publish() after the server died: the client reports the lost connection, and Disconnect() unblocks the call;
// - Publish() to a suspended server: waits as intended; after a signal the watchdog disconnects;
// - Subscribe() when the server dies: returns after a second, or when the watchdog disconnects;
// - reading input that does not arrive: awaitInput() also returns when the connection stops;
// - writing to a full pipe: waits as intended; after a signal the watchdog exits the process.

#include "common/bus/BusConnection.h"

#include "common/bus/SocketProbe.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/cli/Terminal.h"
#include "common/text/PrintableText.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/un.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kConnectLimit = 900 * kMillisecond;    ///< without --wait
constexpr Nanoseconds kDisconnectAfter = 200 * kMillisecond; ///< of a stop, to unblock a send
constexpr Nanoseconds kExitAfter = 700 * kMillisecond;       ///< of a stop
constexpr Nanoseconds kMaxRefusal = kSecond;                 ///< from the connect to the refusal
constexpr std::chrono::milliseconds kEndOfServer{100};
/// A deadline decades away does not fit into a 32-bit time_t or a number of milliseconds: the wait would return at once.
constexpr Nanoseconds kMaxWait = 3600 * kSecond;
constexpr const char* kRefused = "the server refused; its log has the reason, a limit or its policy";
constexpr const char* kSilent = "the server does not respond";
constexpr std::size_t kMaxPath = sizeof(sockaddr_un::sun_path) - 1;

} // namespace

BusConnection::BusConnection(Output output, Interruption interruption)
    : m_output(output),
      m_interruption(interruption),
      m_signals(openSignals()),
      m_watchdogEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_stopEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    m_client.install_OnConnectionLost([this](Telvane::EventClient&) {
        stop(Stop::ConnectionLost);
        tryDisconnect();
    });
    m_watchdog = std::thread([this] { watch(); });
}

BusConnection::~BusConnection()
{
    disconnect();
    m_finished = true;
    wakeWatchdog();
    m_watchdog.join();
}

int BusConnection::connect(const std::string& path, double wait)
{
    m_path = path;
    m_wait = wait;
    if (path.empty() || path.size() > kMaxPath) {
        printError("\"" + path + "\" is not a socket path; it must have 1 to " + std::to_string(kMaxPath) +
                   " characters");
        return kWrongUsage;
    }
    if (m_lasts) {
        return connectLasting();
    }
    const Nanoseconds deadline = monotonicNow() + nanoseconds(wait);
    for (;;) {
        m_connectEnd = std::max(deadline, monotonicNow() + kConnectLimit);
        wakeWatchdog();
        const int result = m_client.Connect(path);
        m_connectEnd = 0;
        m_connectedTime = monotonicNow();
        if (result == 0) {
            return kSuccess;
        }
        const Nanoseconds now = monotonicNow();
        if (now >= deadline) {
            printConnectError();
            return kBusFailure;
        }
        if (!sleepUntil(std::min(deadline, now + 20 * kMillisecond))) {
            return kBusFailure;
        }
    }
}

void BusConnection::printConnectError() const
{
    const std::string attempt = "cannot connect to " + m_path + ": ";
    const int error = probeSocket(m_path);
    switch (error) {
    case ENOENT:
        printError(attempt + "no such socket; start a server with: telvane serve " + m_path);
        break;
    case ECONNREFUSED:
        if (!isSocket(m_path)) {
            printError(attempt + "not a socket");
            break;
        }
        printError(attempt + "no server is running; start one with: telvane serve " + m_path);
        break;
    case EACCES:
        printError(attempt + "permission denied; see --mode of telvane serve");
        break;
    case ENOTSOCK:
    case EPROTOTYPE:
        printError(attempt + "not the socket of an event server");
        break;
    default:
        printError(attempt + (error != 0 ? std::strerror(error) : "the server refused"));
    }
}

int BusConnection::subscribe(const std::string& channel, const Telvane::TelvaneDataTypeBase& prototype,
                             Telvane::EventClient::Callback callback)
{
    if (m_bus) {
        return subscribeLasting(channel, prototype, std::move(callback));
    }
    const int result = m_client.Subscribe(channel, std::move(callback), prototype, nullptr);
    if (result == 0 || stopping()) {
        return kSuccess;
    }
    return reportSubscription(channel, result == -1           ? kRefused
                                       : result == -ETIMEDOUT ? kSilent
                                                              : "result " + std::to_string(result));
}

int BusConnection::reportSubscription(const std::string& channel, const std::string& reason) const
{
    printError("cannot subscribe to \"" + channel + "\" on " + m_path + ": " + reason);
    return kBusFailure;
}

bool BusConnection::publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record)
{
    if (m_bus) {
        const Telvane::Publication publication = m_bus->publish(channel, record);
        if (publication.error && publication.error != Telvane::BusError::NotConnected && !stopping()) {
            printError("cannot publish on \"" + channel + "\": " + publication.message());
        }
        return !publication.error;
    }
    const int result = m_client.Publish(channel, record);
    if (result != 0 && !stopping() && result != -ENOTCONN) {
        printError("cannot publish on \"" + channel + "\": result " + std::to_string(result));
    }
    return result == 0;
}

bool BusConnection::write(std::string_view text)
{
    return writeToTerminal(printable(text, Lines::Keep));
}

bool BusConnection::writeToTerminal(std::string_view text)
{
    const int error = writeFully(STDOUT_FILENO, text);
    if (error != 0) {
        m_outputError = error;
        stop(error == EPIPE ? Stop::OutputClosed : Stop::OutputFailed);
    }
    return error == 0;
}

void BusConnection::stop(Stop reason)
{
    // Set the time first: the watchdog uses it as soon as it sees the reason.
    Nanoseconds unset = 0;
    m_stopTime.compare_exchange_strong(unset, monotonicNow());
    Stop expected = Stop::None;
    if (m_stop.compare_exchange_strong(expected, reason)) {
        eventfd_write(m_stopEvent.get(), 1);
        wakeWatchdog();
        wake();
    }
}

void BusConnection::wake()
{
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        ++m_wakes;
    }
    m_condition.notify_all();
}

void BusConnection::wakeWatchdog() const
{
    eventfd_write(m_watchdogEvent.get(), 1);
}

void BusConnection::waitOnce(std::unique_lock<std::mutex>& guard, Nanoseconds deadline)
{
    if (deadline < 0) {
        m_condition.wait(guard);
    } else {
        using Clock = std::chrono::steady_clock;
        const Nanoseconds until = std::min(deadline, monotonicNow() + kMaxWait);
        m_condition.wait_until(guard, Clock::time_point(std::chrono::nanoseconds(until)));
    }
}

bool BusConnection::awaitInput(int fd, Nanoseconds deadline) const
{
    pollfd watched[] = {{fd, POLLIN, 0}, {m_stopEvent.get(), POLLIN, 0}};
    const auto timeout = [deadline] {
        const Nanoseconds left = std::clamp<Nanoseconds>(deadline - monotonicNow(), 0, kMaxWait);
        return deadline == kNoDeadline ? -1 : static_cast<int>((left + kMillisecond - 1) / kMillisecond);
    };
    while (poll(watched, 2, timeout()) < 0 && errno == EINTR) {
    }
    return !stopping();
}

bool BusConnection::sleepUntil(Nanoseconds deadline)
{
    constexpr Nanoseconds kMaxDelay = 50 * kMillisecond; ///< until a stop is noticed
    const Nanoseconds left = deadline - monotonicNow();
    if (left > kMaxDelay) {
        waitFor([] { return false; }, deadline - kMaxDelay / 2);
    }
    if (left > 0 && !stopping()) {
        const timespec until = {static_cast<time_t>(deadline / kSecond),
                                static_cast<long>(deadline % kSecond)};
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
        }
    }
    return !stopping();
}

void BusConnection::watch()
{
    pollfd watched[] = {
        {m_signals.get(), POLLIN, 0}, {m_watchdogEvent.get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    const nfds_t count = m_output == Output::Data ? 3 : 2;
    while (!m_finished) {
        const Nanoseconds timeout = watchTimeout();
        // A closed reader makes every poll() return, so it is polled for only until the stop.
        const int ready = poll(watched, stopping() ? 2 : count,
                               timeout < 0 ? -1 : static_cast<int>(timeout / kMillisecond) + 1);
        if (ready < 0) {
            continue;
        }
        if ((watched[0].revents & POLLIN) != 0) {
            takeSignal();
        }
        if ((watched[1].revents & POLLIN) != 0) {
            eventfd_t ignored = 0;
            eventfd_read(m_watchdogEvent.get(), &ignored);
        }
        if (count == 3 && (watched[2].revents & (POLLERR | POLLHUP)) != 0) {
            stop(Stop::OutputClosed);
        }
        watched[2].revents = 0;

        const Nanoseconds now = monotonicNow();
        const Nanoseconds connectEnd = m_connectEnd;
        if (connectEnd != 0 && now >= connectEnd && !m_finished) {
            restoreTerminal();
            printError("cannot connect to " + m_path + ": the server does not accept connections");
            _exit(kBusFailure);
        }
        if (stopping() && now - m_stopTime >= kDisconnectAfter) {
            tryDisconnect();
        }
        if (stopping() && now - m_stopTime >= kExitAfter && !m_finished && !m_returned) {
            restoreTerminal();
            printStopReason();
            _exit(stopCode());
        }
    }
}

Nanoseconds BusConnection::watchTimeout() const
{
    const Nanoseconds now = monotonicNow();
    const Nanoseconds connectEnd = m_connectEnd;
    if (stopping()) {
        const Nanoseconds stopped = now - m_stopTime;
        return std::max<Nanoseconds>(0,
                                     (stopped < kDisconnectAfter ? kDisconnectAfter : kExitAfter) - stopped);
    }
    return connectEnd != 0 ? std::clamp<Nanoseconds>(connectEnd - now, 0, kMaxWait) : -1;
}

void BusConnection::takeSignal()
{
    const int signal = readSignal(m_signals.get());
    if (signal == 0) {
        return;
    }
    if (m_signal.exchange(signal) != 0) {
        restoreTerminal();
        _exit(kSignalBase + signal); // second signal: do not wait
    }
    stop(Stop::Interrupted);
}

void BusConnection::disconnect()
{
    const std::lock_guard<std::mutex> guard(m_disconnecting);
    if (m_bus) {
        m_bus->close();
    } else {
        m_client.Disconnect();
    }
}

void BusConnection::tryDisconnect()
{
    // The thread that holds the lock is disconnecting, and may be waiting for this thread.
    const std::unique_lock<std::mutex> guard(m_disconnecting, std::try_to_lock);
    if (guard.owns_lock() && m_bus) {
        m_bus->close();
    } else if (guard.owns_lock()) {
        m_client.Disconnect();
    }
}

int BusConnection::finish(int result)
{
    disconnect();      // the callbacks may use objects that are destroyed before this one
    m_returned = true; // from here on, saving a result may take as long as it needs
    if (!stopping()) {
        return result;
    }
    printStopReason();
    return stopCode();
}

/// A server refuses a client by closing its connection at once, and continues to listen. The sockets of a server that
/// dies are closed one after the other.
std::string BusConnection::connectionEndReason() const
{
    bool refused = m_client.Statistics().received == 0 && m_stopTime - m_connectedTime < kMaxRefusal;
    if (refused) {
        std::this_thread::sleep_for(kEndOfServer);
        refused = isListening(m_path);
    }
    return refused ? "refused this client; see --allow-user, --allow-group and --max-clients of telvane serve"
                   : "has gone away";
}

void BusConnection::printStopReason()
{
    if (m_stopReported.exchange(true)) {
        return;
    }
    switch (m_stop) {
    case Stop::ConnectionLost:
        printError("the server at " + m_path + " " + connectionEndReason());
        break;
    case Stop::OutputFailed:
        printError(std::string("cannot write to standard output: ") + std::strerror(m_outputError));
        break;
    default:
        break;
    }
}

int BusConnection::stopCode() const
{
    switch (m_stop) {
    case Stop::ConnectionLost:
        return kBusFailure;
    case Stop::OutputClosed:
        return kOutputClosed;
    case Stop::OutputFailed:
        return kOutputFailure;
    case Stop::Interrupted:
        return m_interruption == Interruption::ExpectedExit ? static_cast<int>(kSuccess)
                                                            : kSignalBase + m_signal;
    case Stop::None:
        break;
    }
    return kSuccess;
}

} // namespace TelvaneTool

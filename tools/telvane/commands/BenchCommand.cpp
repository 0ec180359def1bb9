// Each publisher and subscriber is a process, as on a real bus. All are forked before this process starts any thread,
// and they exit with it.

#include "bench/BenchReport.h"
#include "bench/BenchWorkers.h"
#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/ProgressBar.h"
#include "common/cli/Signals.h"
#include "common/support/HumanReadable.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kPollInterval = 20 * kMillisecond;
constexpr Nanoseconds kDrainTime = 3 * kSecond; ///< without any record; the missing ones are lost

struct Options
{
    BusOptions bus;
    BenchSettings bench;
    bool self = false;
    bool json = false;
};

/// The processes of a run. The destructor ends them.
class Workers
{
public:
    Workers() = default;
    ~Workers() { endAll(); }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    /// \param quiet suppress errors, because another process prints the same ones
    bool start(const std::function<int()>& work, bool quiet)
    {
        const pid_t parent = getpid();
        const pid_t process = fork();
        if (process < 0) {
            printError(std::string("cannot start a process: ") + std::strerror(errno));
            return false;
        }
        if (process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            // Ctrl-C reaches all processes at once. This one exits on SIGTERM from its parent, without a message.
            signal(SIGINT, SIG_IGN); // NOLINT(bugprone-signal-handler): no handler
            signal(SIGHUP, SIG_IGN); // NOLINT(bugprone-signal-handler): no handler
            if (getppid() != parent) {
                _exit(kBusFailure);
            }
            if (quiet) {
                discardOutput(STDERR_FILENO);
            }
            _exit(work());
        }
        m_processes.push_back(process);
        return true;
    }

    /// \return the exit code of a process that has exited; -1 if none has
    int ended()
    {
        for (pid_t& process : m_processes) {
            int status = 0;
            if (waitpid(process, &status, WNOHANG) == process) {
                process = m_processes.back();
                m_processes.pop_back();
                return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
            }
        }
        return -1;
    }

    bool empty() const { return m_processes.empty(); }

    void endAll()
    {
        for (const pid_t process : m_processes) {
            kill(process, SIGTERM);
        }
        for (const pid_t process : m_processes) {
            while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
        m_processes.clear();
    }

private:
    std::vector<pid_t> m_processes;
};

/// A temporary directory for the socket of --self.
class Directory
{
public:
    Directory()
    {
        const char* const place = std::getenv("TMPDIR");
        m_path = std::string(place != nullptr && *place != '\0' ? place : "/tmp") + "/telvane-bench-XXXXXX";
        m_made = mkdtemp(m_path.data()) != nullptr;
    }
    ~Directory()
    {
        if (m_made) {
            unlink(socket().c_str()); // left if the server was killed
            rmdir(m_path.c_str());
        }
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    bool made() const { return m_made; }
    std::string socket() const { return m_path + "/bus"; }

private:
    std::string m_path;
    bool m_made = false;
};

class Bench
{
public:
    Bench(const BenchSettings& settings, BenchBoard& board)
        : m_settings(settings), m_board(board), m_signals(openSignals())
    {}

    /// \return an exit code
    int run()
    {
        for (int i = 0; i < m_settings.subscribers; ++i) {
            const int result = startWorker([this, i] { return runBenchSubscriber(m_settings, m_board, i); },
                                           m_board.subscribers[static_cast<std::size_t>(i)].ready);
            if (result != kSuccess) {
                return result;
            }
        }
        for (int i = 0; i < m_settings.publishers; ++i) {
            const int result = startWorker([this, i] { return runBenchPublisher(m_settings, m_board, i); },
                                           m_board.publishers[static_cast<std::size_t>(i)].ready);
            if (result != kSuccess) {
                return result;
            }
        }
        const int result = publishAndReceive();
        if (result == kBusFailure) {
            printError("the server at " + m_settings.path + " has gone away");
        }
        return result;
    }

    BenchResult result() const
    {
        BenchResult result;
        result.settings = m_settings;
        result.time = m_time;
        result.published = m_board.published();
        result.received = m_board.received();
        for (const BenchBoard::Subscriber& subscriber : m_board.subscribers) {
            result.latencies.add(subscriber.latencies);
        }
        return result;
    }

private:
    int publishAndReceive()
    {
        m_begin = monotonicNow();
        m_board.phase = BenchBoard::Phase::Publishing;
        int result = await([this] { return publishersDone(); }, true);
        m_time = monotonicNow() - m_begin;
        if (result == kSuccess) {
            result = await([this] { return allReceived(); }, false);
        }
        m_board.phase = BenchBoard::Phase::Ending;
        return result == kSuccess ? await([this] { return m_workers.empty(); }, false) : result;
    }

    /// Starts one worker at a time. The first one prints why it cannot start.
    int startWorker(const std::function<int()>& work, const std::atomic<bool>& ready)
    {
        const bool first = m_started++ == 0;
        if (!m_workers.start(work, !first)) {
            return kOutputFailure;
        }
        const int result = await([&ready] { return ready.load(); }, false);
        if (result == kBusFailure && !first) {
            printError("only " + std::to_string(m_started - 1) + " clients could connect to " +
                       m_settings.path);
        }
        return result;
    }

    /// \return kSuccess when the condition is true; else the exit code of a process, or of a signal
    int await(const std::function<bool()>& condition, bool showProgress)
    {
        for (;;) {
            if (const int number = readSignal(m_signals.get()); number != 0) {
                return kSignalBase + number;
            }
            if (const int code = m_workers.ended(); code > 0) {
                return code;
            }
            if (condition()) {
                m_bar.clear();
                return kSuccess;
            }
            pollfd watched = {m_signals.get(), POLLIN, 0};
            poll(&watched, 1, static_cast<int>(kPollInterval / kMillisecond));
            if (showProgress && m_bar.due()) {
                show();
            }
        }
    }

    void show()
    {
        const double fraction = static_cast<double>(monotonicNow() - m_begin) /
                                static_cast<double>(std::max<Nanoseconds>(m_settings.duration, 1));
        m_bar.draw(fraction, printCount(static_cast<double>(m_board.published())) + " published, " +
                                 printCount(static_cast<double>(m_board.received())) + " received");
    }

    bool publishersDone() const
    {
        const auto end = m_board.publishers.begin() + m_settings.publishers;
        return std::all_of(m_board.publishers.begin(), end,
                           [](const BenchBoard::Publisher& publisher) { return publisher.done.load(); });
    }

    bool allReceived()
    {
        const std::uint64_t received = m_board.received();
        const Nanoseconds now = monotonicNow();
        if (received != m_lastReceived || m_lastArrival == 0) {
            m_lastReceived = received;
            m_lastArrival = now;
        }
        return received >= m_board.published() * static_cast<std::uint64_t>(m_settings.subscribers) ||
               now - m_lastArrival > kDrainTime;
    }

    const BenchSettings& m_settings;
    BenchBoard& m_board;
    const FileDescriptor m_signals;
    ProgressBar m_bar;
    Nanoseconds m_begin = 0;
    Nanoseconds m_time = 0;
    std::uint64_t m_lastReceived = 0;
    Nanoseconds m_lastArrival = 0;
    int m_started = 0;
    Workers m_workers; ///< last member: destroyed first
};

/// \return a channel name that no concurrent run uses
std::string uniqueChannel()
{
    std::string name = "TelvaneBench_";
    for (pid_t rest = getpid(); rest > 0; rest /= 10) {
        name += static_cast<char>('a' + rest % 10);
    }
    return name;
}

int measure(Options& options)
{
    if (options.self != options.bus.path.empty()) {
        printError("give either PATH or --self");
        return kWrongUsage;
    }
    BenchSettings& settings = options.bench;
    settings.path = options.bus.path;
    settings.wait = options.bus.wait;
    settings.channel = uniqueChannel();
    BenchBoard* const board = BenchBoard::make();
    if (board == nullptr) {
        printError("cannot allocate shared memory");
        return kOutputFailure;
    }
    std::unique_ptr<Directory> directory;
    Workers server;
    if (options.self) {
        directory = std::make_unique<Directory>();
        settings.path = directory->socket();
        settings.wait = 10.0;
        if (!directory->made() ||
            !server.start([&settings] { return runBenchServer(settings.path); }, false)) {
            printError("cannot start a server at " + settings.path);
            return kBusFailure;
        }
    }
    Bench bench(settings, *board);
    if (const int result = bench.run(); result != kSuccess) {
        return result;
    }
    const BenchResult result = bench.result();
    return writeResult(options.json ? printBenchJson(result) : printBench(result));
}

} // namespace

void addBenchCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    BenchSettings& bench = options->bench;
    Command command(line, "bench", "Measure throughput, latency and losses between processes");
    addBusOptions(command, options->bus, false);
    command.flag("--self", options->self, "Start a server for the measurement instead of using PATH");
    command.option("--size", bench.size, "Publish payloads of this size, in bytes")
        .within(kMinBenchSize, kMaxBenchSize)
        .showDefault();
    command
        .option("--rate", bench.rate,
                "Publish this many records per second from each publisher; 0 for the maximum")
        .within(0.0, 1e7)
        .showDefault();
    command.option("--publishers", bench.publishers, "Start this many publishing processes")
        .within(1, kMaxWorkers)
        .showDefault();
    command.option("--subscribers", bench.subscribers, "Start this many subscribing processes")
        .within(0, kMaxWorkers)
        .showDefault();
    addDuration(command, "--duration", bench.duration, "Publish for this time").showDefault("5s");
    command.flag("--json", options->json, "Print JSON");
    command.examples("# measure this machine\n"
                     "telvane bench --self\n"
                     "# three subscribers at ten times the rate of a power source, on a running server\n"
                     "telvane bench /tmp/bus --rate 20000 --subscribers 3 --duration 30s\n"
                     "# the median latency, for a script\n"
                     "telvane bench --self --rate 1000 --json | jq .latencyMicroseconds.p50\n");
    command.run([options] { return measure(*options); });
}

} // namespace TelvaneTool

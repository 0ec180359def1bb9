// Requests at a thousand a second while the server's process is killed and started again: every request ends in time,
// and answers come again after each restart. TELVANE_KILLS=100 repeats it often and prints the times.

#include "helpers/BusClientTestSupport.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Telvane::Testing
{

namespace
{

using Clock = std::chrono::steady_clock;

/// A server in a process of its own, which a second process starts and kills. That one is created before the test has
/// threads: a process that is forked beside threads may do very little.
class MortalServer
{
public:
    explicit MortalServer(const std::string& path)
    {
        int commands[2];
        int answers[2];
        if (::pipe2(commands, O_CLOEXEC) != 0 || ::pipe2(answers, O_CLOEXEC) != 0) {
            throwSystemError("creating pipes");
        }
        m_launcher = ::fork();
        if (m_launcher == 0) {
            ::close(commands[1]);
            launch(path, commands[0], answers[1]);
        }
        ::close(commands[0]);
        ::close(answers[1]);
        m_commands = FileDescriptor(commands[1]);
        m_answers = FileDescriptor(answers[0]);
    }
    MortalServer(const MortalServer&) = delete;
    MortalServer& operator=(const MortalServer&) = delete;
    ~MortalServer()
    {
        m_commands.reset();
        ::waitpid(m_launcher, nullptr, 0);
    }

    /// Kills the server, if there is one, and returns when another accepts clients.
    void restart()
    {
        char answer = 0;
        if (::write(m_commands.get(), "r", 1) != 1 || ::read(m_answers.get(), &answer, 1) != 1 ||
            answer != 's') {
            throw std::runtime_error("the server did not start");
        }
    }

private:
    [[noreturn]] static void launch(const std::string& path, int commands, int answers)
    {
        pid_t server = -1;
        char command = 0;
        while (::read(commands, &command, 1) == 1) {
            end(server);
            server = ::fork();
            if (server == 0) {
                ::close(commands);
                serve(path, answers);
            }
        }
        end(server);
        ::_exit(0);
    }

    [[noreturn]] static void serve(const std::string& path, int answers)
    {
        EventServer server;
        const bool started = server.Start(path) == 0;
        if (::write(answers, started ? "s" : "f", 1) != 1 || !started) {
            ::_exit(1);
        }
        ::close(answers);
        for (;;) {
            ::pause();
        }
    }

    static void end(pid_t server)
    {
        if (server > 0) {
            ::kill(server, SIGKILL);
            ::waitpid(server, nullptr, 0);
        }
    }

    pid_t m_launcher = -1;
    FileDescriptor m_commands{-1};
    FileDescriptor m_answers{-1};
};

int kills()
{
    const char* const wanted = std::getenv("TELVANE_KILLS");
    return wanted != nullptr ? std::atoi(wanted) : 3;
}

double milliseconds(Clock::duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

constexpr auto kDeadline = 200ms; ///< of each request
constexpr auto kPeriod = 1ms;

/// What has become of the requests.
struct Requests
{
    std::atomic<long> made{0};
    std::atomic<long> answered{0};
    std::atomic<long> wrong{0};
    Clock::duration longest{}; ///< for the asking thread, and for all after it has ended
};

/// Asks a thousand times a second, and catches up after a request that has taken longer than its period.
void ask(Bus& bus, Requests& requests, const std::atomic<bool>& stop)
{
    Clock::time_point due = Clock::now();
    while (!stop) {
        std::this_thread::sleep_until(due += kPeriod);
        const LogData question = logOf(std::to_string(requests.made));
        LogData answer;
        const Clock::time_point begin = Clock::now();
        const std::error_code error = bus.request("Echo", question, answer, kDeadline);
        requests.longest = std::max(requests.longest, Clock::now() - begin);
        ++requests.made;
        if (!error) {
            ++requests.answered;
            requests.wrong += answer.log == question.log ? 0 : 1;
        }
    }
}

TEST(BusWhoseServerIsKilled, EndsEveryRequestInTimeAndGetsAnswersAgain)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    MortalServer server(path);
    server.restart();

    Bus answering(path); // with the default pauses
    Bus asking(path);
    auto responder =
        answering.respond<LogData, LogData>("Echo", [](const LogData& question) { return question; });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    ASSERT_EQ(asking.waitConnected(kTimeout), std::error_code());
    Requests requests;
    std::atomic<bool> stop{false};
    std::vector<double> times;
    const Clock::time_point begin = Clock::now();
    {
        JoiningThreads threads;
        threads.start([&] { ask(asking, requests, stop); });
        for (int i = 0; i < kills(); ++i) {
            const long before = requests.answered;
            EXPECT_TRUE(eventually([&] { return requests.answered >= before + 100; })) << i;
            server.restart();
            const Clock::time_point restarted = Clock::now();
            const long after = requests.answered;
            EXPECT_TRUE(eventually([&] { return requests.answered > after; })) << i;
            times.push_back(milliseconds(Clock::now() - restarted));
        }
        stop = true;
    }
    EXPECT_EQ(requests.wrong, 0);
    EXPECT_GT(requests.answered, 100 * kills());
    EXPECT_LT(requests.longest, kDeadline + kTimeout);
    if (std::getenv("TELVANE_KILLS") != nullptr) {
        const double seconds = milliseconds(Clock::now() - begin) / 1000.0;
        std::printf(
            "%d kills: %ld requests (%.0f/s), %ld answered; longest request %.1f ms of %d ms; first answer "
            "after a restart: median %.0f ms, longest %.0f ms\n",
            kills(), requests.made.load(), static_cast<double>(requests.made) / seconds,
            requests.answered.load(), milliseconds(requests.longest), static_cast<int>(kDeadline.count()),
            median(times), *std::max_element(times.begin(), times.end()));
    }
}

} // namespace

} // namespace Telvane::Testing

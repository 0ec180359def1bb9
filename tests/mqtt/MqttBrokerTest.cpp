// The link to a real broker, which the tests start, with clocks that the tests set.

#include "telvane-mqtt/broker/BrokerLink.h"

#include "mqtt/Eventually.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

std::atomic<std::int64_t> wallClockJump{0}; ///< seconds

} // namespace

/// Replaces that of the C library in this program. The monotonic clock is as it is.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    timespec kernel = {};
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, &kernel));
    if (clock == CLOCK_REALTIME) {
        kernel.tv_sec += static_cast<time_t>(wallClockJump.load());
    }
    *time = kernel;
    return result;
}

namespace TelvaneTool::Mqtt
{
namespace
{

constexpr Nanoseconds kHour = 3600 * kSecond;
constexpr std::size_t kMessageLimit = 5000; ///< bytes; the broker refuses larger ones

int freePort()
{
    const FileDescriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(probe.get(), reinterpret_cast<sockaddr*>(&address), length);
    getsockname(probe.get(), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

/// A mosquitto on a free port of this machine.
class Broker
{
public:
    explicit Broker(const Telvane::Testing::TemporaryDirectory& directory)
    {
        // Another process can take a free port before mosquitto does, which then ends.
        for (int attempt = 0; attempt < 20 && !start(directory); ++attempt) {
        }
    }
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;
    ~Broker() { stop(); }

    int port() const { return m_port; }
    void pause() const { kill(m_process, SIGSTOP); }
    void resume() const { kill(m_process, SIGCONT); }

private:
    /// \return whether the broker serves a port
    bool start(const Telvane::Testing::TemporaryDirectory& directory)
    {
        m_port = freePort();
        const std::string path = directory.path("broker.conf");
        const std::string log = directory.path("broker.log");
        std::filesystem::remove(log);
        std::ofstream(path) << "user root\nlistener " << m_port << " 127.0.0.1\nallow_anonymous true\n"
                            << "max_queued_messages 100000\nmessage_size_limit " << kMessageLimit
                            << "\nlog_dest file " << log << "\n";
        const char* const other = std::getenv("TELVANE_MOSQUITTO");
        std::string program = other != nullptr ? other : "/usr/sbin/mosquitto";
        std::string option = "-c";
        std::string argument = path;
        char* const arguments[] = {program.data(), option.data(), argument.data(), nullptr};
        if (posix_spawnp(&m_process, program.c_str(), nullptr, nullptr, arguments, environ) != 0) {
            m_process = -1;
            return false;
        }
        bool ended = false;
        const bool runs = eventually([&] {
            ended = waitpid(m_process, nullptr, WNOHANG) != 0;
            std::stringstream text;
            text << std::ifstream(log).rdbuf();
            return ended || text.str().find(" running\n") != std::string::npos;
        });
        if (ended) {
            m_process = -1;
        } else if (!runs) {
            stop();
        }
        return m_process > 0;
    }

    void stop()
    {
        if (m_process > 0) {
            kill(m_process, SIGKILL);
            waitpid(m_process, nullptr, 0);
            m_process = -1;
        }
    }

    int m_port = 0;
    pid_t m_process = -1;
};

/// Reads N of a module on a thread of its own.
class Reader : MqttClient::Events
{
public:
    explicit Reader(const BrokerSettings& broker, const char* clientId = "reader") : m_settings(broker)
    {
        m_settings.clientId = clientId;
        m_thread = std::thread([this] { run(); });
    }
    ~Reader() override
    {
        m_stopping = true;
        m_thread.join();
    }

    bool isReading() const { return m_reading; }
    std::vector<std::string> payloads() const
    {
        const std::lock_guard lock(m_mutex);
        return m_payloads;
    }

private:
    void run()
    {
        while (!m_stopping) {
            MqttClient client(m_settings, true, *this);
            Publication will;
            will.topic = "reader/will";
            m_connected = false;
            if (!client.connect(will).empty()) {
                poll(nullptr, 0, 50);
                continue;
            }
            bool subscribed = false;
            bool continues = true;
            while (!m_stopping && continues) {
                pollfd socket = client.awaited();
                poll(&socket, 1, 50);
                continues = client.handle(socket.revents);
                if (m_connected && !subscribed) {
                    client.subscribe("telvane/m1/N/LogData");
                    subscribed = true;
                }
            }
        }
    }
    void connected(const BrokerLimits& /*limits*/) override { m_connected = true; }
    void acknowledged(int /*id*/, int /*reason*/) override {}
    void subscribed(int /*id*/, bool granted) override { m_reading = granted; }
    void received(IncomingMessage message) override
    {
        const std::lock_guard lock(m_mutex);
        m_payloads.push_back(std::move(message.payload));
    }

    BrokerSettings m_settings;
    bool m_connected = false;
    std::atomic<bool> m_reading{false};
    std::atomic<bool> m_stopping{false};
    mutable std::mutex m_mutex;
    std::vector<std::string> m_payloads;
    std::thread m_thread;
};

double numberOf(const std::string& payload, const char* key)
{
    std::string error;
    const JsonTree tree = parseJson(payload, error);
    const cJSON* const item = cJSON_GetObjectItemCaseSensitive(tree.get(), key);
    return cJSON_IsNumber(item) != 0 ? item->valuedouble : 0;
}

class MqttBroker : public testing::Test
{
protected:
    MqttBroker()
    {
        broker.emplace(directory);
        Settings options;
        options.bus = "unused";
        options.module = "m1";
        options.broker = "mqtt://127.0.0.1:" + std::to_string(broker->port());
        options.out = {"LogData"};
        options.firstPause = "50ms";
        options.drainRate = 0;
        EXPECT_EQ(checkSettings(options, settings), "");
        reader.emplace(settings.broker);
        EXPECT_TRUE(eventually([this] { return reader->isReading(); }));
    }
    ~MqttBroker() override
    {
        wallClockJump = 0;
        reader.reset();
        broker.reset();
    }

    static OutgoingMessage message()
    {
        OutgoingMessage result;
        result.channel = "LogData";
        result.topic = "telvane/m1/N/LogData";
        result.className = "LogData";
        result.body = R"("record":{"log":"x"})";
        result.time = wallTimeNow();
        return result;
    }

    static OutgoingMessage retained(std::size_t size = 1)
    {
        OutgoingMessage result = message();
        result.body = "\"record\":{\"log\":\"" + std::string(size, 'x') + "\"}";
        result.retain = true;
        return result;
    }

    /// Pushes a record that the broker refuses, and lets an older one follow it. Its number is 7.
    template <class Between>
    void refuseNewest(OutgoingQueue& queue, Between between)
    {
        const Nanoseconds now = monotonicNow();
        queue.push(retained(2 * kMessageLimit), now);
        ASSERT_TRUE(eventually([&] { return between(); }));
        OutgoingMessage older = retained();
        older.number = 7;
        older.queued = now - 1;
        queue.putBack({older}, now);
        OutgoingMessage other = message(); // the queue wakes the link only for new ones
        other.topic = "telvane/m1/N/Other";
        queue.push(other, now);
        ASSERT_TRUE(eventually([&] { return queue.waiting() == 0; }));
    }

    /// \return the number of the record that a reader gets first
    double retainedNumber()
    {
        const Reader late(settings.broker, "late");
        return eventually([&] { return !late.payloads().empty(); }) ? numberOf(late.payloads().front(), "n")
                                                                    : 0;
    }

    Telvane::Testing::TemporaryDirectory directory;
    std::optional<Broker> broker;
    BridgeSettings settings;
    std::optional<Reader> reader;
};

// A day without broker, one message a minute: what is younger than twelve hours arrives, in order, and the others are
// reported.
TEST_F(MqttBroker, GetsWhatADayWithoutItHasLeft)
{
    constexpr Nanoseconds kInterval = 60 * kSecond;
    constexpr Nanoseconds kAge = 12 * kHour;
    constexpr Nanoseconds kPause =
        kHour; // before and after the limit, so that nothing gets too old in the test
    constexpr std::size_t kOld = 11 * 60;
    constexpr std::size_t kYoung = 11 * 60;
    constexpr std::size_t kPushed = kOld + kYoung;
    Spool spool(directory.path("spool"), {std::size_t{64} << 20, kAge});
    const Session before = startSession();
    std::uint64_t session = before.number;
    ASSERT_EQ(spool.open(machineClocks(), session), "");
    OutgoingQueue queue({200, 1'000'000, kAge}, &spool);
    const Nanoseconds end = monotonicNow();
    for (Nanoseconds age = 24 * kHour; age > 0; age -= kInterval) {
        if (age <= kAge - kPause || age > kAge + kPause) {
            queue.push(message(), end - age);
        }
        if (age % kHour == 0) {
            queue.commit(end - age);
            ASSERT_LE(queue.waitingBytes(), 200'000U);
        }
    }
    queue.commit(end);
    EXPECT_EQ(queue.waiting(), kYoung);

    BrokerLink link(settings, before, queue, [](TopicKind, const std::string&, const IncomingMessage&) {});
    link.start();
    EXPECT_TRUE(eventually([&] {
        queue.commit(monotonicNow());
        const auto arrived = reader->payloads();
        return queue.waiting() == 0 && !arrived.empty() &&
               numberOf(arrived.back(), "n") == static_cast<double>(kPushed);
    }));
    link.stop(kSecond);
    const auto arrived = reader->payloads();
    EXPECT_EQ(arrived.size(), kYoung);
    auto last = static_cast<double>(kPushed - kYoung);
    double reported = 0;
    for (const std::string& payload : arrived) {
        EXPECT_EQ(numberOf(payload, "n"), ++last);
        reported += numberOf(payload, "dropped");
    }
    EXPECT_EQ(reported, static_cast<double>(kPushed - kYoung));
}

TEST_F(MqttBroker, GetsEverythingWhileTheClockOfTheMachineJumps)
{
    constexpr std::int64_t kTenYears = 10 * 365 * 24 * 3600LL;
    constexpr int kMessages = 400;
    const Session session = startSession();
    OutgoingQueue queue({1000, 1'000'000, kHour});
    BrokerLink link(settings, session, queue, [](TopicKind, const std::string&, const IncomingMessage&) {});
    link.start();
    ASSERT_TRUE(eventually([&] { return link.counts().connected.load(); }));
    const std::int64_t jumps[] = {0, kTenYears, -kTenYears, -3600, 60};
    for (int i = 0; i < kMessages; ++i) {
        wallClockJump = jumps[(i / 20) % 5];
        queue.push(message(), monotonicNow());
        poll(nullptr, 0, 1);
    }
    ASSERT_TRUE(eventually([&] { return reader->payloads().size() >= kMessages; }));
    EXPECT_EQ(link.counts().connections, 1U);
    EXPECT_EQ(link.counts().failures, 0U);
    const auto arrived = reader->payloads();
    std::set<std::string> years;
    for (int i = 0; i < kMessages; ++i) {
        EXPECT_EQ(numberOf(arrived[static_cast<std::size_t>(i)], "n"), i + 1);
        const std::string& payload = arrived[static_cast<std::size_t>(i)];
        years.insert(payload.substr(payload.find("\"time\":\"") + 8, 4));
    }
    EXPECT_GE(years.size(), 3U) << "the clock of the test has jumped";
    EXPECT_EQ(queue.counts()["LogData"].dropped[static_cast<int>(DropReason::TooOld)], 0U);
    wallClockJump = 0;
    link.stop(kSecond);
}

// Messages that come alone are sent by the thread that pushes them, those of a burst by the thread of the link.
TEST_F(MqttBroker, GetsLoneMessagesAndBurstsOfTwoThreadsInOrder)
{
    constexpr int kMessages = 600;
    OutgoingQueue queue({10'000, 10'000'000, kHour});
    const Session session = startSession();
    BrokerLink link(settings, session, queue, [](TopicKind, const std::string&, const IncomingMessage&) {});
    link.start();
    ASSERT_TRUE(eventually([&] { return link.counts().connected.load(); }));
    const auto push = [&](const std::string& channel) {
        for (int i = 0; i < kMessages; ++i) {
            OutgoingMessage next = message();
            next.channel = channel;
            next.className = channel;
            next.qos = i / 100 % 2;
            queue.push(std::move(next), monotonicNow());
            if (i % 20 < 10) {
                poll(nullptr, 0, 1);
            }
        }
    };
    std::thread other(push, "Other");
    push("LogData");
    other.join();
    ASSERT_TRUE(eventually([&] { return reader->payloads().size() >= 2 * kMessages; }));
    std::map<bool, double> last;
    for (const std::string& payload : reader->payloads()) {
        const bool isOther = payload.find("\"class\":\"Other\"") != std::string::npos;
        EXPECT_EQ(numberOf(payload, "n"), ++last[isOther]);
    }
    EXPECT_EQ(last[false], kMessages);
    EXPECT_EQ(last[true], kMessages);
    // The thread that pushes does send.
    EXPECT_TRUE(eventually([&] {
        const std::uint64_t before = queue.counts()["LogData"].sent;
        OutgoingMessage next = message();
        next.qos = 0;
        queue.push(std::move(next), monotonicNow());
        return queue.counts()["LogData"].sent > before;
    }));
    EXPECT_EQ(link.counts().connections, 1U);
    link.stop(kSecond);
}

TEST_F(MqttBroker, RetainsAnOlderRecordIfTheNewestWasRefused)
{
    OutgoingQueue queue({1000, 1'000'000, kHour});
    const Session session = startSession();
    BrokerLink link(settings, session, queue, [](TopicKind, const std::string&, const IncomingMessage&) {});
    link.start();
    ASSERT_TRUE(eventually([&] { return link.counts().connected.load(); }));
    refuseNewest(
        queue, [&] { return queue.counts()["LogData"].dropped[static_cast<int>(DropReason::Refused)] == 1; });
    EXPECT_EQ(retainedNumber(), 7);
    link.stop(kTimeout);
}

TEST_F(MqttBroker, RetainsAnOlderRecordThatWasSentBeforeTheNewestWasRefused)
{
    OutgoingQueue queue({1000, 1'000'000, kHour});
    const Session session = startSession();
    BrokerLink link(settings, session, queue, [](TopicKind, const std::string&, const IncomingMessage&) {});
    link.start();
    ASSERT_TRUE(eventually([&] { return link.counts().connected.load(); }));
    broker->pause();
    refuseNewest(queue, [&] { return queue.waiting() == 0; });
    broker->resume();
    ASSERT_TRUE(eventually([&] { return queue.counts()["LogData"].sent == 2; }));
    EXPECT_EQ(retainedNumber(), 7);
    link.stop(kTimeout);
}

} // namespace
} // namespace TelvaneTool::Mqtt

// The whole way from the bus to the pages, with pages that read and one that does not.

#include "helpers/ProcessTestSupport.h"
#include "telvane-web/live/ShortTurns.h"
#include "web/WebServerFixture.h"

#include <Telvane/DeviceRecords.h>
#include <Telvane/EventServer.h>

#include <gmock/gmock.h>

#include <sched.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <thread>

namespace TelvaneTool
{
namespace
{

using testing::HasSubstr;

constexpr const char* kStreamRequest = "GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n";

/// A server of the bus that starts before the web server and ends after it.
struct BusServer
{
    BusServer()
    {
        // A loaded machine may stop the web server for longer than the kernel's default buffer holds.
        server.SetSubscriberSendBuffer(1024 * 1024);
        EXPECT_EQ(server.Start(path), 0);
    }
    ~BusServer() { EXPECT_EQ(server.Stop(), 0); }
    BusServer(const BusServer&) = delete;
    BusServer& operator=(const BusServer&) = delete;

    Telvane::Testing::TemporaryDirectory directory;
    std::string path = directory.path("bus");
    Telvane::EventServer server;
};

/// \return whether a thread of this process has asked the kernel for short turns
bool hasThreadWithShortTurns()
{
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        struct
        {
            std::uint32_t size, policy;
            std::uint64_t flags;
            std::int32_t nice;
            std::uint32_t priority;
            std::uint64_t runtime, deadline, period;
        } attributes = {};
        const int thread = std::stoi(task.path().filename());
        if (syscall(SYS_sched_getattr, thread, &attributes, sizeof attributes, 0U) == 0 &&
            attributes.runtime == kShortTurn) {
            return true;
        }
    }
    return false;
}

class WebStream : private BusServer, public Testing::WebServerFixture
{
protected:
    WebStream() : WebServerFixture(BusServer::path) {}

    Telvane::EventServer& busServer() { return server; }
    const std::string& busPath() const { return path; }
    /// Waits until the web server gets whatever is published. It is connected before it has subscribed to all of it.
    bool awaitSubscriptions()
    {
        return pump([this] {
            std::size_t subscribed = 0;
            for (const Telvane::EventServerChannelStatus& channel : server.Channels()) {
                const bool used = channel.name == "WeldTriggerStart" || channel.name == "WeldTraceData" ||
                                  channel.name == "WeldTriggerEnd" || channel.name == "TelvaneError";
                subscribed += used && channel.subscribers == 1 ? 1U : 0U;
            }
            return subscribed == 4 && m_bus.connected();
        });
    }
    std::uint64_t samplesSeen()
    {
        return m_bus.withLive([](const LiveWeld& live) { return live.samples(); });
    }
    /// Like pump(), with the real time.
    template <class Condition>
    bool pumpInRealTime(Condition condition)
    {
        return pump([&] {
            m_now = std::max(m_now, monotonicNow());
            return condition();
        });
    }
};

// Where the server has the usual buffer, the bus holds the samples of a few milliseconds, and drops others.
TEST_F(WebStream, TakesSamplesWhileAPageIsWritten)
{
    constexpr std::uint64_t kSamples = 300;
    ASSERT_TRUE(awaitSubscriptions());
    Telvane::Bus source(busPath());
    ASSERT_FALSE(source.waitConnected(std::chrono::seconds(60)));
    Telvane::WeldTraceData sample;
    const auto takesAll = [&](const LiveWeld& live) {
        const std::uint64_t before = m_bus.statistics().received;
        for (std::uint64_t i = 0; i < kSamples; ++i) {
            sample.sequence = static_cast<int>(i);
            EXPECT_EQ(source.publish(sample).error, std::error_code());
        }
        const Nanoseconds end = monotonicNow() + 60 * kSecond;
        while (m_bus.statistics().received < before + kSamples && monotonicNow() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(live.samples(), 0U) << "they change while they are written";
        return m_bus.statistics().received >= before + kSamples;
    };
    EXPECT_TRUE(m_bus.withLive(takesAll));
    EXPECT_TRUE(pump([this] { return samplesSeen() == kSamples; }));
}

// In long turns the thread would get a core only when the bus has dropped samples, if all cores are busy.
TEST_F(WebStream, TakesSamplesInShortTurns)
{
    utsname kernel = {};
    ASSERT_EQ(uname(&kernel), 0);
    int major = 0;
    int minor = 0;
    ASSERT_EQ(std::sscanf(kernel.release, "%d.%d", &major, &minor), 2);
    if (std::pair(major, minor) < std::pair(6, 12)) {
        GTEST_SKIP() << "Linux " << kernel.release << " has turns of one length";
    }
    if (sched_getscheduler(0) != SCHED_OTHER) {
        GTEST_SKIP() << "this process was given another policy";
    }
    ASSERT_TRUE(awaitSubscriptions());
    EXPECT_FALSE(hasThreadWithShortTurns());
    Telvane::Bus source(busPath());
    ASSERT_FALSE(source.waitConnected(std::chrono::seconds(60)));
    EXPECT_EQ(source.publish(Telvane::WeldTraceData()).error, std::error_code());
    ASSERT_TRUE(pump([this] { return samplesSeen() == 1; }));
    EXPECT_TRUE(hasThreadWithShortTurns());
}

TEST_F(WebStream, ShowsThatTheBusIsConnected)
{
    ASSERT_TRUE(pump([this] { return m_bus.connected(); }));
    Client client(*this);
    client.send(kStreamRequest);
    EXPECT_TRUE(client.await(R"("bus":{"connected":true)"));
}

TEST_F(WebStream, ReportsTheChannelsOfTheBusAndTheirRecords)
{
    ASSERT_TRUE(pump([this] { return m_bus.connected(); }));
    EXPECT_THAT(bodyOf(get("/api/bus")), HasSubstr(R"("known":false)"))
        << "only telvane serve reports its status";
    EXPECT_THAT(statusOf(get("/api/record?channel=WeldTraceData")), HasSubstr("404"));
}

TEST_F(WebStream, FiftyPagesWithOneStoppedCostTheBusNothing)
{
    ASSERT_TRUE(awaitSubscriptions());
    std::deque<Client> pages;
    for (int i = 0; i < 50; ++i) {
        // The first one never reads again.
        pages.emplace_back(*this, i == 0 ? 4096 : 0).send(kStreamRequest);
        ASSERT_TRUE(pages.back().await("event: state")) << i;
    }

    constexpr int kSamples = 4000;
    constexpr int kAhead = 300; // so that a slow machine makes the test slower, and not fail
    std::atomic<std::uint64_t> seen{0};
    std::atomic<bool> given{false};
    std::thread publisher([&] {
        Telvane::Bus bus(busPath());
        bus.waitConnected(std::chrono::seconds(30));
        Telvane::WeldTriggerStart start;
        start.samplePeriodus = 500;
        bus.publish(start);
        Telvane::WeldTraceData sample;
        for (int i = 0; i < kSamples && !given; ++i) {
            while (static_cast<std::uint64_t>(i) > seen + kAhead && !given) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            sample.sequence = i;
            sample.data.amps = 100.0 + i % 97;
            bus.publish(sample);
        }
        bus.publish(Telvane::WeldTriggerEnd());
    });
    const auto ended = [&] {
        return m_bus.withLive([](const LiveWeld& live) { return live.state() == LiveWeld::State::Ended; });
    };
    EXPECT_TRUE(pumpInRealTime([&] {
        seen = samplesSeen();
        for (std::size_t i = 1; i < pages.size(); ++i) {
            pages[i].read();
        }
        return ended();
    }));
    given = true;
    publisher.join();
    EXPECT_EQ(samplesSeen(), static_cast<std::uint64_t>(kSamples));
    EXPECT_EQ(busServer().Statistics().relaysFailed, 0U);
    for (std::size_t i = 1; i < pages.size(); ++i) {
        EXPECT_TRUE(pages[i].await(R"("state":"ended")")) << i;
    }
}

TEST_F(WebStream, DisconnectsAPageThatNeverReadsAndKeepsTheOthers)
{
    ASSERT_TRUE(awaitSubscriptions());
    Client stopped(*this, 2048);
    stopped.send(kStreamRequest);
    ASSERT_TRUE(stopped.await("event: state"));
    Client reading(*this);
    reading.send(kStreamRequest);
    ASSERT_TRUE(reading.await("event: state"));

    // Errors fill the socket of the page that does not read, faster than samples would.
    Telvane::Bus publisher(busPath());
    ASSERT_FALSE(publisher.waitConnected(std::chrono::seconds(30)));
    Telvane::TelvaneError error;
    int published = 0;
    std::size_t searched = 0;
    EXPECT_TRUE(pump([&] {
        reading.read();
        // No time passes before the page that reads has the last error, however busy the machine is.
        if (published == 0 || reading.text().find(error.Message, searched) != std::string::npos) {
            searched = reading.text().size();
            error.Message = std::string(1900, 'x') + " " + std::to_string(++published) + ".";
            publisher.publish(error);
            m_now += kSecond / 10;
        }
        return m_server.statistics().slowStreams == 1;
    }));
    EXPECT_EQ(reading.text().find("thinned"), std::string::npos) << "the page that reads is not thinned out";
    EXPECT_TRUE(pump([&] { return m_server.statistics().openStreams == 1; }));
    EXPECT_TRUE(stopped.awaitClose());
    EXPECT_EQ(busServer().Statistics().relaysFailed, 0U);
}

} // namespace
} // namespace TelvaneTool

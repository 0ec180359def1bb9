#include "recording/MissTracker.h"

#include "common/bus/DecodedRecord.h"
#include "common/bus/RecordBuilder.h"
#include "tool/fixtures/ToolBusFixture.h"

#include <limits>
#include <map>
#include <mutex>
#include <unistd.h>
#include <vector>

namespace TelvaneTool
{
namespace
{

struct MissTrackerTest : ToolBusFixture
{
    std::mutex m_gate; ///< keeps the receiver thread from reading
};

TEST_F(MissTrackerTest, ReportsMessagesThatTheServerCouldNotDeliver)
{
    std::map<std::string, std::uint64_t> missed;
    std::mutex lock;
    MissTracker tracker(
        m_connection, [&](const std::string& channel, std::uint64_t count, Nanoseconds from, Nanoseconds to) {
            EXPECT_LE(from, to);
            const std::lock_guard<std::mutex> guard(lock);
            missed[channel] += count;
        });
    ASSERT_EQ(tracker.start(), kSuccess);
    tracker.subscribes("LogData");
    std::uint64_t received = 0;
    ASSERT_EQ(m_connection.subscribe("LogData", DecodedRecord(nullptr),
                                     [&](void*, Telvane::TelvaneDataTypeBase*, int sequence, void*) {
                                         const std::lock_guard<std::mutex> wait(m_gate);
                                         tracker.arrived("LogData", sequence);
                                         ++received;
                                     }),
              kSuccess);
    std::unique_lock<std::mutex> closed(m_gate);
    constexpr std::uint64_t kCount = 2000;
    RawRecord record;
    for (std::uint64_t i = 0; i < kCount; ++i) {
        ASSERT_EQ(m_other.Publish("LogData", record), 0);
    }
    const auto missedByServer = [this] {
        std::uint64_t count = 0;
        for (const auto& channel : m_server.Channels()) {
            count += channel.name == "LogData" ? channel.missed : 0;
        }
        return count;
    };
    const auto published = [this] {
        std::uint64_t count = 0;
        for (const auto& channel : m_server.Channels()) {
            count += channel.name == "LogData" ? channel.publications : 0;
        }
        return count;
    };
    const Nanoseconds deadline = monotonicNow() + kTestTimeout;
    while (published() < kCount && monotonicNow() < deadline) {
        m_connection.sleepUntil(monotonicNow() + kMillisecond);
    }
    closed.unlock();
    const auto complete = [&] {
        const std::lock_guard<std::mutex> guard(lock);
        return missed["LogData"] == missedByServer() && missedByServer() != 0;
    };
    while (!complete() && monotonicNow() < deadline) {
        tracker.finish();
    }
    EXPECT_TRUE(complete());
    EXPECT_FALSE(tracker.uncertain());
    m_connection.finish(kSuccess);
    EXPECT_EQ(received + missed["LogData"], kCount);
}

TEST_F(MissTrackerTest, ReportsNothingWithoutMisses)
{
    bool called = false;
    MissTracker tracker(m_connection, [&called](const std::string&, std::uint64_t, Nanoseconds, Nanoseconds) {
        called = true;
    });
    ASSERT_EQ(tracker.start(), kSuccess);
    tracker.follow();
    tracker.finish();
    m_connection.finish(kSuccess); // before the tracker is destroyed
    EXPECT_FALSE(called);
    EXPECT_FALSE(tracker.uncertain());
}

/// A tracker that is not subscribed to the answers of the server. The test gives them.
class MissTrackerAnswers : public ToolBusFixture
{
protected:
    /// \return a client that has missed messages of a channel
    static ClientStatus client(pid_t process, std::uint64_t missed)
    {
        ClientStatus client;
        client.descriptor = static_cast<int>(process);
        client.process = process;
        client.subscriptions = {{"LogData", 0, 100, missed}, {kClientsStatus, 0, 1, 0}};
        return client;
    }

    MissTrackerAnswers() { m_tracker.subscribes("LogData"); }

    void answer(const std::vector<ClientStatus>& clients, int sequence)
    {
        for (const std::string& payload : encodeStatus(clients)) {
            m_tracker.takeAnswer(payload, sequence);
        }
    }

    std::vector<std::uint64_t> m_reported;
    MissTracker m_tracker{m_connection,
                          [this](const std::string&, std::uint64_t count, Nanoseconds, Nanoseconds) {
                              m_reported.push_back(count);
                          }};
};

TEST_F(MissTrackerAnswers, AreReportedAsDifferences)
{
    m_tracker.arrived("LogData", 1);
    answer({client(getpid(), 3)}, 2);
    answer({client(getpid(), 3)}, 3);
    answer({client(getpid(), 5)}, 4);
    EXPECT_EQ(m_reported, (std::vector<std::uint64_t>{3, 2}));
}

TEST_F(MissTrackerAnswers, AreBelievedOnlyOfChannelsThatAreSubscribedTo)
{
    m_tracker.subscribes("Silent"); // all of its messages were missed
    ClientStatus stranger = client(getpid(), 3);
    stranger.subscriptions.push_back({"Silent", 0, 0, 4});
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        stranger.subscriptions.push_back({std::string("Stranger") + letter, 0, 0, 1000});
    }
    answer({stranger}, 1);
    EXPECT_EQ(m_reported, (std::vector<std::uint64_t>{3, 4}));
}

TEST_F(MissTrackerAnswers, CountFromZeroForANewServer)
{
    m_tracker.arrived("LogData", 1);
    answer({client(getpid(), 3)}, 2);
    m_tracker.restart();
    answer({client(getpid(), 2)}, 1);
    EXPECT_EQ(m_reported, (std::vector<std::uint64_t>{3, 2}));
}

TEST_F(MissTrackerAnswers, AreOfTheOnlyClientWithTheseSubscriptionsIfNoneHasTheProcessId)
{
    m_tracker.arrived("LogData", 1);
    answer({client(1, 3), client(2, 4)}, 2);
    EXPECT_TRUE(m_reported.empty()) << "ambiguous";
    answer({client(1, 3)}, 3);
    EXPECT_EQ(m_reported, std::vector<std::uint64_t>{3});
}

TEST_F(MissTrackerAnswers, ExplainOneGapForEachRequest)
{
    m_tracker.arrived("LogData", 1);
    m_tracker.arrived("LogData", 3);
    EXPECT_TRUE(m_tracker.uncertain());
    m_tracker.follow(); // the request takes number 4
    answer({client(getpid(), 0)}, 5);
    EXPECT_FALSE(m_tracker.uncertain());
    m_tracker.arrived("LogData", 7);
    EXPECT_TRUE(m_tracker.uncertain());
}

TEST_F(MissTrackerTest, TakesAnySequenceNumber)
{
    MissTracker tracker(m_connection, [](const std::string&, std::uint64_t, Nanoseconds, Nanoseconds) {});
    tracker.arrived("LogData", 65535);
    tracker.arrived("LogData", 0);
    EXPECT_FALSE(tracker.uncertain());
    tracker.arrived("LogData", std::numeric_limits<int>::max());
    EXPECT_TRUE(tracker.uncertain());
    tracker.arrived("LogData", std::numeric_limits<int>::min());
    tracker.arrived("LogData", 5);
    EXPECT_TRUE(tracker.uncertain());
}

} // namespace
} // namespace TelvaneTool

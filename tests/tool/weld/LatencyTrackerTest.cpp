#include "weld/LatencyTracker.h"

#include "common/bus/BusConnection.h"
#include "helpers/ToolTestFiles.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

class LatencyTrackerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_publisher.open(m_directory.path("ledger")));
        ASSERT_TRUE(m_listener.open(m_directory.path("ledger")));
    }

    TestDirectory m_directory;
    LatencyTracker m_publisher;
    LatencyTracker m_listener;
};

TEST_F(LatencyTrackerTest, StartsEmpty)
{
    EXPECT_EQ(m_listener.published(), 0U);
    EXPECT_FALSE(m_listener.finished());
    EXPECT_FALSE(m_publisher.hasListener());
    EXPECT_EQ(m_listener.published(1), 0);
}

TEST_F(LatencyTrackerTest, ReportsWhatWasPublishedWhen)
{
    const Nanoseconds before = monotonicNow();
    m_publisher.note(1);
    m_publisher.note(2);
    EXPECT_EQ(m_listener.published(), 2U);
    EXPECT_GE(m_listener.published(1), before);
    EXPECT_GE(m_listener.published(2), m_listener.published(1));
    EXPECT_LE(m_listener.published(2), monotonicNow());
}

TEST_F(LatencyTrackerTest, ForgetsOldRecords)
{
    for (int serial = 1; serial <= 70'000; ++serial) {
        m_publisher.note(serial);
    }
    EXPECT_EQ(m_listener.published(1), 0);
    EXPECT_NE(m_listener.published(70'000), 0);
    EXPECT_EQ(m_listener.published(), 70'000U);
}

TEST_F(LatencyTrackerTest, ShowsEachSideTheOther)
{
    m_listener.listen();
    EXPECT_TRUE(m_publisher.hasListener());
    m_publisher.finish();
    EXPECT_TRUE(m_listener.finished());
}

TEST(LatencyTracker, ReportsAFileThatCannotBeCreated)
{
    const TestDirectory directory;
    LatencyTracker ledger;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ledger.open(directory.path("missing/ledger")));
    EXPECT_FALSE(ledger.isOpen());
    EXPECT_NE(testing::internal::GetCapturedStderr().find("as a ledger: No such file or directory"),
              std::string::npos);
}

} // namespace
} // namespace TelvaneTool

#include "weld/LatencyTracker.h"

#include "helpers/TestFiles.h"

#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using Telvane::Testing::contentOf;
using Telvane::Testing::TemporaryDirectory;
using Role = LatencyTracker::Role;

class LatencyTrackerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_publisher.open(m_directory.path("ledger"), Role::Publisher));
        ASSERT_TRUE(m_listener.open(m_directory.path("ledger"), Role::Listener));
    }

    TemporaryDirectory m_directory;
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
    const TemporaryDirectory directory;
    LatencyTracker ledger;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ledger.open(directory.path("missing/ledger"), Role::Listener));
    EXPECT_FALSE(ledger.isOpen());
    EXPECT_NE(testing::internal::GetCapturedStderr().find("as a ledger: No such file or directory"),
              std::string::npos);
}

TEST(LatencyTracker, RefusesAFileThatIsNotALedgerAndKeepsItUnchanged)
{
    const TemporaryDirectory directory;
    for (const std::string& text : {std::string("precious notes\n"), std::string(1048616, 'x')}) {
        const std::string path = directory.write("notes", text);
        for (const Role role : {Role::Publisher, Role::Listener}) {
            LatencyTracker ledger;
            testing::internal::CaptureStderr();
            EXPECT_FALSE(ledger.open(path, role));
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      "telvane: cannot use " + path + " as a ledger: the file exists and is not a ledger\n");
        }
        EXPECT_EQ(contentOf(path), text);
    }
}

TEST(LatencyTracker, ResetsTheLedgerOfAnEarlierRun)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("ledger");
    {
        LatencyTracker publisher;
        LatencyTracker listener;
        ASSERT_TRUE(publisher.open(path, Role::Publisher));
        ASSERT_TRUE(listener.open(path, Role::Listener));
        listener.listen();
        publisher.note(1);
        publisher.finish();
    }
    LatencyTracker listener;
    ASSERT_TRUE(listener.open(path, Role::Listener));
    EXPECT_EQ(listener.published(), 0U);
    EXPECT_FALSE(listener.finished());
    LatencyTracker publisher;
    ASSERT_TRUE(publisher.open(path, Role::Publisher));
    EXPECT_FALSE(publisher.hasListener());
    EXPECT_EQ(publisher.published(1), 0);
}

TEST(LatencyTracker, HasOnePublisher)
{
    const TemporaryDirectory directory;
    LatencyTracker first;
    ASSERT_TRUE(first.open(directory.path("ledger"), Role::Publisher));
    LatencyTracker second;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(second.open(directory.path("ledger"), Role::Publisher));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("in use by another run"), std::string::npos);
}

TEST(LatencyTracker, ClosesItsDescriptor)
{
    const TemporaryDirectory directory;
    const auto descriptors = [] {
        std::filesystem::directory_iterator open("/proc/self/fd");
        return std::distance(begin(open), end(open));
    };
    const auto before = descriptors();
    {
        LatencyTracker ledger;
        ASSERT_TRUE(ledger.open(directory.path("ledger"), Role::Publisher));
    }
    EXPECT_EQ(descriptors(), before);
}

} // namespace
} // namespace TelvaneTool

#include "recording/Replay.h"

#include "common/bus/DecodedRecord.h"
#include "tool/fixtures/ToolBusFixture.h"

#include <condition_variable>
#include <gmock/gmock.h>
#include <mutex>

namespace TelvaneTool
{
namespace
{

using testing::ElementsAre;

class ReplayTest : public ToolBusFixture
{
protected:
    struct Arrival
    {
        std::string text;
        Nanoseconds time;
    };

    void subscribe(const std::string& channel)
    {
        const auto take = [this, channel](void*, Telvane::TelvaneDataTypeBase* record, int, void*) {
            const std::lock_guard<std::mutex> guard(m_lock);
            m_arrivals.push_back({channel + static_cast<DecodedRecord&>(*record).text(), monotonicNow()});
            m_condition.notify_all();
        };
        ASSERT_EQ(m_other.Subscribe(channel, take, DecodedRecord(nullptr), nullptr), 0);
    }

    std::vector<std::string> await(std::size_t count)
    {
        std::unique_lock<std::mutex> guard(m_lock);
        EXPECT_TRUE(m_condition.wait_for(guard, std::chrono::seconds(60),
                                         [&] { return m_arrivals.size() >= count; }));
        std::vector<std::string> texts;
        for (const Arrival& arrival : m_arrivals) {
            texts.push_back(arrival.text);
        }
        return texts;
    }

    std::string write(const std::vector<RecordedMessage>& messages, const char* name = "a.jsonl",
                      Nanoseconds started = kSecond) const
    {
        std::string text = printHeader({started, "", {}, 1});
        for (const RecordedMessage& message : messages) {
            appendMessage(text, message);
        }
        return m_directory.write(name, text);
    }

    std::mutex m_lock;
    std::condition_variable m_condition;
    std::vector<Arrival> m_arrivals;
};

TEST_F(ReplayTest, PublishesOnlyMatchingChannelsUnderTheirNewNames)
{
    subscribe("New");
    subscribe("Other");
    RecordedMessage note;
    note.channel = "Old";
    note.missed = 3;
    Replay::Settings settings;
    settings.speed = 0.0;
    settings.only = {"O?d"};
    settings.renames = {{"Old", "New"}};
    Replay replay(m_connection,
                  {write({{1, "Old", 1, "{\"a\":1}"}, note, {2, "Other", 2, "{}"}, {3, "Old", 3, "{}"}})},
                  settings);
    EXPECT_EQ(replay.run(), kSuccess);
    EXPECT_EQ(replay.published(), 2U);
    EXPECT_THAT(await(2), ElementsAre("New{\"a\":1}", "New{}"));
}

TEST_F(ReplayTest, IsNotLateInFilesInTheWrongOrder)
{
    const std::string later = write({{0, "A", 1, "{}"}}, "b.jsonl", 36'000 * kSecond);
    Replay replay(m_connection, {later, write({{0, "A", 1, "{}"}, {1, "A", 2, "{}"}})}, {});
    testing::internal::CaptureStderr();
    EXPECT_EQ(replay.run(), kSuccess);
    EXPECT_EQ(replay.published(), 3U);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::Not(testing::HasSubstr(" h ")));
}

TEST_F(ReplayTest, KeepsAPauseBeforeTheFirstRecordOfItsRange)
{
    subscribe("A");
    Replay::Settings settings;
    ASSERT_TRUE(readBound("100ms", settings.range.from.emplace()));
    const Nanoseconds begin = monotonicNow();
    Replay replay(m_connection, {write({{0, "A", 1, "{}"}, {300 * kMillisecond, "A", 2, "{}"}})}, settings);
    EXPECT_EQ(replay.run(), kSuccess);
    await(1);
    EXPECT_GE(m_arrivals.front().time - begin, 200 * kMillisecond);
}

TEST_F(ReplayTest, ExcludesTheEndOfItsRange)
{
    Replay::Settings settings;
    settings.speed = 0.0;
    ASSERT_TRUE(readBound("2", settings.range.to.emplace()));
    Replay replay(m_connection,
                  {write({{0, "A", 1, "{}"}, {kSecond, "A", 2, "{}"}, {2 * kSecond, "A", 3, "{}"}})},
                  settings);
    EXPECT_EQ(replay.run(), kSuccess);
    EXPECT_EQ(replay.published(), 2U);
}

TEST_F(ReplayTest, EndsALoopThatPublishesNothing)
{
    Replay::Settings settings;
    settings.loop = true;
    settings.only = {"None"};
    Replay replay(m_connection, {write({{0, "A", 1, "{}"}})}, settings);
    EXPECT_EQ(replay.run(), kSuccess);
    EXPECT_EQ(replay.published(), 0U);
}

TEST_F(ReplayTest, CountsWhatCannotBePublished)
{
    Replay::Settings settings;
    settings.speed = 0.0;
    Replay replay(m_connection, {write({{0, "A", 1, "[1]"}, {1, "A", 2, "{}"}})}, settings);
    testing::internal::CaptureStderr();
    EXPECT_EQ(replay.run(), kWrongInput);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(": 1"), std::string::npos);
    EXPECT_EQ(replay.published(), 1U);
}

} // namespace
} // namespace TelvaneTool

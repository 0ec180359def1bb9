#pragma once

#include "helpers/TestFiles.h"
#include "telvane-mqtt/queue/OutgoingQueue.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

namespace TelvaneTool::Mqtt
{

constexpr Nanoseconds kHour = 3600 * kSecond;

inline OutgoingMessage message(const std::string& text, std::size_t size = 0, const char* channel = "LogData")
{
    OutgoingMessage result;
    result.channel = channel;
    result.topic = std::string("telvane/m1/N/") + channel;
    result.className = "LogData";
    result.body = R"("record":{"log":")" + text + std::string(size, 'x') + R"("})";
    result.time = {"2026-11-22T10:00:00.000Z", true, 1'795'341'600'000};
    return result;
}

/// A bridge's queue and spool, which can be started again as after a crash.
class MqttSpool : public testing::Test
{
protected:
    ~MqttSpool() override { stop(); }

    void start(std::uint64_t proposed = 1000)
    {
        stop();
        spool.emplace(m_path, limits);
        session = proposed;
        ASSERT_EQ(spool->open(clocks, session), "");
        queue.emplace(memory, &*spool);
    }

    /// Ends without a last commit.
    void stop()
    {
        queue.reset();
        spool.reset();
    }

    void push(OutgoingMessage one, Nanoseconds now = 0) { queue->push(std::move(one), now); }

    void pushNumbers(int first, int last, Nanoseconds now = 0)
    {
        for (int i = first; i <= last; ++i) {
            push(message(std::to_string(i)), now);
        }
        queue->commit(now);
    }

    /// Sends messages and gets their acknowledgements.
    std::vector<OutgoingMessage> sendAll(Nanoseconds now = 0, std::size_t max = 1'000'000)
    {
        std::vector<OutgoingMessage> sent;
        bool fromBacklog = false;
        while (sent.size() < max) {
            auto next = queue->take(now, true, fromBacklog);
            if (!next) {
                break;
            }
            queue->countSent(*next, 1, 0);
            sent.push_back(std::move(*next));
        }
        queue->commit(now);
        return sent;
    }

    static std::vector<std::uint64_t> numbersOf(const std::vector<OutgoingMessage>& messages)
    {
        std::vector<std::uint64_t> numbers;
        numbers.reserve(messages.size());
        for (const OutgoingMessage& one : messages) {
            numbers.push_back(one.number);
        }
        return numbers;
    }

    /// Pushes more than the cache of SQLite holds, so that it must read the file later.
    void pushBeyondTheCache()
    {
        for (int i = 1; i <= 600; ++i) {
            push(message(std::to_string(i), 20'000));
            if (i % 20 == 0) {
                queue->commit(0);
            }
        }
    }

    /// Damages the file while it is in use, and lets the spool notice it.
    void damageInUse()
    {
        {
            std::fstream damaged(m_path, std::ios::in | std::ios::out | std::ios::binary);
            damaged << std::string(static_cast<std::size_t>(std::filesystem::file_size(m_path)), '\x55');
        }
        const std::uint64_t generation = spool->generation();
        std::uint64_t to = 3;
        EXPECT_TRUE(queue->find("LogData", session, 1, to).empty());
        ASSERT_NE(spool->generation(), generation);
    }

    std::uint64_t dropped(DropReason reason) const
    {
        return queue->counts()["LogData"].dropped[static_cast<int>(reason)];
    }

    Telvane::Testing::TemporaryDirectory m_directory;
    const std::string m_path = m_directory.path("spool");
    SpoolLimits limits;
    QueueLimits memory;
    SpoolClocks clocks = {"boot 1", 0, 1'795'341'600'000, true};
    std::uint64_t session = 0;
    std::optional<Spool> spool;
    std::optional<OutgoingQueue> queue;
};

} // namespace TelvaneTool::Mqtt

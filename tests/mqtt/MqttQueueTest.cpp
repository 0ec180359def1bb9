#include "telvane-mqtt/queue/OutgoingQueue.h"

#include <gtest/gtest.h>

#include <future>
#include <poll.h>
#include <thread>

namespace TelvaneTool::Mqtt
{
namespace
{

OutgoingMessage message(const std::string& channel = "LogData", std::size_t size = 10)
{
    OutgoingMessage result;
    result.channel = channel;
    result.body = std::string(size, 'x');
    return result;
}

/// What is taken from a queue, with the backlog.
std::vector<OutgoingMessage> takeAll(OutgoingQueue& queue, Nanoseconds now = 0)
{
    std::vector<OutgoingMessage> messages;
    bool fromBacklog = false;
    while (auto next = queue.take(now, true, fromBacklog)) {
        messages.push_back(std::move(*next));
    }
    return messages;
}

std::vector<std::uint64_t> numbersOf(const std::vector<OutgoingMessage>& messages)
{
    std::vector<std::uint64_t> numbers;
    for (const OutgoingMessage& one : messages) {
        numbers.push_back(one.number);
    }
    return numbers;
}

QueueLimits limits(std::size_t messages, std::size_t bytes = 1'000'000, Nanoseconds age = 10 * kSecond)
{
    return {messages, bytes, age};
}

/// Takes everything that waits, if it is told to.
class CountingSender : public OutgoingQueue::Sender
{
public:
    explicit CountingSender(OutgoingQueue& queue) : m_queue(queue) {}

    bool sendAtOnce() noexcept override
    {
        ++calls;
        sent += takeAll(m_queue).size();
        return result;
    }

    int calls = 0;
    std::size_t sent = 0;
    bool result = true;

private:
    OutgoingQueue& m_queue;
};

bool isWoken(const OutgoingQueue& queue)
{
    pollfd descriptor = {queue.wakeFd(), POLLIN, 0};
    return poll(&descriptor, 1, 0) == 1;
}

TEST(MqttQueueSender, SendsAMessageThatComesAlone)
{
    OutgoingQueue queue(limits(10));
    CountingSender sender(queue);
    queue.setSender(&sender);
    queue.push(message(), kSecond);
    queue.push(message(), 2 * kSecond);
    EXPECT_EQ(sender.calls, 2);
    EXPECT_EQ(sender.sent, 2U);
    EXPECT_FALSE(isWoken(queue));
}

TEST(MqttQueueSender, LeavesTheRestOfABurstToTheThreadThatWaits)
{
    OutgoingQueue queue(limits(10));
    CountingSender sender(queue);
    queue.setSender(&sender);
    queue.push(message(), kSecond);
    queue.push(message(), kSecond + 10 * kMicrosecond);
    queue.push(message(), kSecond + 20 * kMicrosecond);
    EXPECT_EQ(sender.calls, 1);
    EXPECT_TRUE(isWoken(queue));
    queue.push(message(), 2 * kSecond); // that thread still has to wake up
    EXPECT_EQ(sender.calls, 1);
    EXPECT_EQ(takeAll(queue).size(), 3U);
    queue.clearWake();
    queue.push(message(), 3 * kSecond);
    EXPECT_EQ(sender.calls, 2);
}

TEST(MqttQueueSender, WakesTheThreadThatWaitsForWhatIsLeft)
{
    OutgoingQueue queue(limits(10));
    CountingSender sender(queue);
    sender.result = false;
    queue.setSender(&sender);
    queue.push(message(), kSecond);
    EXPECT_EQ(sender.calls, 1);
    EXPECT_TRUE(isWoken(queue));
}

TEST(MqttQueueSender, IsNotWaitedForByAnotherThread)
{
    OutgoingQueue queue(limits(10));
    std::promise<void> isSending;
    std::promise<void> mayEnd;
    class SlowSender : public OutgoingQueue::Sender
    {
    public:
        SlowSender(std::promise<void>& began, std::promise<void>& end) : m_began(began), m_end(end) {}
        bool sendAtOnce() noexcept override
        {
            m_began.set_value();
            m_end.get_future().wait();
            return true;
        }

    private:
        std::promise<void>& m_began;
        std::promise<void>& m_end;
    } sender(isSending, mayEnd);
    queue.setSender(&sender);
    std::thread other([&queue] { queue.push(message(), kSecond); });
    isSending.get_future().wait();
    queue.push(message(), 2 * kSecond);
    EXPECT_TRUE(isWoken(queue));
    mayEnd.set_value();
    other.join();
}

TEST(MqttQueueSender, IsNotCalledAfterItsEnd)
{
    OutgoingQueue queue(limits(10));
    CountingSender sender(queue);
    queue.setSender(&sender);
    queue.setSender(nullptr);
    queue.push(message(), kSecond);
    EXPECT_EQ(sender.calls, 0);
    EXPECT_TRUE(isWoken(queue));
}

TEST(MqttQueue, CountsEachChannelByItself)
{
    OutgoingQueue queue(limits(10));
    queue.push(message("A"), 0);
    queue.push(message("B"), 0);
    queue.push(message("A"), 0);
    EXPECT_EQ(numbersOf(takeAll(queue)), (std::vector<std::uint64_t>{1, 1, 2}));
}

TEST(MqttQueue, CountsTheDelayOfWhatWasSent)
{
    OutgoingQueue queue(limits(10));
    queue.push(message("A"), kSecond);
    queue.push(message("A"), 2 * kSecond);
    queue.push(message("A"), 3 * kSecond);
    const auto messages = takeAll(queue, 4 * kSecond);
    ASSERT_EQ(messages.size(), 3U);
    queue.countSent(messages[0], 1, 4 * kSecond);
    queue.countDropped(messages[1], DropReason::Refused);
    queue.countSent(messages[2], 1, 5 * kSecond);
    EXPECT_EQ(queue.counts()["A"].delay, 5'000'000U);
}

TEST(MqttQueue, KeepsTheNumberOfAMessageThatIsSentAgain)
{
    OutgoingQueue queue(limits(10));
    queue.push(message("A"), 0);
    OutgoingMessage again = message("");
    again.number = 7;
    queue.push(again, 0);
    queue.push(message("A"), 0);
    queue.push(message(""), 0);
    EXPECT_EQ(numbersOf(takeAll(queue)), (std::vector<std::uint64_t>{1, 7, 2, 0}));
}

TEST(MqttQueue, ReportsDropsInTheNextMessageOfTheChannel)
{
    OutgoingQueue queue(limits(2));
    for (int i = 0; i < 5; ++i) {
        queue.push(message("A"), 0);
    }
    queue.push(message("B"), 0);
    const auto messages = takeAll(queue);
    ASSERT_EQ(numbersOf(messages), (std::vector<std::uint64_t>{5, 1}));
    EXPECT_EQ(messages[0].dropped, 4U);
    EXPECT_EQ(messages[1].dropped, 0U);
    EXPECT_EQ(queue.counts()["A"].dropped[static_cast<int>(DropReason::QueueFull)], 4U);
}

TEST(MqttQueue, ReportsADropOnceAlsoIfTheReportItselfIsDropped)
{
    OutgoingQueue queue(limits(1));
    queue.push(message(), 0);
    queue.push(message(), 0); // drops 1
    auto messages = takeAll(queue);
    EXPECT_EQ(messages.at(0).dropped, 1U);
    queue.countDropped(messages[0], DropReason::TooLarge);
    queue.push(message(), 0);
    EXPECT_EQ(takeAll(queue).at(0).dropped, 2U);
    queue.push(message(), 0);
    EXPECT_EQ(takeAll(queue).at(0).dropped, 0U);
}

TEST(MqttQueue, IsBoundedByBytes)
{
    OutgoingQueue queue(limits(1000, 10'000));
    for (int i = 0; i < 100; ++i) {
        queue.push(message("A", 1000), 0);
        EXPECT_LE(queue.waitingBytes(), 10'000U);
    }
    EXPECT_EQ(numbersOf(takeAll(queue)).back(), 100U);
    EXPECT_EQ(queue.waitingBytes(), 0U);
}

TEST(MqttQueue, IsBoundedByAge)
{
    OutgoingQueue queue(limits(1000));
    queue.push(message(), 0);
    queue.push(message(), 5 * kSecond);
    const auto messages = takeAll(queue, 11 * kSecond);
    ASSERT_EQ(numbersOf(messages), std::vector<std::uint64_t>{2});
    EXPECT_EQ(messages[0].dropped, 1U);
}

TEST(MqttQueue, SendsLiveMessagesBeforeTheBacklog)
{
    OutgoingQueue queue(limits(100));
    queue.push(message(), 1);
    queue.push(message(), 2);
    queue.makeBacklog();
    queue.push(message(), 3);
    bool fromBacklog = true;
    EXPECT_EQ(queue.take(4, false, fromBacklog)->number, 3U);
    EXPECT_FALSE(fromBacklog);
    EXPECT_FALSE(queue.take(4, false, fromBacklog)) << "the rate does not allow more of the backlog";
    EXPECT_EQ(numbersOf(takeAll(queue)), (std::vector<std::uint64_t>{1, 2}));
}

TEST(MqttQueue, KeepsTheOrderOfWhatComesBack)
{
    OutgoingQueue queue(limits(100));
    for (int i = 1; i <= 6; ++i) {
        queue.push(message(), i);
    }
    bool fromBacklog = false;
    std::vector<OutgoingMessage> inFlight;
    for (int i = 0; i < 3; ++i) {
        inFlight.push_back(*queue.take(6, true, fromBacklog));
    }
    queue.putBack(std::move(inFlight), 7);
    queue.makeBacklog();
    EXPECT_EQ(numbersOf(takeAll(queue)), (std::vector<std::uint64_t>{1, 2, 3, 4, 5, 6}));
}

// A day without broker, one message a second.
TEST(MqttQueue, PutsLiveMessagesBackAfterTheOlderBacklog)
{
    OutgoingQueue queue(limits(10));
    queue.push(message("A"), 1);
    queue.makeBacklog();
    queue.push(message("A"), 2);
    bool fromBacklog = false;
    auto live = queue.take(2, true, fromBacklog);
    ASSERT_TRUE(live);
    EXPECT_EQ(live->number, 2U);
    queue.putBack({*live}, 2);
    EXPECT_EQ(numbersOf(takeAll(queue, 2)), (std::vector<std::uint64_t>{1, 2}));
}

TEST(MqttQueue, SurvivesADayWithoutBroker)
{
    constexpr Nanoseconds kInterval = kSecond;
    constexpr Nanoseconds kDay = 24 * 3600 * kSecond;
    constexpr std::size_t kMaxMessages = 1000;
    OutgoingQueue queue({kMaxMessages, 10'000'000, 200 * kSecond});
    std::uint64_t pushed = 0;
    for (Nanoseconds now = 0; now < kDay; now += kInterval) {
        queue.push(message(), now);
        ++pushed;
        if (pushed % 1000 == 0) {
            ASSERT_LE(queue.waiting(), kMaxMessages);
            ASSERT_LE(queue.waitingBytes(), 10'000'000U);
        }
    }
    const auto messages = takeAll(queue, kDay);
    EXPECT_NEAR(static_cast<double>(messages.size()), 200, 1) << "what is younger than 200 s";
    const auto numbers = numbersOf(messages);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_EQ(numbers.back(), pushed);
    EXPECT_EQ(messages.front().dropped, pushed - messages.size());
    EXPECT_EQ(queue.counts()["LogData"].dropped[static_cast<int>(DropReason::TooOld)],
              pushed - messages.size());
}

} // namespace
} // namespace TelvaneTool::Mqtt

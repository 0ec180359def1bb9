#include "mqtt/SpoolFixture.h"

#include <algorithm>
#include <tuple>

namespace TelvaneTool::Mqtt
{
namespace
{

TEST_F(MqttSpool, KeepsMessagesOverARestartWithTheirSessionNumberAndTime)
{
    start(1000);
    pushNumbers(1, 3);
    start(2000);
    pushNumbers(4, 4);
    queue->makeBacklog(); // the broker is connected
    const auto sent = sendAll();
    ASSERT_EQ(numbersOf(sent), (std::vector<std::uint64_t>{1, 2, 3, 1}));
    EXPECT_EQ(payloadOf(sent[0], {2000, ""}),
              R"({"class":"LogData","session":1000,"n":1,"time":"2026-11-22T10:00:00.000Z","clockSet":true,)"
              R"("record":{"log":"1"}})");
    EXPECT_NE(payloadOf(sent[3], {2000, ""}).find(R"("session":2000,"n":1)"), std::string::npos);
}

TEST_F(MqttSpool, SendsWhatWasAcknowledgedOnlyOnce)
{
    start();
    pushNumbers(1, 10);
    EXPECT_EQ(sendAll(0, 4).size(), 4U);
    EXPECT_EQ(queue->waiting(), 6U);
    start();
    EXPECT_EQ(numbersOf(sendAll()), (std::vector<std::uint64_t>{5, 6, 7, 8, 9, 10}));
    start();
    EXPECT_TRUE(sendAll().empty());
}

TEST_F(MqttSpool, SendsWhatWasNotAcknowledgedAgainInOrder)
{
    start();
    pushNumbers(1, 6);
    bool fromBacklog = false;
    std::vector<OutgoingMessage> inFlight;
    for (int i = 0; i < 4; ++i) {
        inFlight.push_back(*queue->take(0, true, fromBacklog));
    }
    queue->countSent(inFlight[1], 1, 0); // acknowledgements may come in any order
    inFlight.erase(inFlight.begin() + 1);
    queue->putBack(std::move(inFlight), 0);
    queue->makeBacklog();
    EXPECT_EQ(numbersOf(sendAll()), (std::vector<std::uint64_t>{1, 3, 4, 5, 6}));
    EXPECT_EQ(queue->waiting(), 0U);
}

TEST_F(MqttSpool, NeverSendsBeforeTheDiskHasTheMessage)
{
    start();
    push(message("1"));
    bool fromBacklog = false;
    EXPECT_FALSE(queue->take(0, true, fromBacklog));
    EXPECT_EQ(queue->counts()["LogData"].accepted, 0U);
    queue->commit(0);
    EXPECT_TRUE(queue->take(0, true, fromBacklog));
    EXPECT_EQ(queue->counts()["LogData"].accepted, 1U);
}

TEST_F(MqttSpool, HoldsMoreThanMemoryAndKeepsTheOrder)
{
    memory.messages = 20;
    start();
    for (int i = 1; i <= 1000; i += 50) {
        pushNumbers(i, i + 49);
        EXPECT_LE(queue->waitingBytes(), 20'000U);
    }
    EXPECT_EQ(queue->waiting(), 1000U);
    queue->makeBacklog();
    const auto numbers = numbersOf(sendAll());
    ASSERT_EQ(numbers.size(), 1000U);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_EQ(dropped(DropReason::QueueFull), 0U);
}

TEST_F(MqttSpool, SendsLiveMessagesBeforeTheBacklogOnDisk)
{
    start();
    pushNumbers(1, 3);
    queue->makeBacklog();
    pushNumbers(4, 5);
    EXPECT_EQ(numbersOf(sendAll()), (std::vector<std::uint64_t>{4, 5, 1, 2, 3}));
}

TEST_F(MqttSpool, IsBoundedInBytesAndCountsWhatItDrops)
{
    limits.bytes = 1024 * 1024;
    memory.messages = 10;
    start();
    for (int i = 1; i <= 2000; ++i) {
        push(message(std::to_string(i), 1000));
        if (i % 100 == 0) {
            queue->commit(0);
            EXPECT_LE(std::filesystem::file_size(m_path), limits.bytes);
        }
    }
    queue->makeBacklog();
    const auto sent = sendAll();
    ASSERT_GT(sent.size(), 400U);
    ASSERT_LT(sent.size(), 1000U);
    EXPECT_EQ(sent.back().number, 2000U);
    EXPECT_EQ(sent.back().number - sent.front().number + 1, sent.size()) << "the oldest are dropped";
    EXPECT_EQ(dropped(DropReason::QueueFull), 2000 - sent.size());
    EXPECT_EQ(sent.front().dropped, 2000 - sent.size());
}

TEST_F(MqttSpool, DropsWhatWasSentBeforeWhatWaits)
{
    limits.bytes = 1024 * 1024;
    start();
    for (int i = 1; i <= 300; ++i) {
        push(message(std::to_string(i), 1000));
    }
    queue->commit(0);
    bool fromBacklog = false;
    const auto first = queue->take(0, true, fromBacklog); // not acknowledged
    for (int i = 2; i <= 300; ++i) {
        queue->countSent(*queue->take(0, true, fromBacklog), 1, 0);
    }
    for (int i = 301; i <= 800; ++i) {
        push(message(std::to_string(i), 1000));
        if (i % 50 == 0) {
            queue->commit(0);
        }
    }
    queue->putBack({*first}, 0);
    queue->makeBacklog();
    EXPECT_EQ(numbersOf(sendAll()).front(), 1U);
    EXPECT_EQ(dropped(DropReason::QueueFull), 0U);
}

TEST_F(MqttSpool, ReportsDropsOfAnEarlierSession)
{
    limits.age = kHour;
    memory.age = kHour;
    start();
    pushNumbers(1, 3, 0);
    queue->makeBacklog();
    queue->commit(2 * kHour);
    EXPECT_EQ(dropped(DropReason::TooOld), 3U);
    queue->commit(2 * kHour); // a second later
    start();
    pushNumbers(1, 1, 2 * kHour);
    EXPECT_EQ(sendAll(2 * kHour).at(0).dropped, 3U);
    start();
    pushNumbers(1, 1, 2 * kHour);
    EXPECT_EQ(sendAll(2 * kHour).at(0).dropped, 0U);
}

TEST_F(MqttSpool, CountsTheAgeOverRestartsOfTheMachine)
{
    limits.age = 24 * kHour;
    memory.age = 24 * kHour;
    start();
    pushNumbers(1, 1, 100 * kHour); // the uptime of the machine
    pushNumbers(2, 2, 110 * kHour);
    auto later = message("3");
    later.time.milliseconds += 20 * 3600 * 1000;
    push(later, 120 * kHour);
    queue->commit(120 * kHour);
    clocks = {"boot 2", 60 * kSecond, 1'795'341'600'000 + 25 * 3600 * 1000, true};
    start();
    EXPECT_EQ(numbersOf(sendAll(60 * kSecond)), std::vector<std::uint64_t>{3});
}

TEST_F(MqttSpool, CountsTheAgeByTheMonotonicClockIfTheTimeIsNotSet)
{
    limits.age = 24 * kHour;
    memory.age = 24 * kHour;
    start();
    pushNumbers(1, 1, 90 * kHour);
    pushNumbers(2, 2, 100 * kHour);
    // The machine has been off for an unknown time. Its clock says 1970.
    clocks = {"boot 2", 15 * kHour, 5000, false};
    start();
    EXPECT_EQ(numbersOf(sendAll(15 * kHour)), std::vector<std::uint64_t>{2}) << "1 is 25 h old at least";
}

TEST_F(MqttSpool, KeepsTheOrderIfTheClockWasSetBack)
{
    start(5000);
    pushNumbers(1, 1, kHour);
    auto earlier = message("2");
    earlier.time.milliseconds -= 10'000'000;
    push(earlier, 2 * kHour);
    queue->commit(2 * kHour);
    clocks = {"boot 2", kHour, 1'000'000'000'000, true};
    start(3000);
    EXPECT_GT(session, 5000U) << "a later session has a higher number";
    EXPECT_EQ(numbersOf(sendAll(kHour)), (std::vector<std::uint64_t>{1, 2}));
}

TEST_F(MqttSpool, DoesNotRetainWhatIsOlderThanTheRetainedRecordOfAnEarlierSession)
{
    const auto retained = [](const char* text, std::size_t size = 0) {
        OutgoingMessage result = message(text, size);
        result.retain = true;
        return result;
    };
    limits.bytes = 1024 * 1024;
    start(1000);
    push(retained("1"));
    push(retained("2"));
    queue->commit(0);
    queue->makeBacklog(); // the broker is connected
    push(retained("3", 600'000));
    queue->commit(0);
    EXPECT_EQ(numbersOf(sendAll(0, 1)), std::vector<std::uint64_t>{3});
    std::uint64_t to = 3;
    for (int i = 0; i < 100 && !queue->find("LogData", 1000, 3, to).empty(); ++i) {
        push(message("x", 20'000, "Other")); // until 3 has left the file
        queue->commit(0);
    }
    EXPECT_TRUE(queue->find("LogData", 1000, 3, to).empty());
    start(2000);
    push(retained("4"));
    queue->commit(0);
    std::vector<std::pair<std::uint64_t, bool>> retains;
    for (const OutgoingMessage& one : sendAll()) {
        if (one.channel == "LogData") {
            retains.emplace_back(one.number, one.retain);
        }
    }
    EXPECT_EQ(retains, (std::vector<std::pair<std::uint64_t, bool>>{{1, true}, {1, false}, {2, false}}));
}

TEST_F(MqttSpool, DoesNotTakeARefusedRecordForTheRetainedOne)
{
    const auto retained = [](const char* text) {
        OutgoingMessage result = message(text);
        result.retain = true;
        return result;
    };
    start(1000);
    push(retained("1"));
    push(retained("2"));
    queue->commit(0);
    queue->makeBacklog(); // the broker is connected
    push(retained("3"));
    queue->commit(0);
    bool fromBacklog = true;
    const auto newest = queue->take(0, true, fromBacklog);
    ASSERT_TRUE(newest && newest->number == 3 && newest->stored != 0);
    queue->countDropped(*newest, DropReason::Refused);
    queue->commit(0);
    start(2000);
    std::vector<std::pair<std::uint64_t, bool>> retains;
    for (const OutgoingMessage& one : sendAll()) {
        retains.emplace_back(one.number, one.retain);
    }
    EXPECT_EQ(retains, (std::vector<std::pair<std::uint64_t, bool>>{{1, true}, {2, true}}));
}

TEST_F(MqttSpool, DoesNotRetainWhatIsOlderThanARecordThatWasRetainedAfterItWasSent)
{
    const auto retained = [](const char* text) {
        OutgoingMessage result = message(text);
        result.retain = true;
        return result;
    };
    for (const bool isCommitted : {false, true}) {
        start(1000);
        push(retained("1"));
        queue->commit(0);
        queue->makeBacklog(); // the broker is connected
        push(retained("2"));
        queue->commit(0);
        bool fromBacklog = true;
        auto later = queue->take(0, true, fromBacklog);
        ASSERT_TRUE(later && later->number == 2);
        later->retain = false; // because of a newer one, which is refused
        queue->countSent(*later, 1, 0);
        if (isCommitted) {
            queue->commit(0);
        }
        queue->noteRetained(*later);
        queue->commit(0);
        start(2000);
        const auto sent = sendAll();
        ASSERT_EQ(numbersOf(sent), std::vector<std::uint64_t>{1});
        EXPECT_FALSE(sent[0].retain);
    }
}

TEST_F(MqttSpool, GivesNoIdentifierTwice)
{
    limits.age = kHour;
    start(1000);
    pushNumbers(1, 3);
    sendAll();
    queue->commit(2 * kHour); // they leave the file
    std::uint64_t to = 3;
    EXPECT_TRUE(queue->find("LogData", 1000, 1, to).empty());
    start(2000);
    EXPECT_EQ(spool->opened().lastStored, 3);
    pushNumbers(1, 1, 2 * kHour);
    EXPECT_EQ(spool->opened().lastStored, 3); // of the file when it was opened
    start(3000);
    EXPECT_EQ(spool->opened().lastStored, 4);
}

TEST_F(MqttSpool, SendsAgainOnlyWhatIsBetweenAcknowledgedMessages)
{
    start(1000);
    pushNumbers(1, 9);
    bool fromBacklog = false;
    for (std::uint64_t number = 1; number <= 9; ++number) {
        const auto next = queue->take(0, true, fromBacklog);
        ASSERT_TRUE(next && next->number == number);
        if (number != 3 && number != 4 && number != 8) {
            queue->countSent(*next, 1, 0);
        }
    }
    queue->commit(0);
    EXPECT_EQ(spool->waiting(), 3U);
    start(2000);
    EXPECT_EQ(spool->waiting(), 3U);
    EXPECT_EQ(numbersOf(sendAll()), (std::vector<std::uint64_t>{3, 4, 8}));
    EXPECT_EQ(spool->waiting(), 0U);
}

TEST_F(MqttSpool, FindsMessagesThatWereSent)
{
    start(1000);
    pushNumbers(1, 9);
    push(message("other", 0, "Other"));
    queue->commit(0);
    sendAll();
    start(2000);
    std::uint64_t to = 6;
    const auto found = queue->find("LogData", 1000, 4, to);
    EXPECT_EQ(numbersOf(found), (std::vector<std::uint64_t>{4, 5, 6}));
    EXPECT_EQ(found[0].body, R"("record":{"log":"4"})");
    to = 100;
    EXPECT_EQ(queue->find("LogData", 1000, 8, to).size(), 2U);
    EXPECT_TRUE(queue->find("LogData", 2000, 1, to).empty());
}

TEST_F(MqttSpool, FindsAsManyMessagesAsMemoryAllows)
{
    start(1000);
    for (int i = 1; i <= 12; ++i) {
        push(message(std::to_string(i), 1'000'000));
    }
    queue->commit(0);
    std::uint64_t to = 12;
    EXPECT_EQ(queue->find("LogData", 1000, 1, to).back().number, to);
    EXPECT_LT(to, 7U);
    EXPECT_GT(to, 3U);
}

// A day without broker, one message a minute, with twelve hours of age and a restart in between.
TEST_F(MqttSpool, SurvivesADayWithoutBroker)
{
    limits.age = 12 * kHour;
    memory.age = 12 * kHour;
    memory.messages = 100;
    constexpr Nanoseconds kDay = 24 * kHour;
    constexpr Nanoseconds kInterval = 60 * kSecond;
    start(1000);
    int pushed = 0;
    const auto outage = [&](Nanoseconds from, Nanoseconds to) {
        for (Nanoseconds now = from; now < to; now += kInterval) {
            push(message(std::to_string(++pushed)), now);
            if (pushed % 60 == 0) {
                queue->commit(now);
                ASSERT_LE(queue->waitingBytes(), 100'000U);
                ASSERT_LE(queue->waiting(), 12 * 60U + 60);
            }
        }
    };
    outage(0, 18 * kHour);
    queue->commit(18 * kHour);
    queue->commit(18 * kHour); // a second later
    const std::uint64_t droppedBefore = dropped(DropReason::TooOld);
    start(2000);
    outage(18 * kHour, kDay);
    queue->makeBacklog();
    const auto sent = sendAll(kDay);
    EXPECT_NEAR(static_cast<double>(sent.size()), 12 * 60, 61) << "what is younger than 12 h";
    EXPECT_TRUE(std::is_sorted(sent.begin(), sent.end(), [](const auto& one, const auto& other) {
        return std::tie(one.session, one.number) < std::tie(other.session, other.number);
    }));
    EXPECT_EQ(sent.back().number, static_cast<std::uint64_t>(6 * 60));
    EXPECT_EQ(droppedBefore + dropped(DropReason::TooOld) + sent.size(), static_cast<std::size_t>(pushed));
    std::uint64_t reported = 0;
    for (const OutgoingMessage& one : sent) {
        reported += one.dropped;
    }
    EXPECT_EQ(reported + sent.size(), static_cast<std::size_t>(pushed)) << "each drop is reported once";
}

} // namespace
} // namespace TelvaneTool::Mqtt

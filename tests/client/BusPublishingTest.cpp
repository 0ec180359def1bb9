// Publications of a bus: every outcome, and the outbox.

#include "helpers/BusClientTestSupport.h"

namespace Telvane::Testing
{

namespace
{

class PublishingOnBus : public ServedBus
{
protected:
    static BusOptions withOutbox(std::size_t messages, std::chrono::nanoseconds age = 1h)
    {
        BusOptions options = impatient();
        options.outbox.messages = messages;
        options.outbox.age = age;
        return options;
    }

    /// \return a log record whose publication has \p size bytes
    static LogData sized(std::size_t size)
    {
        const std::size_t empty = printedPublication("LogData", "\"log\":\t\"\"").size();
        return logOf(std::string(size - empty, 'x'));
    }
};

TEST_F(PublishingOnBus, SaysThatItWasSentAndHowLargeItWas)
{
    connect();
    const Publication publication = bus->publish(logOf("hello"));
    EXPECT_EQ(publication.error, std::error_code());
    EXPECT_FALSE(publication.queued);
    EXPECT_EQ(publication.size, printedPublication("LogData", "\"log\":\t\"hello\"").size());
    EXPECT_EQ(publication.message(), "sent");
    const std::error_code error = bus->publish(logOf("hello"));
    EXPECT_FALSE(error);
}

TEST_F(PublishingOnBus, WritesTheBytesOfTheDescribedClient)
{
    TemporaryDirectory directory;
    const RawServer raw(directory.path("bus"));
    Bus own(raw.path(), impatient());
    const RawPeer peer = raw.accept();
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("TelvaneBus"));
    peer.send(response(".unsubscribe", false, "TelvaneBus"));
    ASSERT_EQ(own.waitConnected(kTimeout), std::error_code());
    own.publish(logOf("x"));
    EXPECT_EQ(peer.receive(), printedPublication("LogData", "\"log\":\t\"x\""));
    auto subscription = own.subscribe<LogData>([] {});
    EXPECT_EQ(peer.receive(), printedSubscribeRequest("LogData"));
    peer.send(response(".subscribe", true, "LogData"));
    subscription.end();
    EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("LogData"));
}

TEST_F(PublishingOnBus, TakesConstRecordsAndTemporariesAndOtherChannels)
{
    connect();
    auto queue = bus->queue<LogData>("Other");
    const LogData record = logOf("const");
    bus->publish("Other", record);
    bus->publish("Other", logOf("temporary"), 1s);
    EXPECT_EQ(nextMessage(queue).log, "const");
    EXPECT_EQ(nextMessage(queue).log, "temporary");
}

TEST_F(PublishingOnBus, WhatIsSaidToBeSentArrivesUpToTheLimit)
{
    connect();
    auto queue = bus->queue<LogData>();
    const LogData largest = sized(Publication::kLimit);
    const Publication sent = bus->publish(largest);
    EXPECT_EQ(sent.error, std::error_code());
    EXPECT_EQ(sent.size, Publication::kLimit);
    EXPECT_EQ(nextMessage(queue).log.size(), largest.log.size());
}

TEST_F(PublishingOnBus, SaysTheSizeOfWhatIsTooLarge)
{
    connect();
    for (const std::size_t size : {Publication::kLimit + 1, std::size_t(16'384), std::size_t(200'000)}) {
        const Publication publication = bus->publish(sized(size));
        EXPECT_EQ(publication.error, BusError::TooLarge);
        EXPECT_EQ(publication.error, std::errc::message_size);
        EXPECT_EQ(publication.size, size);
        EXPECT_EQ(publication.message(),
                  "the message has " + std::to_string(size) + " bytes, at most 16363 arrive");
    }
}

TEST_F(PublishingOnBus, SaysThatThereIsNoConnection)
{
    stopServer();
    Bus own(server->path, impatient());
    EXPECT_EQ(own.publish(logOf("x")).error, BusError::NotConnected);
    EXPECT_EQ(own.publish(logOf("x")).error, std::errc::not_connected);
    startServer();
    ASSERT_EQ(own.waitConnected(kTimeout), std::error_code());
    EXPECT_EQ(own.publish(logOf("x")).error, std::error_code());
}

TEST_F(PublishingOnBus, TheOutboxKeepsOrderAndSaysQueued)
{
    connect(withOutbox(100));
    auto queue = bus->queue<LogData>();
    ASSERT_EQ(queue.waitActive(kTimeout), std::error_code());
    stopServer();
    EXPECT_TRUE(queue.next(kTimeout).lost());
    for (int i = 0; i < 10; ++i) {
        const Publication publication = bus->publish(logOf(std::to_string(i)));
        EXPECT_EQ(publication.error, std::error_code());
        EXPECT_TRUE(publication.queued);
        EXPECT_EQ(publication.message(), "queued");
    }
    EXPECT_EQ(bus->statistics().outboxWaiting, 10U);
    startServer();
    ASSERT_EQ(bus->waitConnected(kTimeout), std::error_code());
    EXPECT_FALSE(bus->publish(logOf("10")).queued);
    for (int i = 0; i <= 10; ++i) {
        EXPECT_EQ(nextMessage(queue).log, std::to_string(i));
    }
    EXPECT_EQ(bus->statistics().outboxWaiting, 0U);
}

TEST_F(PublishingOnBus, TheOutboxDropsTheOldestAndCounts)
{
    stopServer();
    Bus own(server->path, withOutbox(3));
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(own.publish(logOf(std::to_string(i))).queued);
    }
    EXPECT_EQ(own.statistics().outboxWaiting, 3U);
    EXPECT_EQ(own.statistics().outboxDropped, 2U);
    auto queue = own.queue<LogData>();
    startServer();
    EXPECT_EQ(nextMessage(queue).log, "2");
}

TEST_F(PublishingOnBus, TheOutboxIsEmptyOnceTheBusIsClosed)
{
    stopServer();
    Bus own(server->path, withOutbox(3));
    EXPECT_TRUE(own.publish(logOf("x")).queued);
    own.close();
    EXPECT_EQ(own.statistics().outboxWaiting, 0U);
}

TEST_F(PublishingOnBus, TheOutboxForgetsWhatIsTooOld)
{
    stopServer();
    Bus own(server->path, withOutbox(3, 1ns));
    EXPECT_TRUE(own.publish(logOf("old")).queued);
    startServer();
    ASSERT_EQ(own.waitConnected(kTimeout), std::error_code());
    EXPECT_EQ(own.statistics().outboxExpired, 1U);
}

TEST_F(PublishingOnBus, ADeadlineMayBeAnything)
{
    connect();
    for (const auto timeout : {std::chrono::nanoseconds::max(), std::chrono::nanoseconds::min(), 0ns}) {
        EXPECT_EQ(bus->publish(logOf("x"), timeout).error, std::error_code());
    }
    EXPECT_EQ(bus->waitConnected(std::chrono::nanoseconds::max()), std::error_code());
}

} // namespace

} // namespace Telvane::Testing

// Queues of a bus: what next() tells apart, what a full one drops, and the descriptor for event loops.

#include "helpers/BusClientTestSupport.h"

namespace Telvane::Testing
{

namespace
{

bool isReadable(int fd)
{
    pollfd watched = {fd, POLLIN, 0};
    return ::poll(&watched, 1, 0) == 1;
}

bool becomesReadable(int fd)
{
    pollfd watched = {fd, POLLIN, 0};
    return ::poll(&watched, 1, 40'000) == 1;
}

using QueueOfBus = ServedBus;

TEST_F(QueueOfBus, TellsMessagesTimeOutsChangesAndTheEndApart)
{
    connect();
    auto queue = bus->queue<LogData>();
    EXPECT_TRUE(queue.next(0ms).timedOut());
    EXPECT_FALSE(queue.next(1ms));
    bus->publish(logOf("one"));
    const auto message = queue.next(kTimeout);
    ASSERT_TRUE(message);
    EXPECT_EQ((*message).log, "one");
    EXPECT_EQ(message.delivery().epoch, 1U);
    stopServer();
    const auto lost = queue.next(kTimeout);
    EXPECT_TRUE(lost.lost());
    EXPECT_EQ(lost.reason(), BusError::Lost);
    startServer();
    EXPECT_TRUE(queue.next(kTimeout).connected());
    bus->publish(logOf("two"));
    EXPECT_EQ(queue.next(kTimeout)->log, "two");
    queue.end();
    const auto end = queue.next(kTimeout);
    EXPECT_TRUE(end.ended());
    EXPECT_EQ(end.reason(), BusError::Closed);
}

TEST_F(QueueOfBus, DropsTheOldestByDefaultAndReportsEachEpisodeOnce)
{
    Mailbox<BusEvent> events;
    BusOptions options = impatient();
    options.onEvent = [&events](const BusEvent& event) {
        events.put(event);
    };
    connect(options);
    events.take();
    auto queue = bus->queue<LogData>(Limit{2});
    auto witness = bus->queue<LogData>();
    for (int episode = 1; episode < 3; ++episode) {
        for (int i = 0; i < 5; ++i) {
            bus->publish(logOf(std::to_string(i)));
        }
        for (int i = 0; i < 5; ++i) {
            ASSERT_TRUE(witness.next(kTimeout)); // made later, so filled later
        }
        EXPECT_EQ(queue.statistics().dropped, 3U * static_cast<unsigned>(episode));
        EXPECT_EQ(queue.statistics().waiting, 2U);
        EXPECT_EQ(queue.next(0ms)->log, "3");
        EXPECT_EQ(queue.next(0ms)->log, "4");
        EXPECT_EQ(events.take().kind, BusEvent::Kind::MessagesDropped);
        EXPECT_TRUE(events.empty());
    }
    bus.reset();
}

TEST_F(QueueOfBus, DropsTheNewestWhenAsked)
{
    connect();
    auto queue = bus->queue<LogData>(Limit{2, Overflow::DropNewest});
    auto witness = bus->queue<LogData>();
    for (int i = 0; i < 5; ++i) {
        bus->publish(logOf(std::to_string(i)));
    }
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(witness.next(kTimeout));
    }
    EXPECT_EQ(queue.next(0ms)->log, "0");
    EXPECT_EQ(queue.next(0ms)->log, "1");
    EXPECT_TRUE(queue.next(0ms).timedOut());
    EXPECT_EQ(queue.statistics().dropped, 3U);
}

TEST_F(QueueOfBus, ASlowCallbackReportsEachEpisodeOnce)
{
    Mailbox<BusEvent> events;
    BusOptions options = impatient(Run::Dispatch);
    options.onEvent = [&events](const BusEvent& event) {
        events.put(event);
    };
    connect(options);
    auto subscription = bus->subscribe<LogData>([] {}, Run::Dispatch, Limit{2});
    for (int episode = 0; episode < 2; ++episode) {
        for (int i = 0; i < 5; ++i) {
            bus->publish(logOf("x"));
        }
        const auto dropped = 3U * static_cast<unsigned>(episode + 1);
        ASSERT_TRUE(eventually([&] { return subscription.statistics().dropped == dropped; }));
        while (bus->dispatch() != 0) {
        }
    }
    int reported = 0;
    while (!events.empty()) {
        reported += events.take().kind == BusEvent::Kind::MessagesDropped ? 1 : 0;
    }
    EXPECT_EQ(reported, 2);
    bus.reset();
}

TEST_F(QueueOfBus, ASlowCallbackDropsItsOwnMessagesAndNoOthers)
{
    connect();
    Gate entered;
    Gate leave;
    const GateOpener opener(leave);
    auto slow = bus->subscribe<LogData>(
        [&] {
            entered.open();
            leave.pass();
        },
        Run::Queued, Limit{3});
    auto neighbour = bus->queue<LogData>();
    bus->publish(logOf("first"));
    ASSERT_TRUE(entered.pass());
    for (int i = 0; i < 10; ++i) {
        bus->publish(logOf("x"));
    }
    for (int i = 0; i < 11; ++i) {
        ASSERT_TRUE(neighbour.next(kTimeout));
    }
    EXPECT_EQ(slow.statistics().dropped, 7U);
    EXPECT_EQ(neighbour.statistics().dropped, 0U);
    leave.open();
}

TEST_F(QueueOfBus, HasADescriptorThatIsReadableExactlyWhileThereIsSomething)
{
    connect();
    auto queue = bus->queue<LogData>();
    const int fd = queue.fd();
    ASSERT_GE(fd, 0);
    EXPECT_FALSE(isReadable(fd));
    bus->publish(logOf("one"));
    ASSERT_TRUE(becomesReadable(fd));
    EXPECT_TRUE(queue.next(0ms));
    EXPECT_FALSE(isReadable(fd));
    stopServer();
    ASSERT_TRUE(becomesReadable(fd));
    EXPECT_TRUE(queue.next(0ms).lost());
    startServer();
    ASSERT_TRUE(becomesReadable(fd));
    EXPECT_TRUE(queue.next(0ms).connected());
    EXPECT_FALSE(isReadable(fd));
    EXPECT_EQ(queue.fd(), fd);
    queue.end();
    EXPECT_TRUE(isReadable(fd));
    EXPECT_TRUE(queue.next(0ms).ended());
    EXPECT_TRUE(isReadable(fd));
}

TEST_F(QueueOfBus, ADescriptorAskedForLateKnowsWhatWaits)
{
    connect();
    auto queue = bus->queue<LogData>();
    bus->publish(logOf("one"));
    EXPECT_TRUE(eventually([&] { return queue.statistics().waiting == 1; }));
    EXPECT_TRUE(isReadable(queue.fd()));
}

TEST_F(QueueOfBus, ItsEndWakesWhoWaits)
{
    connect();
    auto queue = bus->queue<LogData>();
    std::future<bool> ended = std::async(std::launch::async, [&] { return queue.next(kTimeout).ended(); });
    EXPECT_EQ(ended.wait_for(kQuietTime), std::future_status::timeout);
    queue.cancel();
    EXPECT_TRUE(ended.get());
}

TEST_F(QueueOfBus, KeepsOnlyTheLastChangesOfTheConnection)
{
    connect();
    auto queue = bus->queue<LogData>(Limit{1});
    for (int i = 0; i < 12; ++i) {
        restartServer();
    }
    int changes = 0;
    for (auto item = queue.next(0ms); !item.timedOut(); item = queue.next(0ms)) {
        ++changes;
    }
    EXPECT_EQ(changes, 16);
}

TEST_F(QueueOfBus, DispatchHasADescriptorOfItsOwn)
{
    connect(impatient(Run::Dispatch));
    const int fd = bus->fd();
    int calls = 0;
    auto subscription = bus->subscribe<LogData>([&] { ++calls; });
    EXPECT_EQ(bus->dispatch(), 0U);
    bus->publish(logOf("one"));
    bus->publish(logOf("two"));
    EXPECT_TRUE(eventually([&] { return subscription.statistics().waiting == 2; }));
    EXPECT_TRUE(isReadable(fd));
    EXPECT_EQ(bus->dispatch(), 2U);
    EXPECT_EQ(calls, 2);
    EXPECT_FALSE(isReadable(fd));
}

TEST_F(QueueOfBus, EventsThatAreNotTakenAreLimitedAndCounted)
{
    constexpr int kRefused = 300;
    constexpr unsigned kKept = 256;
    unsigned events = 0;
    BusOptions options = impatient(Run::Dispatch);
    options.onEvent = [&](const BusEvent&) {
        ++events;
    };
    connect(options);
    std::vector<Queue<LogData>> refused;
    for (int i = 0; i < kRefused; ++i) {
        refused.push_back(bus->queue<LogData>("channel." + std::to_string(i)));
        ASSERT_EQ(refused.back().waitActive(kTimeout), BusError::Refused);
    }
    const unsigned reported = kRefused + 1; // and the connection
    EXPECT_EQ(bus->statistics().eventsDropped, reported - kKept);
    EXPECT_TRUE(isReadable(bus->fd()));
    while (bus->dispatch() > 0) {
    }
    EXPECT_EQ(events, kKept);
    EXPECT_FALSE(isReadable(bus->fd()));
    bus.reset();
}

} // namespace

} // namespace Telvane::Testing

// The state of the connection, and what each way of losing it looks like.

#include "helpers/BusClientTestSupport.h"

#include <csignal>
#include <deque>
#include <sys/stat.h>
#include <sys/wait.h>

namespace Telvane::Testing
{

namespace
{

/// Options that report every event to a mailbox.
BusOptions reportingTo(Mailbox<BusEvent>& events)
{
    BusOptions options = impatient();
    options.onEvent = [&events](const BusEvent& event) {
        events.put(event);
    };
    return options;
}

using ConnectionOfBus = ServedBus;

TEST_F(ConnectionOfBus, IsMadeInTheBackground)
{
    Bus own(server->path);
    EXPECT_EQ(own.waitConnected(kTimeout), std::error_code());
    EXPECT_EQ(own.state(), ConnectionState::Connected);
    EXPECT_EQ(own.reason(), std::error_code());
    EXPECT_EQ(own.statistics().connections, 1U);
}

TEST_F(ConnectionOfBus, IsMadeWhenTheServerComesLater)
{
    stopServer();
    Mailbox<BusEvent> events;
    Bus own(server->path, reportingTo(events));
    const BusEvent failed = events.take();
    EXPECT_EQ(failed.kind, BusEvent::Kind::AttemptFailed);
    EXPECT_EQ(failed.reason, BusError::NoServer);
    EXPECT_EQ(own.waitConnected(0ms), BusError::TimedOut);
    EXPECT_EQ(own.reason(), std::errc::connection_refused);
    startServer();
    EXPECT_EQ(own.waitConnected(kTimeout), std::error_code());
    const BusEvent connected = events.take();
    EXPECT_EQ(connected.kind, BusEvent::Kind::StateChanged);
    EXPECT_EQ(connected.state, ConnectionState::Connected);
}

TEST_F(ConnectionOfBus, IsNeverAwaitedForMoreThanTheLongestPause)
{
    stopServer();
    BusOptions options = impatient();
    options.firstPause = std::chrono::hours(1);
    options.longestPause = 10ms;
    Bus own(server->path, options);
    ASSERT_TRUE(eventually([&] { return own.reason() == BusError::NoServer; }));
    startServer();
    EXPECT_EQ(own.waitConnected(kTimeout), std::error_code());
}

TEST_F(ConnectionOfBus, IsMadeAgainAfterEachLossAndReported)
{
    Mailbox<BusEvent> events;
    connect(reportingTo(events));
    EXPECT_EQ(events.take().state, ConnectionState::Connected);
    for (std::uint64_t epoch = 2; epoch < 5; ++epoch) {
        restartServer();
        const BusEvent lost = events.take();
        EXPECT_EQ(lost.kind, BusEvent::Kind::StateChanged);
        EXPECT_EQ(lost.state, ConnectionState::Connecting);
        EXPECT_EQ(lost.reason, BusError::Lost);
        BusEvent back = events.take();
        while (back.kind == BusEvent::Kind::AttemptFailed) {
            back = events.take();
        }
        EXPECT_EQ(back.state, ConnectionState::Connected);
        EXPECT_GE(back.epoch, epoch);
    }
    bus.reset();
}

TEST_F(ConnectionOfBus, SubscriptionsAreMadeAgainBeforeItIsReported)
{
    connect();
    Mailbox<std::string> received;
    auto subscription = bus->subscribe<LogData>([&](const LogData& record) { received.put(record.log); });
    EXPECT_EQ(subscription.waitActive(kTimeout), std::error_code());
    restartServer();
    EXPECT_EQ(subscription.waitActive(0ms), std::error_code());
    EXPECT_EQ(bus->publish(logOf("after")).error, std::error_code());
    EXPECT_EQ(received.take(), "after");
}

TEST_F(ConnectionOfBus, IsClosedAtOnceForAnImpossiblePath)
{
    for (const std::string& path : {std::string(), std::string(108, 'a')}) {
        Bus own(path);
        EXPECT_EQ(own.state(), ConnectionState::Closed);
        EXPECT_EQ(own.reason(), BusError::BadPath);
        EXPECT_EQ(own.waitConnected(kTimeout), BusError::Closed);
        EXPECT_EQ(own.publish(logOf("x")).error, BusError::Closed);
        auto subscription = own.subscribe<LogData>([] {});
        EXPECT_EQ(subscription.error(), BusError::BadPath);
        EXPECT_FALSE(subscription.active());
    }
}

TEST_F(ConnectionOfBus, TellsAServerThatIsNotOne)
{
    TemporaryDirectory directory;
    const std::string path = directory.path("stream");
    const FileDescriptor stream(::socket(AF_UNIX, SOCK_STREAM, 0));
    const sockaddr_un address = addressOf(path);
    ASSERT_EQ(::bind(stream.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(stream.get(), 5), 0);
    Mailbox<BusEvent> events;
    const Bus own(path, reportingTo(events));
    EXPECT_EQ(events.take().reason, BusError::NotABus);
}

TEST_F(ConnectionOfBus, TellsThatItWasTurnedAway)
{
    server.emplace([](EventServer& limited) {
        EventServerLimits limits;
        limits.connections = 1;
        limited.SetLimits(limits);
    });
    connect();
    const StreamCapture refusals(STDERR_FILENO);
    Mailbox<BusEvent> events;
    Bus second(server->path, reportingTo(events));
    EXPECT_EQ(events.take().reason, BusError::TurnedAway);
    bus.reset();
    EXPECT_EQ(second.waitConnected(kTimeout), std::error_code());
}

TEST_F(ConnectionOfBus, EndsInEveryStateWithoutWaitingForTheServer)
{
    const std::size_t threads = runningThreads();
    {
        const Bus unconnected(server->path);
    }
    {
        const Bus noServer(server->directory.path("none"));
    }
    BusOptions slow;
    slow.firstPause = slow.longestPause = std::chrono::hours(1);
    {
        Bus sleeping(server->directory.path("none"), slow);
        EXPECT_TRUE(eventually([&] { return sleeping.reason() == BusError::NoServer; }));
    }
    connect();
    bus.reset();
    stopServer(); // with its receiver threads
    // The kernel lists a joined thread for a moment.
    EXPECT_TRUE(eventually([&] { return runningThreads() < threads; }));
}

TEST_F(ConnectionOfBus, LeavesNoDescriptorAndNoThread)
{
    connect();
    bus.reset();
    stopServer();
    const std::size_t descriptors = openDescriptors();
    const std::size_t threads = runningThreads();
    startServer();
    for (int i = 0; i < 20; ++i) {
        Bus& own = connect();
        auto queue = own.queue<LogData>();
        EXPECT_GE(queue.fd(), 0);
        EXPECT_GE(own.fd(), 0);
        auto subscription = own.subscribe<LogData>([] {});
        bus.reset();
    }
    stopServer();
    EXPECT_EQ(openDescriptors(), descriptors);
    // The kernel lists a joined thread for a moment, possibly also when they were counted before.
    EXPECT_TRUE(eventually([&] { return runningThreads() <= threads; }));
}

TEST_F(ConnectionOfBus, CloseIsFinal)
{
    connect();
    auto queue = bus->queue<LogData>();
    bus->close();
    EXPECT_EQ(bus->state(), ConnectionState::Closed);
    EXPECT_TRUE(queue.next(kTimeout).ended());
    EXPECT_EQ(queue.error(), BusError::Closed);
    EXPECT_EQ(bus->publish(logOf("x")).error, std::errc::operation_canceled);
    LogData answer;
    EXPECT_EQ(bus->request(answer, 10ms), BusError::Closed);
    bus->close();
}

TEST_F(ConnectionOfBus, HandlesMayOutliveTheBus)
{
    connect();
    auto subscription = bus->subscribe<LogData>([] {});
    auto queue = bus->queue<LogData>();
    bus.reset();
    EXPECT_FALSE(subscription.active());
    EXPECT_EQ(subscription.waitActive(kTimeout), BusError::Closed);
    EXPECT_TRUE(queue.next(kTimeout).ended());
    subscription.end();
}

/// A server that does not do its part.
class ServerWithoutManners : public ::testing::Test
{
protected:
    TemporaryDirectory directory;
    RawServer server{directory.path("bus")};
};

TEST_F(ServerWithoutManners, AcceptsAndNeverReads)
{
    BusOptions options = impatient();
    Mailbox<BusEvent> events;
    options.onEvent = [&events](const BusEvent& event) {
        events.put(event);
    };
    Bus bus(server.path(), options);
    const RawPeer peer = server.accept();
    EXPECT_EQ(bus.publish(logOf("x")).error, BusError::NotConnected);
    EXPECT_EQ(events.take().reason, BusError::NoAnswer);
    const RawPeer again = server.accept();
}

TEST_F(ServerWithoutManners, AnswersRubbish)
{
    Bus bus(server.path(), impatient());
    const RawPeer peer = server.accept();
    for (const char* rubbish : {"{", "[]", "0", "{\"header\":1}", "{\"header\":\".subscribe\"}",
                                "{\"header\":\".unsubscribe\",\"channel\":3}", "{\"header\":\"x\"}"}) {
        peer.send(rubbish);
    }
    EXPECT_TRUE(eventually([&] { return bus.statistics().received == 7; }));
    EXPECT_EQ(bus.state(), ConnectionState::Connecting);
    peer.send(response(".unsubscribe", false, "TelvaneBus"));
    EXPECT_EQ(bus.waitConnected(kTimeout), std::error_code());
}

/// A bus on a server that answers when the test says so.
class ServerThatAnswersLate : public ServerWithoutManners
{
protected:
    ServerThatAnswersLate()
    {
        EXPECT_EQ(peer.receive(), printedUnsubscribeRequest("TelvaneBus"));
        peer.send(response(".unsubscribe", false, "TelvaneBus"));
        EXPECT_EQ(bus.waitConnected(kTimeout), std::error_code());
    }
    ~ServerThatAnswersLate() override { peer.close(); }

    void subscribeTo(int channels)
    {
        for (int i = 0; i < channels; ++i) {
            queues.push_back(bus.queue<LogData>("Channel" + std::to_string(i) + "."));
        }
    }

    /// \return the channel of the next subscribe request
    std::string nextChannel() const
    {
        const std::string request = peer.receive();
        const std::size_t begin = request.find("Channel");
        std::string channel = request.substr(begin, request.find('.', begin) + 1 - begin);
        EXPECT_EQ(request, printedSubscribeRequest(channel));
        return channel;
    }

    bool hasMore() const
    {
        pollfd entry = {peer.descriptor(), POLLIN, 0};
        return ::poll(&entry, 1, 0) == 1;
    }

    static constexpr std::size_t kWindow = 32;
    Bus bus{server.path(), impatient()};
    RawPeer peer = server.accept();
    std::vector<Queue<LogData>> queues;
};

TEST_F(ServerThatAnswersLate, GetsAFewSubscriptionsAtATime)
{
    constexpr int kChannels = 100;
    subscribeTo(kChannels); // sends, before it returns, all that may be sent
    std::deque<std::string> unanswered;
    while (hasMore()) {
        unanswered.push_back(nextChannel());
    }
    EXPECT_EQ(unanswered.size(), kWindow);
    for (int unsent = kChannels - static_cast<int>(unanswered.size()); !unanswered.empty(); --unsent) {
        peer.send(response(".subscribe", true, unanswered.front()));
        unanswered.pop_front();
        if (unsent > 0) {
            unanswered.push_back(nextChannel());
        }
    }
    for (const Queue<LogData>& queue : queues) {
        EXPECT_EQ(queue.waitActive(kTimeout), std::error_code());
    }
}

TEST_F(ServerThatAnswersLate, MayLoseItsAnswers)
{
    subscribeTo(static_cast<int>(kWindow) + 1);
    for (std::size_t i = 0; i < kWindow; ++i) {
        nextChannel();
    }
    // It loses answers only while messages wait for the bus.
    peer.send(relay("Channel0.", 1, R"({"log":"x"})"));
    EXPECT_EQ(nextChannel(), "Channel" + std::to_string(kWindow) + ".");
    EXPECT_TRUE(queues.front().next(kTimeout));
    EXPECT_EQ(bus.statistics().connections, 1U);
}

TEST_F(ServerWithoutManners, ClosesEachConnectionAtOnce)
{
    Bus bus(server.path(), impatient());
    for (int i = 0; i < 10; ++i) {
        server.accept().close();
    }
    EXPECT_TRUE(eventually([&] { return bus.reason() == BusError::TurnedAway; }));
}

TEST_F(ServerWithoutManners, IsStoppedWithAFullBacklog)
{
    // More connections than the queue holds, none of them accepted.
    TemporaryDirectory own;
    const std::string path = own.path("bus");
    const FileDescriptor listener(::socket(AF_UNIX, SOCK_SEQPACKET, 0));
    const sockaddr_un address = addressOf(path);
    ASSERT_EQ(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener.get(), 0), 0);
    const RawPeer first = RawPeer::connectedTo(path);
    Mailbox<BusEvent> events;
    BusOptions options = impatient();
    options.onEvent = [&events](const BusEvent& event) {
        events.put(event);
    };
    const Bus bus(path, options);
    EXPECT_EQ(events.take().reason, BusError::Busy);
}

TEST_F(ServerWithoutManners, NeverReadsOnceConnected)
{
    Bus bus(server.path(), impatient());
    const RawPeer peer = server.accept();
    peer.send(response(".unsubscribe", false, "TelvaneBus"));
    ASSERT_EQ(bus.waitConnected(kTimeout), std::error_code());
    const LogData large = logOf(std::string(10'000, 'x'));
    Publication publication;
    while (!publication.error) {
        publication = bus.publish(large, 10ms);
    }
    EXPECT_EQ(publication.error, BusError::TimedOut);
    EXPECT_EQ(bus.publish(large, 0ms).error, BusError::TimedOut);
    // A subscription that the server does not even take ends the connection; the next one has it.
    auto subscription = bus.subscribe<LogData>([] {});
    const RawPeer next = server.accept();
    EXPECT_EQ(next.receive(), printedSubscribeRequest("LogData"));
    next.send(response(".subscribe", true, "LogData"));
    EXPECT_EQ(subscription.waitActive(kTimeout), std::error_code());
}

} // namespace

} // namespace Telvane::Testing

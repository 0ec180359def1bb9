// Subscriptions of a bus: what they deliver, and where. Each test runs for each place of callbacks.

#include "helpers/BusClientTestSupport.h"

#include <stdexcept>

namespace Telvane::Testing
{

namespace
{

using SubscriptionOfBus = BusInEachPlace;

INSTANTIATE_TEST_SUITE_P(Everywhere, SubscriptionOfBus,
                         ::testing::Values(Run::Queued, Run::Direct, Run::Dispatch), nameOfPlace);

TEST_P(SubscriptionOfBus, DeliversRecordsInOrderWithTheirCircumstances)
{
    struct Received
    {
        std::string text;
        Delivery delivery;
    };
    Mailbox<Received> received;
    auto subscription = bus->subscribe<LogData>([&](const LogData& record, const Delivery& delivery) {
        received.put({record.log, delivery});
    });
    const auto before = std::chrono::steady_clock::now();
    publish("one");
    publish("two");
    const Received one = received.take();
    const Received two = received.take();
    EXPECT_EQ(one.text, "one");
    EXPECT_EQ(one.delivery.epoch, 1U);
    EXPECT_EQ(one.delivery.skippedNumbers, 0U);
    EXPECT_GE(one.delivery.arrival, before);
    EXPECT_EQ(two.text, "two");
    EXPECT_EQ(two.delivery.sequence, one.delivery.sequence + 1);
    EXPECT_EQ(two.delivery.skippedNumbers, 0U);
}

TEST_P(SubscriptionOfBus, CountsTheNumbersOfOtherChannelsAsSkipped)
{
    Mailbox<unsigned> skipped;
    auto subscription = bus->subscribe<LogData>(
        [&](const LogData&, const Delivery& delivery) { skipped.put(delivery.skippedNumbers); });
    auto other = bus->subscribe<LogData>("Other", [] {});
    publish("one");
    for (int i = 0; i < 3; ++i) {
        bus->publish("Other", logOf("x"));
    }
    publish("two");
    EXPECT_EQ(skipped.take(), 0U);
    EXPECT_EQ(skipped.take(), 3U);
}

TEST_P(SubscriptionOfBus, SeveralOfOneChannelAndOfDifferentClassesWorkSideBySide)
{
    Mailbox<std::string> first;
    Mailbox<std::string> second;
    Mailbox<std::string> generic;
    auto one = bus->subscribe<LogData>([&](const LogData& record) { first.put(record.log); });
    auto two = bus->subscribe<LogData>([&](const LogData& record) { second.put(record.log); });
    auto request = bus->subscribe<RequestType>("LogData", [&] { second.put("request"); });
    auto any = bus->subscribe("LogData", LogData(), [&](TelvaneDataTypeBase& record, const Delivery&) {
        generic.put(dynamic_cast<LogData&>(record).log);
    });
    publish("x");
    EXPECT_EQ(first.take(), "x");
    EXPECT_EQ(second.take(), "x");
    EXPECT_EQ(second.take(), "request");
    EXPECT_EQ(generic.take(), "x");
    one.end();
    publish("y");
    EXPECT_EQ(second.take(), "y");
    EXPECT_TRUE(first.empty());
}

TEST_P(SubscriptionOfBus, TakesCallablesThatCanOnlyBeMoved)
{
    Mailbox<std::string> received;
    auto subscription = bus->subscribe<LogData>([&, own = std::make_unique<int>(7)](const LogData& record) {
        received.put(record.log + std::to_string(*own));
    });
    publish("x");
    EXPECT_EQ(received.take(), "x7");
}

TEST_P(SubscriptionOfBus, SurvivesARestartOfTheServerAndCountsTheEpoch)
{
    Mailbox<std::uint64_t> epochs;
    auto subscription = bus->subscribe<LogData>(
        [&](const LogData&, const Delivery& delivery) { epochs.put(delivery.epoch); });
    publish("before");
    const std::uint64_t first = epochs.take();
    restartServer();
    publish("after");
    EXPECT_GT(epochs.take(), first);
}

TEST_P(SubscriptionOfBus, EndsWithItsHandle)
{
    Mailbox<std::string> received;
    Mailbox<std::string> marker;
    auto watching = bus->subscribe<LogData>([&](const LogData& record) { marker.put(record.log); });
    {
        auto subscription = bus->subscribe<LogData>([&](const LogData& record) { received.put(record.log); });
        publish("one");
        EXPECT_EQ(received.take(), "one");
    }
    marker.take();
    publish("two");
    EXPECT_EQ(marker.take(), "two");
    EXPECT_TRUE(received.empty());
}

TEST_P(SubscriptionOfBus, LastsAsLongAsTheBusWhenItIsKept)
{
    Mailbox<std::string> received;
    bus->subscribe<LogData>([&](const LogData& record) { received.put(record.log); }).keep();
    publish("x");
    EXPECT_EQ(received.take(), "x");
}

TEST_P(SubscriptionOfBus, IsUnsubscribedFromTheServerWithItsLastHandle)
{
    const auto subscribers = [this] {
        for (const auto& client : server->server.Clients()) {
            if (!client.subscriptions.empty()) {
                return client.subscriptions.size();
            }
        }
        return std::size_t(0);
    };
    auto one = bus->subscribe<LogData>([] {});
    auto two = bus->subscribe<LogData>([] {});
    EXPECT_EQ(two.waitActive(kTimeout), std::error_code());
    one.end();
    EXPECT_EQ(subscribers(), 1U);
    two.end();
    EXPECT_TRUE(eventually([&] { return subscribers() == 0; }));
}

TEST_P(SubscriptionOfBus, IsToldThatTheServerRefusedIt)
{
    auto subscription = bus->subscribe<LogData>("Channel 1", [] {});
    EXPECT_EQ(subscription.waitActive(kTimeout), BusError::Refused);
    EXPECT_EQ(subscription.error(), BusError::Refused);
    EXPECT_EQ(bus->state(), ConnectionState::Connected);
}

TEST_P(SubscriptionOfBus, CountsWhatItsClassCannotRead)
{
    Mailbox<std::string> received;
    const StreamCapture lines(STDERR_FILENO);
    auto subscription = bus->subscribe<LogData>([&](const LogData& record) { received.put(record.log); });
    bus->publish("LogData", RequestType());
    publish("x");
    EXPECT_EQ(received.take(), "x");
    EXPECT_EQ(subscription.statistics().undecodable, 1U);
}

TEST_P(SubscriptionOfBus, ReadsRelaysInAnyLayoutAndCountsWhatIsNotJson)
{
    TemporaryDirectory directory;
    const RawServer raw(directory.path("bus"));
    Bus own(raw.path(), impatient());
    auto queue = own.queue<LogData>();
    const RawPeer peer = raw.accept();
    std::string request = peer.receive();
    if (request == printedUnsubscribeRequest("TelvaneBus")) { // connected before the queue was made
        peer.send(response(".unsubscribe", false, "TelvaneBus"));
        request = peer.receive();
    }
    EXPECT_EQ(request, printedSubscribeRequest("LogData"));
    peer.send(response(".subscribe", true, "LogData"));
    ASSERT_EQ(queue.waitActive(kTimeout), std::error_code());
    const std::string printed = "{\n\t\"header\":\t\"LogData\",\n\t\"sequence\":\t7,\n\t\"payload\":\t";
    peer.send(printed + "{\n\t\t\"log\":\t\"as printed\"\n\t}\n}");
    peer.send(printed + "{\"LOG\":\"other layout\"}}");
    peer.send(printed + "{\n\t\t\"log\":\t\"cut");
    peer.send(R"({"payload":{"log":"compact"},"sequence":8,"header":"LogData"})");
    EXPECT_EQ(nextMessage(queue).log, "as printed");
    EXPECT_EQ(nextMessage(queue).log, "other layout");
    const auto compact = queue.next(kTimeout);
    ASSERT_TRUE(compact);
    EXPECT_EQ(compact->log, "compact");
    EXPECT_EQ(compact.delivery().sequence, 8);
    EXPECT_EQ(compact.delivery().skippedNumbers, 0U);
    EXPECT_EQ(own.statistics().notJson, 1U);
    EXPECT_EQ(queue.statistics().undecodable, 0U);
}

TEST_P(SubscriptionOfBus, GoesOnAfterItsCallbackHasThrown)
{
    Mailbox<std::string> received;
    const StreamCapture lines(STDERR_FILENO);
    auto subscription = bus->subscribe<LogData>([&](const LogData& record) {
        if (record.log == "number") {
            throw 3;
        }
        if (record.log == "bad") {
            throw std::runtime_error("what went wrong");
        }
        received.put(record.log);
    });
    publish("bad");
    publish("number");
    publish("good");
    EXPECT_EQ(received.take(), "good");
    EXPECT_EQ(subscription.statistics().threw, 2U);
    EXPECT_NE(lines.text().find("what went wrong"), std::string::npos);
}

TEST_P(SubscriptionOfBus, CallbacksMaySubscribePublishAndEndThemselvesAndOthers)
{
    Mailbox<std::string> received;
    Subscription self;
    Subscription other = bus->subscribe<LogData>("Other", [&] { received.put("other"); });
    std::vector<Subscription> made;
    Gate assigned;
    self = bus->subscribe<LogData>([&](const LogData&) {
        assigned.pass();
        made.push_back(
            bus->subscribe<LogData>("Made", [&](const LogData& record) { received.put(record.log); }));
        other.end();
        self.end();
        bus->publish("Other", logOf("nothing"));
        bus->publish("Made", logOf("made"));
        EXPECT_FALSE(self.active());
    });
    assigned.open();
    publish("go");
    EXPECT_EQ(received.take(), "made");
    publish("not again");
    bus->publish("Made", logOf("last"));
    EXPECT_EQ(received.take(), "last");
    EXPECT_TRUE(received.empty());
    made.clear();
}

TEST_P(SubscriptionOfBus, ACallbackMayBeDestroyedInItself)
{
    Mailbox<std::string> received;
    auto own = std::make_shared<Subscription>();
    *own = bus->subscribe<LogData>([&received, own](const LogData& record) mutable {
        own->end();
        own.reset(); // the callable holds the other reference no more either
        received.put(record.log);
    });
    own.reset();
    publish("x");
    EXPECT_EQ(received.take(), "x");
}

TEST_P(SubscriptionOfBus, IsNamedByItsClassWithoutItsNamespace)
{
    Mailbox<std::string> received;
    auto subscription = bus->subscribe<TimeType>([&] { received.put("TimeType"); });
    bus->publish("TimeType", TimeType());
    EXPECT_EQ(received.take(), "TimeType");
}

} // namespace

} // namespace Telvane::Testing

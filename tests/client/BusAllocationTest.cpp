// A bus while memory runs out: every allocation of every operation fails once, on the thread that makes it.
// Nothing is thrown but by the constructor, every failure is reported, and with memory back the next call works.

#include "helpers/AllocationFaults.h"
#include "helpers/BusClientTestSupport.h"

#include <new>

namespace Telvane::Testing
{

namespace
{

class BusMemory : public UnderShortage
{
protected:
    const StreamCapture lines{STDERR_FILENO}; // refused relays, thrown exceptions
    RunningServer server;
    const LogData m_record = logOf("a text that is longer than what a string holds by itself");
};

INSTANTIATE_TEST_SUITE_P(Memory, BusMemory, ::testing::Values(Shortage::Once, Shortage::Persistent),
                         nameOfShortage);

TEST_P(BusMemory, RunsOutInTheConstructor)
{
    failEach(Caller::Application, [&](AllocationFault& fault) {
        std::optional<Bus> bus;
        try {
            fault.during([&] { bus.emplace(server.path, impatient()); });
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(fault.triggered());
            bus.emplace(server.path, impatient());
        }
        EXPECT_EQ(bus->waitConnected(kTimeout), std::error_code());
    });
}

TEST_P(BusMemory, RunsOutInPublish)
{
    Bus bus(server.path, impatient());
    ASSERT_EQ(bus.waitConnected(kTimeout), std::error_code());
    auto queue = bus.queue<LogData>();
    failEach(Caller::Application, [&](AllocationFault& fault) {
        const Publication publication = fault.during([&] { return bus.publish(m_record); });
        EXPECT_EQ(publication.error,
                  fault.triggered() ? make_error_code(BusError::OutOfMemory) : std::error_code());
        if (publication.error) {
            EXPECT_EQ(bus.publish(m_record).error, std::error_code());
        }
        EXPECT_EQ(nextMessage(queue).log, m_record.log);
    });
}

TEST_P(BusMemory, RunsOutInSubscribe)
{
    Bus bus(server.path, impatient());
    ASSERT_EQ(bus.waitConnected(kTimeout), std::error_code());
    failEach(Caller::Application, [&](AllocationFault& fault) {
        Mailbox<int> received;
        Subscription subscription;
        fault.begin();
        subscription = bus.subscribe<LogData>([&received] { received.put(1); }, Telvane::Run::Direct);
        fault.end();
        if (subscription.error()) {
            EXPECT_EQ(subscription.error(), BusError::OutOfMemory);
            subscription = bus.subscribe<LogData>([&received] { received.put(1); }, Telvane::Run::Direct);
        }
        EXPECT_EQ(subscription.waitActive(kTimeout), std::error_code());
        EXPECT_TRUE(eventually([&] { return !bus.publish(m_record).error; }));
        received.take();
    });
}

TEST_P(BusMemory, RunsOutInASubscriptionToTexts)
{
    Bus bus(server.path, impatient());
    ASSERT_EQ(bus.waitConnected(kTimeout), std::error_code());
    const auto failEachStep = [&](AllocationFault& fault) {
        Mailbox<int> received;
        const auto callback = [&received](std::string_view, const Delivery&) {
            received.put(1);
        };
        fault.begin();
        Subscription subscription = bus.subscribeText("LogData", callback);
        subscription.waitActive(50ms);
        bus.publish(m_record, 10ms);
        fault.end();
        if (subscription.error()) {
            subscription = bus.subscribeText("LogData", callback);
        }
        EXPECT_EQ(subscription.waitActive(kTimeout), std::error_code());
        EXPECT_TRUE(eventually([&] { return !bus.publish(m_record).error; }));
        received.take();
    };
    failEach(Caller::Application, failEachStep);
    failEachAllocation(Caller::ClientReceiver, GetParam(), failEachStep);
}

TEST_P(BusMemory, RunsOutInRequest)
{
    Bus bus(server.path, impatient());
    ASSERT_EQ(bus.waitConnected(kTimeout), std::error_code());
    auto responder = bus.respond<LogData, LogData>("Echo", [](const LogData& question) { return question; });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    failEach(Caller::Application, [&](AllocationFault& fault) {
        LogData answer;
        std::error_code error;
        fault.during([&] { error = bus.request("Echo", m_record, answer, 100ms); });
        // On a busy machine, a request without a fault may time out too. The next one is repeated.
        EXPECT_TRUE(!error || error == BusError::TimedOut || fault.triggered()) << error.message();
        EXPECT_TRUE(eventually([&] { return !bus.request("Echo", m_record, answer, 1s); }));
        EXPECT_EQ(answer.log, m_record.log);
    });
}

TEST_P(BusMemory, RunsOutOnItsThreadsWhileTheyConnectAndDeliver)
{
    failEachAllocation(Caller::ClientReceiver, GetParam(), [&](AllocationFault& fault) {
        fault.begin();
        Bus bus(server.path, impatient());
        auto queue = bus.queue<LogData>();
        queue.waitActive(50ms);
        bus.publish(m_record, 10ms);
        queue.next(20ms);
        fault.end();
        ASSERT_EQ(queue.waitActive(kTimeout), std::error_code());
        ASSERT_EQ(bus.waitConnected(kTimeout), std::error_code());
        // A connection that lost an answer because there was no memory may be about to end.
        EXPECT_TRUE(eventually([&] {
            bus.publish(m_record);
            const auto item = queue.next(1s);
            return item && item->log == m_record.log;
        }));
    });
}

} // namespace

} // namespace Telvane::Testing

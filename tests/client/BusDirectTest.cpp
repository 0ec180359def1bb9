// Subscriptions that get many messages with nothing between them, so that the receiver thread runs their callbacks
// without the lock of the bus; and what other threads and the callback itself do at that time.

#include "helpers/BusClientTestSupport.h"

#include <functional>
#include <mutex>
#include <new>
#include <stdexcept>
#include <typeinfo>

namespace Telvane::Testing
{

namespace
{

class DirectCallbacks : public ServedBus
{
protected:
    DirectCallbacks()
    {
        BusOptions options = impatient(Run::Direct);
        connect(options);
    }
    ~DirectCallbacks() override { leave.open(); }

    void publish(const std::string& text) { EXPECT_EQ(bus->publish(logOf(text)).error, std::error_code()); }

    /// Publishes until the receiver no longer takes the lock.
    void warmUp()
    {
        for (int i = 0; i < kFew; ++i) {
            publish("warm");
            received.take();
        }
    }

    static constexpr int kFew = 5;
    Mailbox<int> received;
    Gate entered;
    Gate leave;
};

/// A record that is built in the way that a test wants.
class BuiltLogData : public LogData
{
public:
    TelvaneDataTypeBase* BuildNewDataType() const override
    {
        std::function<void()> before;
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            before = m_before;
        }
        if (before) {
            before();
        }
        return new BuiltLogData;
    }

    /// Without it, messages of a class that is derived from another one are not read directly.
    const RecordTable* _recordTable() const override { return recordTable().ifCovers(typeid(LogData)); }

    static void before(std::function<void()> action)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_before = std::move(action);
    }

private:
    static inline std::mutex m_lock;
    static inline std::function<void()> m_before;
};

TEST_F(DirectCallbacks, AreNotRunForARecordThatIsBeingReadWhenTheyEnd)
{
    std::atomic<int> calls{0};
    Subscription subscription = bus->subscribe<BuiltLogData>("LogData", [&] {
        ++calls;
        received.put(1);
    });
    warmUp();
    BuiltLogData::before([this] {
        entered.open();
        leave.pass();
    });
    publish("held");
    EXPECT_TRUE(entered.pass());
    subscription.end(); // does not wait, as no callback is running
    leave.open();
    const Subscription other = bus->subscribe<LogData>([&] { received.put(2); });
    ASSERT_EQ(other.waitActive(kTimeout), std::error_code());
    BuiltLogData::before({});
    publish("after");
    EXPECT_EQ(received.take(), 2);
    EXPECT_EQ(calls, kFew);
}

TEST_F(DirectCallbacks, AMessageWithoutMemoryIsCountedAndTheNextOneArrives)
{
    Subscription subscription = bus->subscribe<BuiltLogData>("LogData", [&] { received.put(1); });
    warmUp();
    const std::uint64_t before = bus->statistics().received;
    BuiltLogData::before([] { throw std::bad_alloc(); });
    publish("lost");
    EXPECT_TRUE(eventually([&] { return bus->statistics().outOfMemory == 1; }));
    BuiltLogData::before({});
    warmUp();
    EXPECT_EQ(bus->statistics().received, before + 1 + kFew);
}

TEST_F(DirectCallbacks, EndWaitsForTheRunningCallback)
{
    std::atomic<int> calls{0};
    std::atomic<bool> inside{false};
    Subscription subscription = bus->subscribe<LogData>([&] {
        if (++calls <= kFew) {
            received.put(1);
            return;
        }
        inside = true;
        entered.open();
        leave.pass();
        inside = false;
    });
    warmUp();
    publish("held");
    entered.pass();
    std::future<bool> ended = std::async(std::launch::async, [&] {
        subscription.end();
        return !inside;
    });
    EXPECT_TRUE(eventually([&] { return !subscription.active(); }));
    leave.open();
    EXPECT_TRUE(ended.get());
    const Subscription other = bus->subscribe<LogData>([&] { received.put(2); });
    ASSERT_EQ(other.waitActive(kTimeout), std::error_code());
    publish("after");
    EXPECT_EQ(received.take(), 2);
    EXPECT_EQ(calls, kFew + 1);
    EXPECT_EQ(subscription.statistics().delivered, kFew + 1U);
}

TEST_F(DirectCallbacks, ACallbackMayEndItself)
{
    std::atomic<int> calls{0};
    Subscription subscription;
    subscription = bus->subscribe<LogData>([&] {
        if (++calls == kFew + 1) {
            subscription.end();
        }
        received.put(1);
    });
    warmUp();
    publish("last");
    received.take();
    EXPECT_FALSE(subscription.active());
    Subscription other = bus->subscribe<LogData>([&] { received.put(2); });
    ASSERT_EQ(other.waitActive(kTimeout), std::error_code());
    publish("after");
    EXPECT_EQ(received.take(), 2);
    EXPECT_EQ(calls, kFew + 1);
}

TEST_F(DirectCallbacks, ACallbackMayCloseTheBus)
{
    std::atomic<int> calls{0};
    std::error_code published;
    Subscription subscription = bus->subscribe<LogData>([&] {
        if (++calls == kFew + 1) {
            bus->close();
            published = bus->publish(logOf("too late")).error;
        }
        received.put(1);
    });
    warmUp();
    publish("last");
    received.take();
    EXPECT_EQ(published, BusError::Closed);
    EXPECT_FALSE(subscription.active());
    bus.reset();
    EXPECT_EQ(calls, kFew + 1);
}

TEST_F(DirectCallbacks, AnotherSubscriptionToTheChannelGetsTheNextMessage)
{
    Subscription subscription = bus->subscribe<LogData>([&] { received.put(1); });
    warmUp();
    Mailbox<int> others;
    Subscription other = bus->subscribe<LogData>([&] { others.put(1); });
    publish("both");
    received.take();
    others.take();
    other.end();
    warmUp();
    EXPECT_TRUE(eventually([&] { return subscription.statistics().delivered == 2U * kFew + 1; }));
}

TEST_F(DirectCallbacks, AnExceptionIsCountedAndTheNextMessageArrives)
{
    std::atomic<int> calls{0};
    Subscription subscription = bus->subscribe<LogData>([&] {
        received.put(1);
        if (++calls == kFew + 1) {
            throw std::runtime_error("on purpose");
        }
    });
    warmUp();
    warmUp();
    EXPECT_EQ(subscription.statistics().threw, 1U);
    EXPECT_TRUE(eventually([&] { return subscription.statistics().delivered == std::uint64_t{2} * kFew; }));
}

} // namespace

} // namespace Telvane::Testing

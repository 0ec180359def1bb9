// The ends of subscriptions and of the bus itself, while callbacks run: each race in a form that always
// happens, by holding a callback on purpose.

#include "helpers/BusClientTestSupport.h"

namespace Telvane::Testing
{

namespace
{

class EndingOfBus : public BusInEachPlace
{
protected:
    ~EndingOfBus() override { leave.open(); }

    /// Subscribes with a callback that waits for `leave` once it has opened `entered`.
    Subscription subscribeHeld()
    {
        return bus->subscribe<LogData>([this] {
            ++calls;
            entered.open();
            leave.pass();
            inside = false;
        });
    }

    std::atomic<int> calls{0};
    std::atomic<bool> inside{true};
    Gate entered;
    Gate leave;
};

INSTANTIATE_TEST_SUITE_P(Everywhere, EndingOfBus, ::testing::Values(Run::Queued, Run::Direct, Run::Dispatch),
                         nameOfPlace);

TEST_P(EndingOfBus, EndWaitsForTheCallbackThatRuns)
{
    Subscription subscription = subscribeHeld();
    publish("x");
    publish("x");
    ASSERT_TRUE(entered.pass());
    std::future<bool> ended = std::async(std::launch::async, [&] {
        subscription.end();
        return inside.load();
    });
    EXPECT_TRUE(eventually([&] { return !subscription.active(); })); // the end has begun
    EXPECT_EQ(ended.wait_for(kQuietTime), std::future_status::timeout);
    leave.open();
    EXPECT_FALSE(ended.get());
    publish("x");
    EXPECT_EQ(calls, 1);
}

TEST_P(EndingOfBus, CancelDoesNotWait)
{
    Subscription subscription = subscribeHeld();
    publish("x");
    publish("x");
    ASSERT_TRUE(entered.pass());
    subscription.cancel();
    EXPECT_FALSE(subscription.active());
    EXPECT_TRUE(inside);
    leave.open();
    subscription.end(); // waits even so
    EXPECT_FALSE(inside);
    EXPECT_EQ(calls, 1);
}

TEST_P(EndingOfBus, TheCallableIsDestroyedBeforeEndReturns)
{
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> alive = token;
    Subscription subscription = bus->subscribe<LogData>([this, token = std::move(token)] {
        entered.open();
        leave.pass();
    });
    publish("x");
    ASSERT_TRUE(entered.pass());
    leave.open();
    subscription.end();
    EXPECT_TRUE(alive.expired());
}

TEST_P(EndingOfBus, TwoCallbacksMayEndEachOther)
{
    // One on the receiver thread, the other where this test's callbacks run: each waits for both to run.
    Mailbox<int> done;
    Gate bothRun;
    std::atomic<int> running{0};
    Subscription one;
    Subscription two;
    const auto endOther = [&](Subscription& other) {
        if (++running == 2) {
            bothRun.open();
        }
        bothRun.pass();
        other.end();
        done.put(1);
    };
    Gate assigned;
    one = bus->subscribe<LogData>("One", [&] {
        assigned.pass();
        endOther(two);
    });
    two = bus->subscribe<LogData>(
        "Two",
        [&] {
            assigned.pass();
            endOther(one);
        },
        GetParam() == Run::Direct ? Run::Queued : Run::Direct);
    assigned.open();
    // First the one that is queued: the other holds the receiver.
    bus->publish(GetParam() == Run::Direct ? "Two" : "One", logOf("x"));
    bus->publish(GetParam() == Run::Direct ? "One" : "Two", logOf("x"));
    done.take();
    done.take();
}

TEST_P(EndingOfBus, TheBusWaitsForTheCallbackThatRuns)
{
    subscribeHeld().keep();
    publish("x");
    ASSERT_TRUE(entered.pass());
    std::future<bool> ended = std::async(std::launch::async, [&] {
        bus->close();
        return inside.load();
    });
    EXPECT_EQ(ended.wait_for(kQuietTime), std::future_status::timeout);
    leave.open();
    EXPECT_FALSE(ended.get());
}

TEST_P(EndingOfBus, TheBusMayBeClosedInACallback)
{
    Mailbox<int> closed;
    bus->subscribe<LogData>([&] {
           bus->close();
           closed.put(1);
       })
        .keep();
    publish("x");
    closed.take();
    EXPECT_EQ(bus->state(), ConnectionState::Closed);
}

TEST_P(EndingOfBus, TheBusMayBeDestroyedInACallback)
{
    auto own = std::make_unique<Bus>(server->path, impatient(GetParam()));
    ASSERT_EQ(own->waitConnected(kTimeout), std::error_code());
    Mailbox<int> destroyed;
    auto subscription = own->subscribe<LogData>([&] {
        own.reset();
        destroyed.put(1);
    });
    ASSERT_EQ(subscription.waitActive(kTimeout), std::error_code());
    std::move(subscription).keep();
    publish("x"); // on another bus: no other thread may use this one while the callback destroys it
    if (GetParam() == Run::Dispatch) {
        pollfd watched = {own->fd(), POLLIN, 0};
        ASSERT_EQ(::poll(&watched, 1, 40'000), 1);
        Bus& bare = *own;
        bare.dispatch();
    }
    destroyed.take();
    EXPECT_TRUE(eventually([] { return runningThreads() <= 8; }));
}

TEST_P(EndingOfBus, RequestsAndQueuesEndWithTheBus)
{
    auto queue = bus->queue<LogData>();
    std::future<bool> taken = std::async(std::launch::async, [&] { return queue.next(kTimeout).ended(); });
    std::future<std::error_code> asked = std::async(std::launch::async, [&] {
        LogData answer;
        return bus->request(answer, kTimeout);
    });
    auto witness = bus->queue<RequestType>("req_LogData");
    EXPECT_EQ(witness.waitActive(kTimeout), std::error_code());
    bus->close();
    EXPECT_TRUE(taken.get());
    EXPECT_EQ(asked.get(), BusError::Closed);
}

} // namespace

} // namespace Telvane::Testing

// A bus when the system fails it: what each operation says then, and that the bus goes on where it can.

#include "helpers/BusClientTestSupport.h"
#include "helpers/FaultInjection.h"

#include <cerrno>

namespace Telvane::Testing
{

namespace
{

using Telvane::Run;

std::error_code systemError(int error)
{
    return {error, std::system_category()};
}

class FaultOfBus : public ServedBus
{
protected:
    ~FaultOfBus() override { bus.reset(); } // before what its callback uses

    /// \return options that report failed attempts and losses
    BusOptions reporting()
    {
        BusOptions options = impatient();
        options.onEvent = [this](const BusEvent& event) {
            if (event.reason) {
                reasons.put(event.reason);
            }
        };
        return options;
    }

    Mailbox<std::error_code> reasons;
};

TEST_F(FaultOfBus, WithoutADescriptorToWakeItIsClosedAtOnce)
{
    const Fault fault({Call::CreateEventDescriptor, Caller::Application, EMFILE});
    Bus own(server->path);
    EXPECT_EQ(own.state(), ConnectionState::Closed);
    EXPECT_EQ(own.reason(), systemError(EMFILE));
    EXPECT_EQ(own.waitConnected(kTimeout), BusError::Closed);
    EXPECT_EQ(own.queue<LogData>().error(), systemError(EMFILE));
}

TEST_F(FaultOfBus, WithoutItsThreadsIsClosedAtOnce)
{
    for (const int started : {0, 1}) { // the worker, which reports events, then the receiver
        const Fault fault({Call::CreateThread, Caller::Application, EAGAIN, started});
        Bus own(server->path, reporting());
        EXPECT_EQ(own.state(), ConnectionState::Closed);
        EXPECT_EQ(own.reason(), systemError(EAGAIN));
        EXPECT_EQ(own.publish(logOf("x")).error, BusError::Closed);
    }
}

TEST_F(FaultOfBus, SubscriptionsWithoutAWorkerSayWhy)
{
    connect();
    const Fault fault({Call::CreateThread, Caller::Application, EAGAIN});
    const auto refused = bus->subscribe<LogData>([] {});
    EXPECT_EQ(refused.error(), systemError(EAGAIN));
    EXPECT_FALSE(refused.active());
    const auto direct = bus->subscribe<LogData>([] {}, Run::Direct);
    EXPECT_EQ(direct.waitActive(kTimeout), std::error_code());
    const auto next = bus->subscribe<LogData>([] {});
    EXPECT_EQ(next.waitActive(kTimeout), std::error_code());
}

TEST_F(FaultOfBus, DescriptorsForEventLoopsMayBeAskedForAgain)
{
    connect();
    auto queue = bus->queue<LogData>();
    const Fault fault({Call::CreateEventDescriptor, Caller::Application, ENFILE, 0, 2});
    errno = 0;
    EXPECT_EQ(queue.fd(), -1);
    EXPECT_EQ(errno, ENFILE);
    errno = 0;
    EXPECT_EQ(bus->fd(), -1);
    EXPECT_EQ(errno, ENFILE);
    EXPECT_GE(queue.fd(), 0);
    EXPECT_GE(bus->fd(), 0);
}

TEST_F(FaultOfBus, WithoutASocketIsToldAndTriedAgain)
{
    const Fault fault({Call::Socket, Caller::ClientReceiver, EMFILE, 0, 2});
    Bus own(server->path, reporting());
    EXPECT_EQ(reasons.take(), systemError(EMFILE));
    EXPECT_EQ(own.waitConnected(kTimeout), std::error_code());
    EXPECT_EQ(own.reason(), std::error_code());
    EXPECT_EQ(fault.failures(), 2);
}

struct FailedConnect
{
    int error;
    std::error_code reason;
};

class AttemptOfBus : public FaultOfBus, public ::testing::WithParamInterface<FailedConnect>
{};

TEST_P(AttemptOfBus, ThatFailsIsToldByItsReasonAndTriedAgain)
{
    const Fault fault({Call::Connect, Caller::ClientReceiver, GetParam().error, 0, 3});
    Bus own(server->path, reporting());
    EXPECT_EQ(reasons.take(), GetParam().reason);
    EXPECT_EQ(own.waitConnected(kTimeout), std::error_code());
    own.close();
    EXPECT_TRUE(reasons.empty()) << "the same reason is reported once";
}

INSTANTIATE_TEST_SUITE_P(
    Each, AttemptOfBus,
    ::testing::Values(FailedConnect{ENOENT, BusError::NoServer},
                      FailedConnect{ECONNREFUSED, BusError::NoServer},
                      FailedConnect{EACCES, BusError::NoPermission},
                      FailedConnect{EPERM, BusError::NoPermission}, FailedConnect{EAGAIN, BusError::Busy},
                      FailedConnect{EINTR, BusError::Busy}, FailedConnect{EPROTOTYPE, BusError::NotABus},
                      FailedConnect{ENOTSOCK, BusError::NotABus}, FailedConnect{ENOMEM, systemError(ENOMEM)}),
    [](const auto& parameter) -> std::string { return ::strerrorname_np(parameter.param.error); });

struct FailedSend
{
    int error;
    BusError result;
};

TEST_F(FaultOfBus, PublishSaysWhyTheSystemDidNotTakeTheMessage)
{
    connect();
    auto queue = bus->queue<LogData>();
    ASSERT_EQ(queue.waitActive(kTimeout), std::error_code());
    for (const FailedSend& failed :
         {FailedSend{ENOBUFS, BusError::OutOfMemory}, FailedSend{ENOMEM, BusError::OutOfMemory},
          FailedSend{EMSGSIZE, BusError::TooLarge}, FailedSend{EPIPE, BusError::NotConnected},
          FailedSend{ECONNRESET, BusError::NotConnected}}) {
        const Fault fault({Call::Send, Caller::Application, failed.error});
        EXPECT_EQ(bus->publish(logOf("not sent")).error, failed.result);
    }
    {
        const Fault interrupted({Call::Send, Caller::Application, EINTR, 0, 3});
        EXPECT_EQ(bus->publish(logOf("sent")).error, std::error_code());
        const Fault full({Call::Send, Caller::Application, EAGAIN, 0, 3});
        EXPECT_EQ(bus->publish(logOf("sent too")).error, std::error_code());
    }
    EXPECT_EQ(nextMessage(queue).log, "sent");
    EXPECT_EQ(nextMessage(queue).log, "sent too");
}

TEST_F(FaultOfBus, ARequestThatCannotBeSentFailsAtOnce)
{
    connect();
    auto responder = bus->respond<LogData>([] { return logOf("answer"); });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    LogData answer;
    ASSERT_EQ(bus->request(answer, kTimeout), std::error_code());
    {
        const Fault fault({Call::Send, Caller::Application, ENOBUFS}); // subscribed already: of the request
        EXPECT_EQ(bus->request(answer, kTimeout), BusError::OutOfMemory);
    }
    EXPECT_EQ(bus->request(answer, kTimeout), std::error_code());
}

TEST_F(FaultOfBus, AnAnswerThatCannotBeSentIsCounted)
{
    connect();
    auto responder = bus->respond<LogData>([] { return logOf("answer"); });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    Bus asking(server->path);
    ASSERT_EQ(asking.waitConnected(kTimeout), std::error_code());
    const Fault fault({Call::Send, Caller::ClientReceiver, ENOBUFS});
    LogData answer;
    EXPECT_EQ(asking.request(answer, 1s), BusError::TimedOut);
    EXPECT_TRUE(eventually([&] { return responder.statistics().unanswered == 1; }));
    EXPECT_EQ(asking.request(answer, kTimeout), std::error_code());
}

TEST_F(FaultOfBus, ConnectsAgainWhenASubscriptionCannotBeSent)
{
    connect(reporting());
    const Fault fault({Call::Send, Caller::Application, ENOBUFS});
    auto queue = bus->queue<LogData>();
    EXPECT_EQ(reasons.take(), BusError::Lost);
    EXPECT_EQ(queue.waitActive(kTimeout), std::error_code());
    EXPECT_EQ(bus->statistics().connections, 2U);
}

TEST_F(FaultOfBus, ConnectsAgainWhenTheReceiverCannotSend)
{
    for (const int passing : {0, 1}) { // the first request of a connection, and one after an answer
        const Fault fault({Call::Send, Caller::ClientReceiver, ECONNRESET, passing});
        Bus own(server->path, impatient());
        auto first = own.queue<LogData>("First");
        auto second = own.queue<LogData>("Second");
        EXPECT_EQ(first.waitActive(kTimeout), std::error_code());
        EXPECT_EQ(second.waitActive(kTimeout), std::error_code());
    }
}

TEST_F(FaultOfBus, WhatTheOutboxCannotSendIsSentOnTheNextConnection)
{
    stopServer();
    BusOptions options = impatient();
    options.outbox = {10, 1h};
    Bus own(server->path, options);
    auto queue = own.queue<LogData>();
    EXPECT_TRUE(own.publish(logOf("first")).queued);
    EXPECT_TRUE(own.publish(logOf("second")).queued);
    const Fault fault({Call::Send, Caller::ClientReceiver, EPIPE, 1, 1}); // after the subscription
    startServer();
    EXPECT_EQ(nextMessage(queue).log, "first");
    EXPECT_EQ(nextMessage(queue).log, "second");
    EXPECT_EQ(fault.failures(), 1);
}

TEST_F(FaultOfBus, AnInterruptedReceiveLosesNothing)
{
    for (const int passing : {0, 2}) { // while it connects, and later
        const Fault fault({Call::Receive, Caller::ClientReceiver, EINTR, passing, 5});
        Bus own(server->path, impatient());
        auto queue = own.queue<LogData>();
        ASSERT_EQ(queue.waitActive(kTimeout), std::error_code());
        ASSERT_EQ(own.publish(logOf("text")).error, std::error_code());
        EXPECT_EQ(nextMessage(queue).log, "text");
        EXPECT_EQ(fault.failures(), 5);
        EXPECT_EQ(own.statistics().connections, 1U);
    }
}

TEST_F(FaultOfBus, ConnectsAgainWhenReceivingFails)
{
    for (const int passing : {0, 1, 2}) { // before the first answer, and later
        const Fault fault({Call::Receive, Caller::ClientReceiver, ECONNRESET, passing});
        Bus own(server->path, impatient());
        auto queue = own.queue<LogData>();
        EXPECT_TRUE(fault.awaitFailures(1));
        ASSERT_EQ(queue.waitActive(kTimeout), std::error_code());
        EXPECT_TRUE(eventually([&] { return !own.publish(logOf("text"), 100ms).error; }));
    }
}

} // namespace

} // namespace Telvane::Testing

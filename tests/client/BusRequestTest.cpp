// Requests and responders of a bus: who gets which answer, and how each wait ends.

#include "helpers/BusClientTestSupport.h"

#include <Telvane/DeviceRecords.h>
#include <Telvane/EventClient.h>

namespace Telvane::Testing
{

namespace
{

class RequestOnBus : public BusInEachPlace
{
protected:
    void SetUp() override
    {
        asker.emplace(server->path, impatient());
        ASSERT_EQ(asker->waitConnected(kTimeout), std::error_code());
    }

    /// Answers with the argument's text in brackets.
    Responder respond()
    {
        Responder responder = bus->respond<LogData, LogData>(
            "Echo", [](const LogData& question) { return logOf("[" + question.log + "]"); });
        EXPECT_EQ(responder.waitActive(kTimeout), std::error_code());
        return responder;
    }
    std::string ask(Bus& on, const std::string& text, std::chrono::nanoseconds timeout = kTimeout)
    {
        LogData answer;
        const std::error_code error = on.request("Echo", logOf(text), answer, timeout);
        return error ? error.message() : answer.log;
    }

    std::optional<Bus> asker;
};

INSTANTIATE_TEST_SUITE_P(Everywhere, RequestOnBus, ::testing::Values(Run::Queued, Run::Direct, Run::Dispatch),
                         nameOfPlace);

TEST_P(RequestOnBus, IsAnsweredByAResponder)
{
    auto responder = bus->respond<HALInfo>([] {
        HALInfo info;
        info.serialNumber = "0042";
        return info;
    });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    HALInfo info;
    std::uint64_t requests = 0;
    EXPECT_TRUE(eventually([&] { // a busy machine may stall for longer than the default time-out
        ++requests;
        const std::error_code error = asker->request(info);
        EXPECT_TRUE(!error || error == BusError::TimedOut) << error.message();
        return !error;
    }));
    EXPECT_EQ(info.serialNumber, "0042");
    EXPECT_EQ(info._id, "");
    EXPECT_EQ(asker->request(info, kTimeout), std::error_code());
    ++requests;
    EXPECT_TRUE(eventually([&] { return responder.statistics().delivered == requests; }));
}

TEST_P(RequestOnBus, CarriesAnArgument)
{
    auto responder = respond();
    EXPECT_EQ(ask(*asker, "one"), "[one]");
    EXPECT_EQ(ask(*asker, "two"), "[two]");
}

TEST_P(RequestOnBus, OfManyThreadsGetTheirOwnAnswersEach)
{
    auto responder = respond();
    std::vector<std::future<bool>> askers;
    for (int thread = 0; thread < 8; ++thread) {
        askers.push_back(std::async(std::launch::async, [&, thread] {
            Bus& on = thread % 2 == 0 ? *asker : *bus;
            for (int i = 0; i < 50; ++i) {
                const std::string text = std::to_string(thread) + "-" + std::to_string(i);
                if (ask(on, text) != "[" + text + "]") {
                    return false;
                }
            }
            return true;
        }));
    }
    for (auto& result : askers) {
        EXPECT_TRUE(result.get());
    }
}

TEST_P(RequestOnBus, TimesOutWhenNobodyAnswers)
{
    LogData answer = logOf("unchanged");
    EXPECT_EQ(asker->request(answer, 20ms), BusError::TimedOut);
    EXPECT_EQ(answer.log, "unchanged");
}

TEST_P(RequestOnBus, MayBeLeftUnanswered)
{
    auto responder = bus->respond<LogData>([]() -> std::optional<LogData> { return std::nullopt; });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    LogData answer;
    EXPECT_EQ(asker->request(answer, 20ms), BusError::TimedOut);
}

TEST_P(RequestOnBus, NeverTakesTheLateAnswerToAnother)
{
    Gate late;
    Mailbox<int> entered;
    auto responder = bus->respond<LogData, LogData>("Echo", [&](const LogData& question) {
        entered.put(1);
        late.pass();
        return logOf("[" + question.log + "]");
    });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    EXPECT_EQ(ask(*asker, "first", 20ms), "timed out");
    entered.take();
    std::future<std::string> second = std::async(std::launch::async, [&] { return ask(*asker, "second"); });
    // The answer to the first request comes while the second one waits.
    late.open();
    EXPECT_EQ(second.get(), "[second]");
}

TEST_P(RequestOnBus, TakesAnAnswerWithoutIdentifierAsTheDescribedClientDoes)
{
    EventClient described;
    ASSERT_EQ(described.Connect(server->path), 0);
    ASSERT_EQ(described.Subscribe(
                  "req_LogData",
                  [&](void*, TelvaneDataTypeBase*, int, void*) {
                      LogData answer = logOf("plain");
                      described.Publish("LogData", answer);
                  },
                  RequestType(), nullptr),
              0);
    LogData answer;
    EXPECT_EQ(asker->request(answer, kTimeout), std::error_code());
    EXPECT_EQ(answer.log, "plain");
    described.Disconnect();
}

TEST_P(RequestOnBus, OfTheDescribedClientIsAnsweredByAResponder)
{
    auto responder = bus->respond<LogData>([] { return logOf("typed"); });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    EventClient described;
    ASSERT_EQ(described.Connect(server->path), 0);
    LogData answer;
    EXPECT_EQ(described.Request("LogData", answer, 1), 0);
    EXPECT_EQ(answer.log, "typed");
    EXPECT_EQ(answer._id, "");
    described.Disconnect();
}

TEST_P(RequestOnBus, LeavesSubscriptionsToItsChannelAlone)
{
    auto responder = respond();
    auto queue = asker->queue<LogData>("Echo");
    ASSERT_EQ(queue.waitActive(kTimeout), std::error_code());
    EXPECT_EQ(ask(*asker, "one"), "[one]");
    EXPECT_EQ(queue.next(kTimeout)->log, "[one]");
    bus->publish("Echo", logOf("two"));
    EXPECT_EQ(queue.next(kTimeout)->log, "two");
}

TEST_P(RequestOnBus, EndsWhenTheConnectionIsLost)
{
    auto witness = bus->queue<RequestType>("req_LogData");
    ASSERT_EQ(witness.waitActive(kTimeout), std::error_code());
    std::future<std::error_code> asked = std::async(std::launch::async, [&] {
        LogData answer;
        return asker->request(answer, kTimeout);
    });
    ASSERT_TRUE(witness.next(kTimeout));
    stopServer();
    EXPECT_EQ(asked.get(), BusError::Lost);
    EXPECT_TRUE(eventually([&] { return asker->state() == ConnectionState::Connecting; }));
    LogData answer;
    EXPECT_EQ(asker->request(answer, kTimeout), BusError::NotConnected);
    startServer();
    ASSERT_EQ(asker->waitConnected(kTimeout), std::error_code());
    ASSERT_EQ(bus->waitConnected(kTimeout), std::error_code());
    auto responder = respond();
    EXPECT_EQ(ask(*asker, "after"), "[after]");
}

TEST_P(RequestOnBus, IsRefusedWithItsChannel)
{
    LogData answer;
    EXPECT_EQ(asker->request("Channel 1", RequestType(), answer, kTimeout), BusError::Refused);
    EXPECT_EQ(asker->request("Channel 1", RequestType(), answer, kTimeout), BusError::Refused);
}

TEST_P(RequestOnBus, FromACallbackReachesAnotherBus)
{
    Bus responding(server->path, impatient());
    auto responder =
        responding.respond<LogData, LogData>("Echo", [](const LogData& question) { return question; });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    Mailbox<std::string> answers;
    auto subscription = bus->subscribe<LogData>([&] { answers.put(ask(*bus, "x")); });
    publish("go");
    EXPECT_EQ(answers.take(), GetParam() == Run::Direct ? "the caller would wait for itself" : "x");
}

TEST_P(RequestOnBus, FromACallbackToAResponderOfTheSameBusWorksOrIsRefusedAtOnce)
{
    auto responder = respond();
    Mailbox<std::string> answers;
    auto subscription = bus->subscribe<LogData>([&] { answers.put(ask(*bus, "x")); });
    publish("go");
    EXPECT_EQ(answers.take(), GetParam() == Run::Direct ? "the caller would wait for itself" : "[x]");
}

TEST_P(RequestOnBus, ToOnesOwnChannelIsRefusedAtOnce)
{
    Mailbox<std::string> inner;
    auto responder = bus->respond<LogData, LogData>("Echo", [&](const LogData& question) {
        inner.put(ask(*bus, question.log));
        return question;
    });
    ASSERT_EQ(responder.waitActive(kTimeout), std::error_code());
    EXPECT_EQ(ask(*asker, "x"), "x");
    EXPECT_EQ(inner.take(), "the caller would wait for itself");
}

TEST_P(RequestOnBus, DoesNotUnsubscribeAfterEachAndDoesSoLater)
{
    auto responder = respond();
    EXPECT_EQ(ask(*asker, "one"), "[one]");
    EXPECT_EQ(ask(*asker, "two"), "[two]");
    const auto subscribers = [this] {
        for (const auto& channel : server->server.Channels()) {
            if (channel.name == "Echo") {
                return channel.subscribers;
            }
        }
        return std::size_t(0);
    };
    EXPECT_EQ(subscribers(), 1U);
    EXPECT_TRUE(eventually([&] {
        bus->publish("Echo", logOf("for nobody"));
        return subscribers() == 0;
    }));
    // What was still on its way to the server must not be taken for the next answer.
    auto marker = bus->queue<LogData>("Marker");
    bus->publish("Marker", logOf("last"));
    EXPECT_EQ(nextMessage(marker).log, "last");
    auto drained = asker->queue<LogData>("Drained");
    ASSERT_EQ(drained.waitActive(kTimeout), std::error_code());
    EXPECT_EQ(ask(*asker, "three"), "[three]");
}

} // namespace

} // namespace Telvane::Testing

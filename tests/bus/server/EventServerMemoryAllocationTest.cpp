// A server that keeps last messages, while memory runs out: it answers with the last message or not at all, never with
// an older one, and with memory back it keeps the next.

#include "helpers/BusMemorySupport.h"

#include <Telvane/EventServer.h>

#include <cerrno>
#include <optional>
#include <tuple>

namespace Telvane
{
namespace
{

using namespace Testing;

struct Way
{
    bool isPrinted;    ///< publications and requests are as a client prints them
    bool isSubscribed; ///< the channel has a subscriber
};

class KeptMessageMemory : public ::testing::TestWithParam<std::tuple<Shortage, Way>>
{
protected:
    Shortage shortage() const { return std::get<0>(GetParam()); }
    const Way way = std::get<1>(GetParam());

    static std::string textOf(int number)
    {
        return "message " + std::to_string(number) + ", which is longer than a text without allocation";
    }

    std::string message(const std::string& channel, const std::string& key, const std::string& text) const
    {
        return way.isPrinted ? printedPublication(channel, "\"" + key + "\":\t\"" + text + "\"")
                             : publication(channel, R"({")" + key + R"(":")" + text + R"("})");
    }

    static void keepAll(EventServer& server)
    {
        EventServerMemory memory;
        memory.remembers = [](std::string_view channel) {
            return channel == kChannel;
        };
        EXPECT_EQ(server.SetMemory(memory), 0);
    }

    /// \return the message that a late subscriber gets on request, or ""
    std::string lastMessage(const RunningServer& running) const
    {
        const RawPeer late = running.connect();
        subscribe(late, kChannel);
        late.send(message("req_" + kChannel, "_id", "asked"));
        late.send(unsubscribeRequest("nobody_ever"));
        const std::string packet = late.receive();
        return packet == response(".unsubscribe", false, "nobody_ever") ? "" : packet;
    }
};

std::string nameOfCase(const ::testing::TestParamInfo<std::tuple<Shortage, Way>>& parameter)
{
    const auto& [shortage, way] = parameter.param;
    return std::string(shortage == Shortage::Once ? "Once" : "Persistent") +
           (way.isPrinted ? "Printed" : "Parsed") + (way.isSubscribed ? "Subscribed" : "Unsubscribed");
}

TEST_P(KeptMessageMemory, NeverLeavesAnOlderMessage)
{
    failEachAllocation(Caller::Receiver, shortage(), [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running(keepAll);
        std::optional<RawPeer> subscriber;
        if (way.isSubscribed) {
            EXPECT_TRUE(receiving.afterNextCallOf([&] { subscriber.emplace(running.connect()); }));
            EXPECT_TRUE(receiving.afterNextCallOf([&] { subscribe(*subscriber, kChannel); }));
        }
        std::optional<RawPeer> publisher;
        EXPECT_TRUE(receiving.afterNextCallOf([&] { publisher.emplace(running.connect()); }));
        EXPECT_TRUE(receiving.afterNextCallOf([&] { publisher->send(message(kChannel, "log", textOf(1))); }));
        const std::string second = message(kChannel, "log", textOf(2));
        fault.begin();
        EXPECT_TRUE(receiving.afterNextCallOf([&] { publisher->send(second); }));
        fault.end();
        const EventServerStatistics statistics = running.server.Statistics();
        const bool isLost = statistics.outOfMemory + statistics.notJson > 0;
        std::string last = lastMessage(running);
        const bool isSecond = last.find(textOf(2)) != std::string::npos;
        EXPECT_TRUE(isSecond || fault.triggered()) << last;
        EXPECT_TRUE(isSecond || last.empty() || isLost) << last;

        publisher->send(message(kChannel, "log", textOf(3)));
        expectNothingElse(*publisher);
        last = lastMessage(running);
        EXPECT_NE(last.find(textOf(3)), std::string::npos) << last;
    });
}

TEST_P(KeptMessageMemory, RunsOutInTheAnswer)
{
    failEachAllocation(Caller::Receiver, shortage(), [&](AllocationFault& fault) {
        Progress receiving(Call::Receive, Caller::Receiver);
        RunningServer running(keepAll);
        std::optional<RawPeer> peer;
        EXPECT_TRUE(receiving.afterNextCallOf([&] { peer.emplace(running.connect()); }));
        EXPECT_TRUE(receiving.afterNextCallOf([&] { peer->send(message(kChannel, "log", textOf(1))); }));
        EXPECT_TRUE(receiving.afterNextCallOf([&] { subscribe(*peer, kChannel); }));
        fault.begin();
        EXPECT_TRUE(
            receiving.afterNextCallOf([&] { peer->send(message("req_" + kChannel, "_id", "asked")); }));
        fault.end();
        peer->send(unsubscribeRequest("nobody_ever"));
        const std::string packet = peer->receive();
        EXPECT_TRUE(packet.find(textOf(1)) != std::string::npos || fault.triggered()) << packet;
        EXPECT_NE(lastMessage(running).find(textOf(1)), std::string::npos);
    });
}

INSTANTIATE_TEST_SUITE_P(Memory, KeptMessageMemory,
                         ::testing::Combine(::testing::Values(Shortage::Once, Shortage::Persistent),
                                            ::testing::Values(Way{true, true}, Way{true, false},
                                                              Way{false, true}, Way{false, false})),
                         nameOfCase);

TEST_P(UnderShortage, OfTheSettingSaysSo)
{
    EventServer server;
    failEachAllocation(Caller::Application, GetParam(), [&](AllocationFault& fault) {
        EventServerMemory memory;
        memory.remembers = [](std::string_view) {
            return true;
        };
        const int result = fault.during([&] { return server.SetMemory(std::move(memory)); });
        EXPECT_EQ(result, fault.triggered() ? -ENOMEM : 0);
    });
}

INSTANTIATE_TEST_SUITE_P(Memory, UnderShortage, ::testing::Values(Shortage::Once, Shortage::Persistent),
                         nameOfShortage);

} // namespace
} // namespace Telvane

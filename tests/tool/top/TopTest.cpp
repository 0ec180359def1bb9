// The table of telvane top, from what a server tells to the text.

#include "common/bus/TopModel.h"
#include "top/TopView.h"

#include "common/cli/Terminal.h"
#include "common/support/Json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TelvaneTool
{
namespace
{

using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

constexpr pid_t kObserver = 99;

ChannelStatus channel(const std::string& name, std::uint64_t publications, std::uint64_t bytes,
                      std::size_t subscribers = 1)
{
    ChannelStatus status;
    status.name = name;
    status.publications = publications;
    status.bytes = bytes;
    status.subscribers = subscribers;
    return status;
}

ClientStatus client(int descriptor, pid_t process)
{
    ClientStatus status;
    status.descriptor = descriptor;
    status.process = process;
    status.userName = "welder";
    status.program = "feeder";
    status.subscriptions = {{"One", 0, 100, 3}, {"Two", 0, 10, 4}};
    return status;
}

TEST(TopModel, ComputesRatesFromTwoLooks)
{
    TopModel model(kObserver);
    model.update({channel("One", 100, 1000)}, {}, kSecond);
    EXPECT_FALSE(model.hasRates());
    EXPECT_EQ(model.rate(), 0.0);
    model.update({channel("One", 300, 5000), channel("Two", 7, 70)}, {}, 3 * kSecond);
    EXPECT_TRUE(model.hasRates());
    const auto rows = model.channels(TopModel::Order::Name);
    ASSERT_THAT(rows, SizeIs(2));
    EXPECT_EQ(rows[0].rate, 100.0);
    EXPECT_EQ(rows[0].bytesPerSecond, 2000.0);
    EXPECT_EQ(rows[1].rate, 3.5);
    EXPECT_EQ(model.rate(), 103.5);
    EXPECT_EQ(model.bytesPerSecond(), 2035.0);
}

TEST(TopModel, CountsFromZeroWhenTheServerDoes)
{
    TopModel model(kObserver);
    model.update({channel("One", 100, 1000)}, {}, kSecond);
    model.update({channel("One", 5, 50)}, {}, 2 * kSecond);
    EXPECT_EQ(model.rate(), 5.0);
}

TEST(TopModel, LeavesTheObserverAndItsQuestionsOut)
{
    TopModel model(kObserver);
    ClientStatus observer = client(7, kObserver);
    observer.subscriptions = {{"One", 0, 5, 0}};
    model.update({channel("One", 1, 1, 2), channel("TelvaneChannels", 1, 1)}, {client(5, 4711), observer}, 0);
    const auto rows = model.channels(TopModel::Order::Name);
    ASSERT_THAT(rows, SizeIs(1));
    EXPECT_EQ(rows[0].status.subscribers, 1U);
    ASSERT_THAT(model.clients(), SizeIs(1));
    EXPECT_EQ(model.clients()[0].relayed, 110U);
    EXPECT_EQ(model.clients()[0].missed, 7U);
}

TEST(TopModel, NeverCountsFewerThanNoSubscribers)
{
    TopModel model(kObserver);
    ClientStatus observer = client(7, kObserver);
    observer.subscriptions = {{"One", 0, 5, 0}};
    // The server lists channels and clients at different moments.
    model.update({channel("One", 1, 1, 0)}, {observer}, 0);
    EXPECT_EQ(model.channels(TopModel::Order::Name)[0].status.subscribers, 0U);
}

TEST(TopModel, ForgetsChannelsThatTheServerDoesNotList)
{
    TopModel model(kObserver);
    model.update({channel("One", 1, 1), channel("Two", 1, 1)}, {}, kSecond);
    model.update({channel("Two", 3, 3)}, {}, 2 * kSecond);
    const auto rows = model.channels(TopModel::Order::Name);
    ASSERT_THAT(rows, SizeIs(1));
    EXPECT_EQ(rows[0].rate, 2.0);
}

TEST(TopModel, SortsAsItIsTold)
{
    TopModel model(kObserver);
    model.update({channel("A", 0, 0), channel("B", 0, 0), channel("C", 0, 0)}, {}, 0);
    model.update({channel("A", 1, 90), channel("B", 3, 30), channel("C", 2, 120)}, {}, kSecond);
    const auto order = [&model](TopModel::Order by) {
        std::string names;
        for (const auto& row : model.channels(by)) {
            names += row.status.name;
        }
        return names;
    };
    EXPECT_EQ(order(TopModel::Order::Name), "ABC");
    EXPECT_EQ(order(TopModel::Order::Rate), "BCA");
    EXPECT_EQ(order(TopModel::Order::Bytes), "CAB");
}

TEST(TopModel, ComputesMissesPerSecond)
{
    TopModel model(kObserver);
    ChannelStatus one = channel("One", 1, 1);
    ChannelStatus two = channel("Two", 1, 1);
    ClientStatus slow = client(5, 4711);
    one.missed = 100;
    model.update({one, two}, {slow}, kSecond);
    EXPECT_EQ(model.channels(TopModel::Order::Name)[0].missedPerSecond, 0.0);
    EXPECT_EQ(model.clients()[0].missedPerSecond, 0.0);
    one.missed = 160;
    slow.subscriptions[1].missed += 30;
    ClientStatus successor = client(6, 4712);
    model.update({one, two}, {slow, successor}, 4 * kSecond);
    EXPECT_EQ(model.channels(TopModel::Order::Missed)[0].status.name, "One");
    EXPECT_EQ(model.channels(TopModel::Order::Missed)[0].missedPerSecond, 20.0);
    EXPECT_EQ(model.channels(TopModel::Order::Missed)[1].missedPerSecond, 0.0);
    EXPECT_EQ(model.clients()[0].missedPerSecond, 10.0);
    EXPECT_NEAR(model.clients()[1].missedPerSecond, 7.0 / 3.0, 1e-9) << "it connected meanwhile";
    // Another process with the same descriptor counts from 0.
    model.update({one, two}, {client(5, 4713)}, 5 * kSecond);
    EXPECT_EQ(model.clients()[0].missedPerSecond, 7.0);
}

TEST(TopModel, FindsTheClassOfAPayload)
{
    EXPECT_EQ(guessClass("LogData", ""), "LogData");
    EXPECT_EQ(guessClass("Anything", R"({"log":"x"})"), "LogData");
    EXPECT_EQ(guessClass("Anything", R"({"log":"x","more":1})"), "");
    EXPECT_EQ(guessClass("Anything", R"({"Unit":"A","Value":1})"), ""); // two classes look like that
    EXPECT_EQ(guessClass("Anything", "[]"), "");
    EXPECT_EQ(guessClass("Anything", ""), "");
}

/// A model with a row of everything.
TopModel busyModel()
{
    TopModel model(kObserver);
    model.update({channel("Feed", 0, 0), channel("LogData", 5, 50)}, {client(5, 4711)}, 0);
    model.setValue("LogData", "{\"log\":\"arc \x1b on\"}");
    model.update({channel("Feed", 20'000, 2'000'000), channel("LogData", 5, 50)}, {client(5, 4711)}, kSecond);
    return model;
}

TEST(TopView, ShowsChannelsAndClients)
{
    TopViewSettings settings;
    settings.path = "/run/bus";
    settings.width = 200;
    const std::string text = printTop(busyModel(), settings, 1'704'164'645 * kSecond);
    EXPECT_THAT(text,
                HasSubstr("/run/bus  03:04:05 UTC  2 channels, 1 clients  20.0k records/s, 2.0 MB/s\n"));
    EXPECT_THAT(text, HasSubstr("Feed     -         1   20.0k   2.0 MB    20000       0       0    -\n"));
    EXPECT_THAT(
        text,
        HasSubstr(
            "LogData  same      1       0      0 B        5       0       0    -  {\"log\":\"arc ? on\"}\n"));
    EXPECT_THAT(text, HasSubstr("     5  4711  welder  feeder      0 B      110       7       0  One Two\n"));
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
}

TEST(TopView, CutsLinesWhereTheTerminalEnds)
{
    TopViewSettings settings;
    settings.width = 40;
    std::string text = printTop(busyModel(), settings, 0);
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        EXPECT_LE(end, 40U) << text.substr(0, end);
        text.erase(0, end + 1);
    }
}

TEST(TopView, ColoursWhatWasMissed)
{
    TopViewSettings settings;
    settings.width = 200;
    settings.colour = true;
    EXPECT_THAT(printTop(busyModel(), settings, 0), HasSubstr("\x1b[31m     7\x1b[0m"));
}

TEST(TopView, PrintsJsonForPrograms)
{
    std::string error;
    const JsonTree tree = parseJson(printTopJson(busyModel(), {}, 0), error);
    const cJSON* const channels = cJSON_GetObjectItem(tree.get(), "channels");
    const cJSON* const first = cJSON_GetArrayItem(channels, 0);
    EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(first, "channel")), "Feed");
    EXPECT_EQ(cJSON_GetNumberValue(cJSON_GetObjectItem(first, "rate")), 20'000.0);
    const cJSON* const clients = cJSON_GetObjectItem(tree.get(), "clients");
    EXPECT_EQ(cJSON_GetNumberValue(cJSON_GetObjectItem(clients->child, "missed")), 7.0);
    EXPECT_EQ(cJSON_GetNumberValue(cJSON_GetObjectItem(clients->child, "missedPerSecond")), 0.0);
}

TEST(TerminalPage, DrawsNoMoreLinesThanThereAre)
{
    EXPECT_EQ(TerminalPage::draw("a\nb\nc\n", 2), "\x1b[Ha\x1b[K\r\nb\x1b[K\x1b[J");
    EXPECT_EQ(TerminalPage::draw("a\n", 2), "\x1b[Ha\x1b[K\x1b[J");
}

} // namespace
} // namespace TelvaneTool

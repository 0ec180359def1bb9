#include "common/bus/MetricsPage.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <sstream>

namespace TelvaneTool
{
namespace
{

using Telvane::EventServerChannelStatus;
using Telvane::EventServerClientStatus;
using Telvane::EventServerStatistics;

/// Two channels, a client that keeps up with one and not with the other, and one that has subscribed to nothing.
std::string busyPage()
{
    EventServerStatistics statistics;
    statistics.received = 10;
    statistics.tooLarge = 1;
    statistics.notJson = 2;
    statistics.withoutPayload = 3;
    statistics.unknownChannel = 4;
    statistics.outOfMemory = 5;
    statistics.dispatched = 6;
    statistics.relayed = 7;
    statistics.relaysFailed = 8;
    statistics.relaysTooLarge = 9;
    statistics.connectionsRefused = 11;
    statistics.subscriptionsRefused = 12;
    const std::vector<EventServerChannelStatus> channels = {
        {"FlagType", 1, 65535, 20, 2000, 0}, {"LogData", 1, 4, 30, 3000, 18446744073709551615U}};
    const std::vector<EventServerClientStatus> clients = {
        {6, 1234, 1000, 100, 4096, {{"FlagType", 0, 20, 0}, {"LogData", -EAGAIN, 22, 8}}},
        {7, 99, 0, 0, 0, {}}};
    return metricsPage(statistics, channels, clients);
}

std::vector<std::string> linesOf(const std::string& page)
{
    std::vector<std::string> lines;
    std::istringstream stream(page);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool hasLine(const std::string& page, const std::string& line)
{
    return ("\n" + page + "\n").find("\n" + line + "\n") != std::string::npos;
}

TEST(MetricsPage, EndsWithItsMarkAndLeavesTheNewlineToThePipe)
{
    const std::string page = busyPage();
    EXPECT_EQ(page.substr(page.size() - 6), "\n# EOF");
}

TEST(MetricsPage, TellsWhatTheServerCounted)
{
    const std::string page = busyPage();
    for (const char* const line : {
             "telvane_packets_received_total 10",
             "telvane_packets_dispatched_total 6",
             "telvane_packets_dropped_total{reason=\"too_large\"} 1",
             "telvane_packets_dropped_total{reason=\"not_json\"} 2",
             "telvane_packets_dropped_total{reason=\"no_payload\"} 3",
             "telvane_packets_dropped_total{reason=\"no_subscriber_ever\"} 4",
             "telvane_packets_dropped_total{reason=\"out_of_memory\"} 5",
             "telvane_relays_sent_total 7",
             "telvane_relays_missed_total 8",
             "telvane_relays_cut_total 9",
             "telvane_connections_refused_total 11",
             "telvane_subscriptions_refused_total 12",
             "telvane_clients 2",
             "telvane_channels 2",
         }) {
        EXPECT_TRUE(hasLine(page, line)) << line;
    }
}

TEST(MetricsPage, HasEveryCounterOfTheServer)
{
    EventServerStatistics statistics;
    std::uint64_t value = 100;
    for (const auto& counter : Telvane::kServerCounters) {
        statistics.*counter.member = ++value;
    }
    const std::string page = metricsPage(statistics, {}, {});
    value = 100;
    for (const auto& counter : Telvane::kServerCounters) {
        const std::string label =
            counter.reason != nullptr ? std::string("{reason=\"") + counter.reason + "\"}" : "";
        const std::string line =
            std::string("telvane_") + counter.metric + "_total" + label + " " + std::to_string(++value);
        EXPECT_TRUE(hasLine(page, line)) << line;
    }
}

TEST(MetricsPage, TellsHowChannelsFare)
{
    const std::string page = busyPage();
    for (const char* const line : {
             "telvane_channel_subscribers{channel=\"FlagType\"} 1",
             "telvane_channel_publications_total{channel=\"LogData\"} 30",
             "telvane_channel_relay_bytes_total{channel=\"FlagType\"} 2000",
             "telvane_channel_relays_missed_total{channel=\"LogData\"} 18446744073709551615",
         }) {
        EXPECT_TRUE(hasLine(page, line)) << line;
    }
}

TEST(MetricsPage, TellsWhoMissedHowManyOnWhichChannelAndWhy)
{
    const std::string page = busyPage();
    const std::string client = R"({client="6",process="1234",user="1000")";
    for (const std::string& line : {
             "telvane_client_unread_bytes" + client + "} 4096",
             std::string(R"(telvane_client_unread_bytes{client="7",process="99",user="0"} 0)"),
             "telvane_subscription_relays_sent_total" + client + R"(,channel="LogData"} 22)",
             "telvane_subscription_relays_missed_total" + client + R"(,channel="LogData"} 8)",
             "telvane_subscription_relays_missed_total" + client + R"(,channel="FlagType"} 0)",
             "telvane_subscription_last_error_info" + client +
                 R"(,channel="LogData",error="EAGAIN",text="Resource temporarily unavailable"} 1)",
         }) {
        EXPECT_TRUE(hasLine(page, line)) << line;
    }
    EXPECT_EQ(page.find(R"(channel="FlagType",error)"), std::string::npos);
}

TEST(MetricsPage, DescribesEachFamilyOnceBeforeItsSamples)
{
    std::set<std::string> families;
    std::string family;
    std::string kind;
    for (const std::string& line : linesOf(busyPage())) {
        std::istringstream words(line);
        std::string hash;
        std::string what;
        words >> hash >> what;
        if (what == "TYPE") {
            words >> family >> kind;
            EXPECT_TRUE(families.insert(family).second) << line;
        } else if (what == "UNIT") {
            std::string name;
            std::string unit;
            words >> name >> unit;
            EXPECT_EQ(name, family);
            EXPECT_EQ(family.substr(family.size() - unit.size() - 1), "_" + unit);
        } else if (what == "HELP") {
            EXPECT_EQ(line.substr(0, family.size() + 8), "# HELP " + family + " ");
            EXPECT_EQ(line.back(), '.');
        } else if (line != "# EOF") {
            const std::string suffix = kind == "counter" ? "_total" : kind == "info" ? "_info" : "";
            EXPECT_EQ(line.substr(0, line.find_first_of(" {")), family + suffix);
        }
    }
    std::set<std::string> expected = {"telvane_clients", "telvane_channels", "telvane_channel_subscribers",
                                      "telvane_client_unread_bytes", "telvane_subscription_last_error"};
    const auto expect = [&](const auto& counters) {
        for (const auto& counter : counters) {
            expected.insert(std::string("telvane_") + counter.metric);
        }
    };
    expect(Telvane::kServerCounters);
    expect(Telvane::kChannelCounters);
    expect(Telvane::kSubscriptionCounters);
    EXPECT_EQ(families, expected);
}

TEST(MetricsPage, EscapesWhatWouldEndALabel)
{
    EXPECT_EQ(escapedLabel("plain {}=,"), "plain {}=,");
    EXPECT_EQ(escapedLabel("a\"b\\c\nd"), R"(a\"b\\c\nd)");
}

TEST(MetricsPage, NamesErrors)
{
    EXPECT_EQ(relayErrorName(-EPIPE), "EPIPE");
    EXPECT_EQ(relayErrorName(-9999), "9999");
    EXPECT_EQ(relayErrorName(12), "short");
}

} // namespace
} // namespace TelvaneTool

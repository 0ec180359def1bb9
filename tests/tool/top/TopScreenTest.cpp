#include "top/TopScreen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace TelvaneTool
{
namespace
{

using testing::HasSubstr;
using testing::Not;
using Effect = TopScreen::Effect;
using Order = TopModel::Order;

TopViewSettings settingsOf(const TopScreen& screen)
{
    TopViewSettings settings;
    settings.keys = true;
    settings.width = 200;
    screen.apply(settings);
    return settings;
}

/// Channels C00, C01 and so on; clients that are subscribed to one each.
TopModel modelWith(std::size_t channelCount, std::size_t clientCount)
{
    std::vector<ChannelStatus> channels(channelCount);
    for (std::size_t i = 0; i < channelCount; ++i) {
        channels[i].name = "C" + std::string(1, static_cast<char>('a' + i / 10)) +
                           std::string(1, static_cast<char>('a' + i % 10));
    }
    std::vector<ClientStatus> clients(clientCount);
    for (std::size_t i = 0; i < clientCount; ++i) {
        clients[i].descriptor = static_cast<int>(100 + i);
        clients[i].process = static_cast<pid_t>(5000 + i);
        clients[i].subscriptions.push_back({channels[i % channelCount].name, 0, 0, 0});
    }
    TopModel model(1);
    model.update(std::move(channels), std::move(clients), 0);
    return model;
}

std::size_t linesOf(const std::string& text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(TopScreen, QuitsOnQ)
{
    TopScreen screen(Order::Name);
    EXPECT_EQ(screen.take("x"), Effect::None);
    EXPECT_EQ(screen.take("jq"), Effect::Quit);
}

TEST(TopScreen, SortsByEachOrderInTurn)
{
    TopScreen screen(Order::Name);
    for (const Order order : {Order::Rate, Order::Bytes, Order::Missed, Order::Name}) {
        EXPECT_EQ(screen.take("s"), Effect::Redraw);
        EXPECT_EQ(settingsOf(screen).order, order);
    }
}

TEST(TopScreen, PausesAndContinues)
{
    TopScreen screen(Order::Name);
    EXPECT_EQ(screen.take("p"), Effect::Redraw);
    EXPECT_TRUE(screen.paused());
    EXPECT_TRUE(settingsOf(screen).paused);
    screen.take(" ");
    EXPECT_FALSE(screen.paused());
}

TEST(TopScreen, ShowsHelpUntilTheNextKey)
{
    TopScreen screen(Order::Name);
    screen.take("h");
    EXPECT_TRUE(screen.showsHelp());
    EXPECT_EQ(screen.take("s"), Effect::Redraw);
    EXPECT_FALSE(screen.showsHelp());
    EXPECT_EQ(settingsOf(screen).order, Order::Name) << "the key only closed the help";
    EXPECT_EQ(screen.take("?q"), Effect::Quit);
}

TEST(TopScreen, TakesAFilterUntilEnter)
{
    TopScreen screen(Order::Name);
    screen.take("/Wex\x7f");
    EXPECT_TRUE(settingsOf(screen).editsFilter);
    screen.take("ld*q");
    EXPECT_EQ(settingsOf(screen).filter, "Weld*q") << "all keys are part of it";
    screen.take("\x08\r");
    EXPECT_FALSE(settingsOf(screen).editsFilter);
    EXPECT_EQ(settingsOf(screen).filter, "Weld*");
    screen.take("/x\x1b");
    EXPECT_EQ(settingsOf(screen).filter, "");
    screen.take("/y\n");
    EXPECT_EQ(screen.take("\x1b"), Effect::Redraw);
    EXPECT_EQ(settingsOf(screen).filter, "");
    screen.take("/" + std::string(1000, 'x'));
    EXPECT_LE(settingsOf(screen).filter.size(), 80U);
}

TEST(TopScreen, ScrollsTheTableThatIsSelected)
{
    TopScreen screen(Order::Name);
    EXPECT_EQ(screen.take("\x1b[B\x1bOBj"), Effect::Redraw);
    EXPECT_EQ(settingsOf(screen).channelOffset, 3U);
    screen.take("k\x1b[A");
    EXPECT_EQ(settingsOf(screen).channelOffset, 1U);
    screen.take("\x1b[6~");
    EXPECT_EQ(settingsOf(screen).channelOffset, 11U);
    screen.take("\t\x1b[B");
    EXPECT_EQ(settingsOf(screen).channelOffset, 11U);
    EXPECT_EQ(settingsOf(screen).clientOffset, 1U);
    screen.take("\x1b[5~");
    EXPECT_EQ(settingsOf(screen).clientOffset, 0U);
    screen.take("\t\x1b[H");
    EXPECT_EQ(settingsOf(screen).channelOffset, 0U);
}

TEST(TopScreen, IgnoresOtherSequences)
{
    TopScreen screen(Order::Name);
    EXPECT_EQ(screen.take("\x1b[15~\x1b[1;5C\x1bOP\x04"), Effect::None);
    EXPECT_EQ(screen.take("\x1b["), Effect::None);
    EXPECT_EQ(screen.take("s"), Effect::Redraw);
}

TEST(TopScreen, ScrollsNoFurtherThanTheEnd)
{
    const TopModel model = modelWith(40, 2);
    TopScreen screen(Order::Name);
    TopViewSettings settings = settingsOf(screen);
    settings.height = 24;
    screen.take("\x1b[F");
    screen.apply(settings);
    screen.limit(rowsOf(model, settings));
    EXPECT_EQ(settingsOf(screen).channelOffset, 24U) << "16 of 40 channels fit";
    screen.take("k");
    EXPECT_EQ(settingsOf(screen).channelOffset, 23U);
}

TEST(TopView, FitsBothTablesIntoTheHeight)
{
    TopViewSettings settings;
    settings.width = 80;
    settings.keys = true;
    for (const auto& [channels, clients] :
         {std::pair<std::size_t, std::size_t>{40, 40}, {40, 2}, {2, 40}, {1, 1}}) {
        const TopModel model = modelWith(channels, clients);
        for (const std::size_t height : {8U, 24U, 50U}) {
            settings.height = height;
            const std::string page = printTop(model, settings, 0);
            const TopRows rows = rowsOf(model, settings);
            EXPECT_EQ(linesOf(page), 6 + (rows.channels.end - rows.channels.begin) +
                                         (rows.clients.end - rows.clients.begin));
            EXPECT_LE(linesOf(page), height);
            EXPECT_GE(linesOf(page), std::min(height, 6 + channels + clients)) << "no line is wasted";
            EXPECT_THAT(page, HasSubstr("CLIENT"));
            EXPECT_LT(rows.clients.begin, rows.clients.end) << height;
        }
    }
}

TEST(TopView, ShowsNothingButHeadingsOnATinyTerminal)
{
    TopViewSettings settings;
    settings.height = 3;
    EXPECT_EQ(linesOf(printTop(modelWith(5, 5), settings, 0)), 5U);
}

TEST(TopView, ShowsTheRowsFromTheOffsetOn)
{
    TopViewSettings settings;
    settings.height = 16;
    settings.channelOffset = 5;
    settings.clientOffset = 1000;
    const TopModel model = modelWith(20, 20);
    const std::string page = printTop(model, settings, 0);
    EXPECT_THAT(page, Not(HasSubstr("Cae")));
    EXPECT_THAT(page, HasSubstr("Caf"));
    EXPECT_THAT(page, HasSubstr(" 5019 "));
    EXPECT_THAT(page, Not(HasSubstr(" 5010 ")));
}

TEST(TopView, FiltersChannelsAndTheirSubscribers)
{
    const TopModel model = modelWith(20, 20);
    TopViewSettings settings;
    settings.width = 200;
    settings.keys = true;
    settings.filter = "ba";
    std::string page = printTop(model, settings, 0);
    EXPECT_THAT(page, HasSubstr("20 channels, 20 clients"));
    EXPECT_THAT(page, HasSubstr("\nCba "));
    EXPECT_THAT(page, HasSubstr(" 5010 "));
    EXPECT_THAT(page, Not(HasSubstr("Caa")));
    EXPECT_THAT(page, Not(HasSubstr(" 5000 ")));
    EXPECT_THAT(page, HasSubstr("/ filter:ba"));
    EXPECT_THAT(page, HasSubstr(" >channels 1-1/1 clients 1-1/1"));
    settings.filter = "C?c";
    EXPECT_EQ(rowsOf(model, settings).channels.total, 2U);
    settings.filter = "none";
    page = printTop(model, settings, 0);
    EXPECT_THAT(page, HasSubstr(">channels 0-0/0"));
}

TEST(TopView, ShowsTheKeysInEightyColumns)
{
    TopViewSettings settings;
    settings.keys = true;
    settings.height = 24;
    EXPECT_THAT(
        printTop(modelWith(40, 40), settings, 0),
        HasSubstr("\nq quit  s sort:name  / filter  p pause  h help  >channels 1-12/40 clients 1-6/40\n"));
    settings.paused = true;
    EXPECT_THAT(printTop(modelWith(40, 40), settings, 0), HasSubstr("\nPAUSED  q quit"));
    settings.editsFilter = true;
    settings.filter = "Wel";
    EXPECT_THAT(printTop(modelWith(40, 40), settings, 0), HasSubstr("\nfilter: Wel_  ("));
}

TEST(TopScreen, ExplainsEachKey)
{
    const std::string help = TopScreen::help();
    for (const char* const key : {"  q ", "  s ", "  / ", "  p, space ", "  Tab ", "  h, ? ", "PgDn"}) {
        EXPECT_THAT(help, HasSubstr(key));
    }
    EXPECT_LE(linesOf(help), 24U);
}

} // namespace
} // namespace TelvaneTool

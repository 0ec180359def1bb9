#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/bus/StatusClient.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/ProgressBar.h"
#include "common/cli/Terminal.h"
#include "common/support/HumanReadable.h"
#include "top/LatestPayloads.h"
#include "top/TopView.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kResizeLook = kSecond / 5;
constexpr Nanoseconds kPagePatience = kSecond; ///< a page is drawn again without an answer, too
constexpr Nanoseconds kPatience = 60 * kSecond;

struct Options
{
    BusOptions bus;
    Nanoseconds interval = kSecond;
    std::uint64_t count = 0;
    bool once = false;
    bool json = false;
    bool noValues = false;
    TopModel::Order order = TopModel::Order::Name;
};

class Top
{
public:
    Top(BusConnection& session, const Options& options)
        : m_session(session),
          m_options(options),
          m_inquiry(session),
          m_model(getpid()),
          m_isPage(!options.json && isTerminal(STDOUT_FILENO))
    {}

    /// \return an exit code
    int run()
    {
        int result = m_inquiry.start(true);
        if (result == kSuccess && !m_session.stopping()) {
            result = look();
        }
        if (result != kSuccess || m_session.stopping()) {
            return result;
        }
        std::optional<TerminalPage> page;
        if (m_isPage) {
            page.emplace();
        }
        if (m_isPage && m_options.count == 0) {
            draw(); // without rates yet, but at once
        }
        std::uint64_t drawn = 0;
        while (waitAndAsk()) {
            result = look();
            if (result != kSuccess || !draw() || (m_options.count != 0 && ++drawn == m_options.count)) {
                break;
            }
        }
        return result;
    }

private:
    /// Waits for the next interval, and draws anew when the terminal has got another size.
    bool waitAndAsk()
    {
        const Nanoseconds due = monotonicNow() + m_options.interval;
        while (m_isPage && due - monotonicNow() > kResizeLook) {
            if (!m_session.sleepUntil(monotonicNow() + kResizeLook)) {
                return false;
            }
            if (terminalWidth(STDOUT_FILENO) != m_width || terminalHeight(STDOUT_FILENO) != m_height) {
                draw();
            }
        }
        if (!m_session.sleepUntil(due)) {
            return false;
        }
        const std::uint64_t before = m_inquiry.answers();
        m_inquiry.ask();
        m_session.waitFor([&] { return m_inquiry.answers() >= before + 2; },
                          monotonicNow() + (m_isPage ? kPagePatience : kPatience));
        return !m_session.stopping();
    }

    /// Takes what the server has told, and follows the channels that it has told of.
    int look()
    {
        m_model.update(m_inquiry.channels(), m_inquiry.clients(), monotonicNow());
        for (const auto& [channel, text] : m_glimpses.take()) {
            m_model.setValue(channel, text);
        }
        int result = kSuccess;
        if (!m_options.noValues) {
            for (const TopModel::ChannelRow& row : m_model.channels(TopModel::Order::Name)) {
                if (result == kSuccess && !m_session.stopping()) {
                    result = m_glimpses.subscribe(m_session, row.status.name);
                }
            }
        }
        return result;
    }

    bool draw()
    {
        TopViewSettings view;
        view.path = m_options.bus.path;
        view.order = m_options.order;
        if (m_options.json) {
            return m_session.write(printTopJson(m_model, view, realTimeNow()));
        }
        if (!m_isPage) {
            view.width = std::numeric_limits<std::size_t>::max(); // who reads lines cuts them as he likes
            return m_session.write((m_printed++ != 0 ? "\n" : "") + printTop(m_model, view, realTimeNow()));
        }
        m_width = terminalWidth(STDOUT_FILENO);
        m_height = terminalHeight(STDOUT_FILENO);
        view.width = m_width;
        view.colour = wantsColour(STDOUT_FILENO);
        return m_session.write(TerminalPage::draw(printTop(m_model, view, realTimeNow()), m_height));
    }

    BusConnection& m_session;
    const Options& m_options;
    StatusClient m_inquiry;
    LatestPayloads m_glimpses;
    TopModel m_model;
    const bool m_isPage;
    std::size_t m_width = 0;
    std::size_t m_height = 0;
    std::uint64_t m_printed = 0;
};

int top(Options& options)
{
    constexpr Nanoseconds kShortest = 50 * kMillisecond;
    options.interval = std::max(options.interval, kShortest);
    if (options.once) {
        options.count = 1;
    }
    BusConnection session(BusConnection::Output::Data, options.count == 0
                                                           ? BusConnection::Interruption::ExpectedExit
                                                           : BusConnection::Interruption::Aborts);
    Top top(session, options);
    int result = session.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        result = top.run();
    }
    return session.finish(result);
}

std::string readOrder(const std::string& text, TopModel::Order& order)
{
    if (text == "name") {
        order = TopModel::Order::Name;
    } else if (text == "rate") {
        order = TopModel::Order::Rate;
    } else if (text == "bytes") {
        order = TopModel::Order::Bytes;
    } else {
        return "channels are sorted by name, rate or bytes";
    }
    return {};
}

} // namespace

void addTopCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "top", "Show what is going on on a bus: channels, rates, clients");
    addBusOptions(command, options->bus);
    addDuration(command, "--interval", options->interval, "Time between two looks (default: 1s)");
    command
        .optionReadBy(
            [options = options.get()](const std::string& text) { return readOrder(text, options->order); },
            "--sort", "Sort channels by name (the default), rate or bytes")
        .typeName("ORDER");
    command.flag("--once", options->once, "Print one table, of the rates in one interval, and end");
    command.option("--count", options->count, "End after so many tables").positive().excludes("--once");
    command.flag("--json", options->json, "Print each look as a line of JSON");
    command.flag("--no-values", options->noValues,
                 "Do not show values: they cost the server one more subscriber for each channel");
    command.examples("# all of it, the busiest channels first\n"
                     "telvane top /tmp/bus --sort rate\n"
                     "# who misses records\n"
                     "telvane top /tmp/bus --once --json | jq '.clients[] | select(.missed > 0)'\n");
    command.run([options] { return top(*options); });
}

} // namespace TelvaneTool

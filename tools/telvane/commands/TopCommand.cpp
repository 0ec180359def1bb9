#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/bus/StatusClient.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/ProgressBar.h"
#include "common/cli/Terminal.h"
#include "top/LatestPayloads.h"
#include "top/TopScreen.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr Nanoseconds kResizePoll = kSecond / 5;
constexpr Nanoseconds kPageTimeout = kSecond; ///< a page is redrawn even without a response
constexpr Nanoseconds kTimeout = 60 * kSecond;

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
    Top(BusConnection& bus, const Options& options)
        : m_bus(bus),
          m_options(options),
          m_status(bus),
          m_model(getpid()),
          m_screen(options.order),
          m_isPage(!options.json && isTerminal(STDOUT_FILENO))
    {}

    /// \return an exit code
    int run()
    {
        int result = m_status.start(true);
        if (result == kSuccess && !m_bus.stopping()) {
            update();
        }
        if (result != kSuccess || m_bus.stopping()) {
            return result;
        }
        std::optional<TerminalPage> page;
        if (m_isPage) {
            page.emplace();
            m_keys.emplace();
        }
        if (m_isPage && m_options.count == 0) {
            draw(); // shows rates only after the first interval
        }
        std::uint64_t drawn = 0;
        while (waitAndRequest()) {
            update();
            if (!draw() || (m_options.count != 0 && ++drawn == m_options.count)) {
                break;
            }
        }
        return result;
    }

private:
    /// Waits for keys, and does what they say.
    /// \return false to stop
    bool takeKeys(Nanoseconds deadline)
    {
        if (!m_keys->active()) {
            return m_bus.sleepUntil(deadline);
        }
        if (!m_bus.awaitInput(STDIN_FILENO, deadline)) {
            return false;
        }
        const TopScreen::Effect effect = m_screen.take(m_keys->read());
        if (effect == TopScreen::Effect::Redraw) {
            draw();
        }
        return effect != TopScreen::Effect::Quit;
    }

    /// Waits for the next interval. Redraws when the size of the terminal changes.
    bool waitAndRequest()
    {
        const Nanoseconds due = monotonicNow() + m_options.interval;
        while (m_isPage && (m_screen.paused() || m_screen.showsHelp() || monotonicNow() < due)) {
            const Nanoseconds poll = monotonicNow() + kResizePoll;
            if (!takeKeys(monotonicNow() < due ? std::min(due, poll) : poll)) {
                return false;
            }
            if (terminalWidth(STDOUT_FILENO) != m_width || terminalHeight(STDOUT_FILENO) != m_height) {
                draw();
            }
        }
        if (!m_bus.sleepUntil(due)) {
            return false;
        }
        const std::uint64_t before = m_status.responses();
        m_status.request();
        m_bus.waitFor([&] { return m_status.responses() >= before + 2; },
                      monotonicNow() + (m_isPage || m_options.bus.reconnect ? kPageTimeout : kTimeout));
        return !m_bus.stopping();
    }

    /// Updates the model from the server's responses, and subscribes to new channels.
    void update()
    {
        m_model.update(m_status.channels(), m_status.clients(), monotonicNow());
        for (const auto& [channel, text] : m_payloads.take()) {
            m_model.setValue(channel, text);
        }
        if (!m_options.noValues) {
            for (const TopModel::ChannelRow& row : m_model.channels(TopModel::Order::Name)) {
                if (!m_bus.stopping()) {
                    m_payloads.subscribe(m_bus,
                                         row.status.name); // a refusal is reported; the value stays empty
                }
            }
        }
    }

    bool draw()
    {
        TopViewSettings view;
        view.path = m_options.bus.path;
        view.order = m_options.order;
        if (m_options.json) {
            return m_bus.write(printTopJson(m_model, view, realTimeNow()));
        }
        if (!m_isPage) {
            view.width = std::numeric_limits<std::size_t>::max(); // not a terminal: do not cut lines
            return m_bus.write((m_printed++ != 0 ? "\n" : "") + printTop(m_model, view, realTimeNow()));
        }
        m_width = terminalWidth(STDOUT_FILENO);
        m_height = terminalHeight(STDOUT_FILENO);
        view.width = m_width;
        view.height = m_height;
        view.colour = wantsColour(STDOUT_FILENO);
        view.keys = m_keys->active();
        if (m_screen.showsHelp()) {
            return m_bus.writeToTerminal(TerminalPage::draw(TopScreen::help(), m_height));
        }
        m_screen.apply(view);
        m_screen.limit(rowsOf(m_model, view));
        return m_bus.writeToTerminal(TerminalPage::draw(printTop(m_model, view, realTimeNow()), m_height));
    }

    BusConnection& m_bus;
    const Options& m_options;
    StatusClient m_status;
    LatestPayloads m_payloads;
    TopModel m_model;
    TopScreen m_screen;
    std::optional<TerminalKeys> m_keys; ///< of a page
    const bool m_isPage;
    std::size_t m_width = 0;
    std::size_t m_height = 0;
    std::uint64_t m_printed = 0;
};

int top(Options& options)
{
    constexpr Nanoseconds kMinInterval = 50 * kMillisecond;
    options.interval = std::max(options.interval, kMinInterval);
    if (options.once) {
        options.count = 1;
    }
    BusConnection bus(BusConnection::Output::Data, options.count == 0
                                                       ? BusConnection::Interruption::ExpectedExit
                                                       : BusConnection::Interruption::Aborts);
    if (options.bus.reconnect) {
        bus.reconnect(options.json || !isTerminal(STDOUT_FILENO)); // notices would spoil the page
    }
    Top top(bus, options);
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        result = top.run();
    }
    return bus.finish(result);
}

std::string readOrder(const std::string& text, TopModel::Order& order)
{
    if (text == "name") {
        order = TopModel::Order::Name;
    } else if (text == "rate") {
        order = TopModel::Order::Rate;
    } else if (text == "bytes") {
        order = TopModel::Order::Bytes;
    } else if (text == "missed") {
        order = TopModel::Order::Missed;
    } else {
        return "use name, rate, bytes or missed";
    }
    return {};
}

} // namespace

void addTopCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "top", "Show the channels, rates and clients of a server");
    addBusOptions(command, options->bus);
    addReconnectOption(command, options->bus);
    addDuration(command, "--interval", options->interval, "Update at this interval").showDefault("1s");
    command
        .optionReadBy(
            [options = options.get()](const std::string& text) { return readOrder(text, options->order); },
            "--sort", "Sort channels by name, rate, bytes or missed")
        .showDefault("name")
        .typeName("ORDER");
    command.flag("--once", options->once, "Print one table after one interval, and exit");
    command.option("--count", options->count, "Exit after this many tables").positive().excludes("--once");
    command.flag("--json", options->json, "Print each update as a line of JSON");
    command.flag("--no-values", options->noValues, "Hide values; this saves one subscription per channel");
    command.examples("# on a terminal: q quits, h lists the other keys\n"
                     "telvane top /tmp/bus\n"
                     "# the busiest channels first\n"
                     "telvane top /tmp/bus --sort rate\n"
                     "# clients that miss messages\n"
                     "telvane top /tmp/bus --once --json | jq '.clients[] | select(.missed > 0)'\n");
    command.run([options] { return top(*options); });
}

} // namespace TelvaneTool

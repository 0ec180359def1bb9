#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Terminal.h"
#include "common/text/PrintableText.h"
#include "weld/WeldMonitor.h"

#include <memory>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

using Telvane::TelvaneDataTypeBase;

constexpr Nanoseconds kRedraw = kSecond / 10;
constexpr Nanoseconds kPlainRedraw = kSecond; ///< of a file or pipe
constexpr Nanoseconds kDrainTime = kSecond;   ///< to wait for records after the publisher is done

struct Options
{
    BusOptions bus;
    std::string ledger;
    bool verbose = false;
};

/// Standard output, with a live line at its end.
class Screen
{
public:
    explicit Screen(BusConnection& bus) : m_bus(bus), m_isTerminal(isTerminal(STDOUT_FILENO)) {}

    void draw(WeldMonitor& monitor)
    {
        const std::string events = printable(monitor.takeEvents(), Lines::Keep);
        const std::string line = printable(monitor.liveLine(terminalWidth(STDOUT_FILENO)), Lines::Remove);
        if (m_isTerminal) {
            m_bus.writeToTerminal((m_lineShown ? kEraseLine : "") + events + line);
            m_lineShown = !line.empty();
            return;
        }
        const Nanoseconds now = monotonicNow();
        const bool due = !line.empty() && now >= m_nextPlainLine;
        if (due) {
            m_nextPlainLine = now + kPlainRedraw;
        }
        if (due || !events.empty()) {
            m_bus.write(events + (due ? line + "\n" : ""));
        }
    }

    void close(const std::string& summary)
    {
        m_bus.write((m_lineShown ? "\n" : "") + summary);
        m_lineShown = false;
    }

private:
    BusConnection& m_bus;
    bool m_isTerminal;
    bool m_lineShown = false;
    Nanoseconds m_nextPlainLine = 0;
};

template <class Record>
int follow(BusConnection& bus, const char* channel, WeldMonitor& monitor)
{
    return bus.subscribe(channel, Record(), [&monitor](void*, TelvaneDataTypeBase* record, int, void*) {
        monitor.take(static_cast<const Record&>(*record));
    });
}

/// Draws until a signal or, with a ledger, until all records of the publisher have arrived.
void watch(BusConnection& bus, WeldMonitor& monitor, const LatencyTracker& ledger)
{
    Screen screen(bus);
    std::uint64_t received = 0;
    Nanoseconds lastArrival = monotonicNow();
    Nanoseconds nextDraw = lastArrival;
    while (bus.sleepUntil(nextDraw)) {
        nextDraw += kRedraw;
        screen.draw(monitor);
        if (monitor.received() != received) {
            received = monitor.received();
            lastArrival = monotonicNow();
        }
        if (ledger.isOpen() && ledger.finished() &&
            (received >= ledger.published() || monotonicNow() - lastArrival > kDrainTime)) {
            break;
        }
    }
    screen.draw(monitor);
    screen.close(monitor.summary(bus.undecodableRecords()));
}

int monitorWelds(const Options& options)
{
    LatencyTracker ledger;
    if (!options.ledger.empty() && !ledger.open(options.ledger, LatencyTracker::Role::Listener)) {
        return kOutputFailure;
    }
    WeldMonitor monitor(ledger);
    BusConnection bus(BusConnection::Output::Data, ledger.isOpen()
                                                       ? BusConnection::Interruption::Aborts
                                                       : BusConnection::Interruption::ExpectedExit);
    if (options.bus.reconnect) {
        bus.reconnect(true);
    }
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        result = follow<Telvane::WeldTriggerStart>(bus, "WeldTriggerStart", monitor);
    }
    if (result == kSuccess) {
        result = follow<Telvane::WeldTraceData>(bus, "WeldTraceData", monitor);
    }
    if (result == kSuccess) {
        result = follow<Telvane::WeldTriggerEnd>(bus, "WeldTriggerEnd", monitor);
    }
    if (result == kSuccess) {
        if (ledger.isOpen()) {
            ledger.listen();
        }
        if (options.verbose) {
            printStatus("listening");
        }
        watch(bus, monitor, ledger);
    }
    return bus.finish(result);
}

} // namespace

void addMonitorCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "monitor", "Show welds live");
    addBusOptions(command, options->bus);
    addReconnectOption(command, options->bus);
    command
        .option("--ledger", options->ledger,
                "Share FILE with telvane weld, to report losses and latency; exit when telvane weld does")
        .typeName("FILE");
    command.flag("--verbose", options->verbose,
                 "Print \"listening\" to standard error when all subscriptions are active");
    command.examples("# each weld live, with its metrics at the end\n"
                     "telvane monitor /tmp/bus\n");
    command.run([options] { return monitorWelds(*options); });
}

} // namespace TelvaneTool

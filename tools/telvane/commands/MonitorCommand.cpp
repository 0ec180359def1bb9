#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Terminal.h"
#include "weld/WeldMonitor.h"

#include <memory>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

using Telvane::TelvaneDataTypeBase;

constexpr Nanoseconds kRedraw = kSecond / 10;
constexpr Nanoseconds kPlainRedraw = kSecond; ///< where lines cannot be drawn over
constexpr Nanoseconds kLastRecords = kSecond; ///< how long to wait for records when the publisher is done

struct Options
{
    BusOptions bus;
    std::string ledger;
    bool verbose = false;
};

/// Standard output, with one line at its end that is drawn anew again and again.
class Screen
{
public:
    explicit Screen(BusConnection& session) : m_session(session), m_isTerminal(isatty(STDOUT_FILENO) != 0) {}

    void draw(WeldMonitor& monitor)
    {
        const std::string events = monitor.takeEvents();
        const std::string line = monitor.liveLine(terminalWidth(STDOUT_FILENO));
        if (m_isTerminal) {
            m_session.write((m_lineShown ? "\r\x1b[K" : "") + events + line);
            m_lineShown = !line.empty();
            return;
        }
        const Nanoseconds now = monotonicNow();
        const bool due = !line.empty() && now >= m_nextPlainLine;
        if (due) {
            m_nextPlainLine = now + kPlainRedraw;
        }
        if (due || !events.empty()) {
            m_session.write(events + (due ? line + "\n" : ""));
        }
    }

    void close(const std::string& summary)
    {
        m_session.write((m_lineShown ? "\n" : "") + summary);
        m_lineShown = false;
    }

private:
    BusConnection& m_session;
    bool m_isTerminal;
    bool m_lineShown = false;
    Nanoseconds m_nextPlainLine = 0;
};

template <class Record>
int follow(BusConnection& session, const char* channel, WeldMonitor& monitor)
{
    return session.subscribe(channel, Record(), [&monitor](void*, TelvaneDataTypeBase* record, int, void*) {
        monitor.take(static_cast<const Record&>(*record));
    });
}

/// Draws until a signal comes or, with a ledger, until the publisher is done and its records are here.
void watch(BusConnection& session, WeldMonitor& monitor, const LatencyTracker& ledger)
{
    Screen screen(session);
    std::uint64_t received = 0;
    Nanoseconds lastNews = monotonicNow();
    Nanoseconds nextDraw = lastNews;
    while (session.sleepUntil(nextDraw)) {
        nextDraw += kRedraw;
        screen.draw(monitor);
        if (monitor.received() != received) {
            received = monitor.received();
            lastNews = monotonicNow();
        }
        if (ledger.isOpen() && ledger.finished() &&
            (received >= ledger.published() || monotonicNow() - lastNews > kLastRecords)) {
            break;
        }
    }
    screen.draw(monitor);
    screen.close(monitor.summary(session.undecodableRecords()));
}

int monitorWelds(const Options& options)
{
    LatencyTracker ledger;
    if (!options.ledger.empty() && !ledger.open(options.ledger, LatencyTracker::Role::Listener)) {
        return kOutputFailure;
    }
    WeldMonitor monitor(ledger);
    BusConnection session(BusConnection::Output::Data, ledger.isOpen()
                                                           ? BusConnection::Interruption::Aborts
                                                           : BusConnection::Interruption::ExpectedExit);
    int result = session.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        result = follow<Telvane::WeldTriggerStart>(session, "WeldTriggerStart", monitor);
    }
    if (result == kSuccess) {
        result = follow<Telvane::WeldTraceData>(session, "WeldTraceData", monitor);
    }
    if (result == kSuccess) {
        result = follow<Telvane::WeldTriggerEnd>(session, "WeldTriggerEnd", monitor);
    }
    if (result == kSuccess) {
        if (ledger.isOpen()) {
            ledger.listen();
        }
        if (options.verbose) {
            printError("listening");
        }
        watch(session, monitor, ledger);
    }
    return session.finish(result);
}

} // namespace

void addMonitorCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "monitor", "Show welds as they happen");
    addBusOptions(command, options->bus);
    command
        .option("--ledger", options->ledger,
                "File shared with telvane weld; ends when that is done, and tells losses and delays")
        .typeName("FILE");
    command.flag("--verbose", options->verbose,
                 "Say on standard error when nothing that is published from then on will be missed");
    command.examples("# each weld as it happens, and what it came to\n"
                     "telvane monitor /tmp/bus\n");
    command.run([options] { return monitorWelds(*options); });
}

} // namespace TelvaneTool

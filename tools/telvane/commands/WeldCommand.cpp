#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"
#include "weld/WeldOptions.h"
#include "weld/WeldPublisher.h"
#include "weld/WeldSource.h"

#include <memory>
#include <sys/prctl.h>

namespace TelvaneTool
{

namespace
{

struct Options
{
    BusOptions bus;
    WeldSource::Options source;
    WeldDetector::Settings detector;
    double hold = inSeconds(WeldDetector::Settings().hold);
    WeldPublisher::Settings publisher;
    WeldSetup setup;
    std::string ledger;
    std::string output;
    bool force = false;
};

void replay(BusConnection& bus, SampleSource& samples, WeldPublisher& publisher, const Options& options)
{
    WeldDetector::Settings settings = options.detector;
    settings.hold = toSaturated<Nanoseconds>(options.hold * static_cast<double>(kSecond));
    publishWelds(samples, publisher, settings, [&bus] { return bus.stopping(); });
}

/// With a ledger, publish only when there is a listener, which must receive every record.
int awaitListener(BusConnection& bus, const LatencyTracker& ledger)
{
    constexpr Nanoseconds kTimeout = 10 * kSecond;
    const Nanoseconds deadline = monotonicNow() + kTimeout;
    while (!ledger.hasListener() && bus.sleepUntil(monotonicNow() + 10 * kMillisecond)) {
        if (monotonicNow() >= deadline) {
            printError(
                "no telvane monitor uses this ledger; start one with: telvane monitor PATH --ledger FILE");
            return kTimedOut;
        }
    }
    return kSuccess;
}

/// Ends the wait of the listener, however the command ends.
class LedgerEnd
{
public:
    explicit LedgerEnd(LatencyTracker& ledger) : m_ledger(ledger) {}
    ~LedgerEnd() { finish(); }
    LedgerEnd(const LedgerEnd&) = delete;
    LedgerEnd& operator=(const LedgerEnd&) = delete;

    void finish()
    {
        if (m_ledger.isOpen()) {
            m_ledger.finish();
        }
    }

private:
    LatencyTracker& m_ledger;
};

void reportResult(const WeldPublisher& publisher, const char* what)
{
    printStatus(std::string(what) + printNumber(publisher.welds(), "weld") + " with " +
                printNumber(publisher.samples(), "sample"));
    if (publisher.late() > 0) {
        printStatus("the replay is late by " + std::to_string(publisher.late() / kMillisecond) + " ms");
    }
}

/// \return an exit code
int finish(WeldSource& source, const WeldPublisher& publisher, const BusConnection& bus)
{
    const int result = source.finish();
    if (result == kSuccess && publisher.welds() == 0 && !bus.stopping()) {
        printError("no weld found: the current never exceeded --threshold");
        return kWrongInput;
    }
    return result;
}

/// Writes a recording instead of publishing.
int convert(const Options& options)
{
    BusConnection bus(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    WeldSource source(options.source, [&bus](int fd) { return bus.awaitInput(fd); });
    if (const int opened = source.open(); opened != kSuccess) {
        return bus.finish(opened);
    }
    RecordingSink sink(bus);
    if (!sink.open(options.output, options.force)) {
        return bus.finish(kOutputFailure);
    }
    LatencyTracker closed;
    WeldPublisher::Settings settings = options.publisher;
    settings.speed = 0.0;
    WeldPublisher publisher(sink, source.samples(), closed, options.setup, settings);
    replay(bus, source.samples(), publisher, options);
    int result = finish(source, publisher, bus);
    if (!bus.stopping() && publisher.welds() != 0) {
        if (!sink.finish()) {
            return bus.finish(kOutputFailure);
        }
        reportResult(publisher, "wrote ");
    }
    result = bus.finish(result);
    return result;
}

int weld(const Options& options)
{
    if (options.bus.path.empty() == options.output.empty()) {
        printError("either PATH or -o FILE is required");
        return kWrongUsage;
    }
    if (!options.output.empty()) {
        return convert(options);
    }
    LatencyTracker ledger;
    if (!options.ledger.empty() && !ledger.open(options.ledger, LatencyTracker::Role::Publisher)) {
        return kOutputFailure;
    }
    LedgerEnd ledgerEnd(ledger);
    // Samples can be 20 microseconds apart. By default, the kernel sleeps up to 50 longer than requested.
    prctl(PR_SET_TIMERSLACK, 1UL);

    BusConnection bus(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    WeldSource source(options.source, [&bus](int fd) { return bus.awaitInput(fd); });
    if (const int opened = source.open(); opened != kSuccess) {
        return bus.finish(opened);
    }
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess && ledger.isOpen()) {
        result = awaitListener(bus, ledger);
    }
    if (result != kSuccess) {
        return bus.finish(result);
    }
    BusSink sink(bus);
    WeldPublisher publisher(sink, source.samples(), ledger, options.setup, options.publisher);
    replay(bus, source.samples(), publisher, options);
    ledgerEnd.finish();
    result = bus.finish(finish(source, publisher, bus));
    reportResult(publisher, "published ");
    return result;
}

void addReplayOptions(Command& command, Options& options)
{
    const char* const simulation = "Simulation (without --csv; --period-us applies)";
    command
        .option("--seed", options.source.simulation.seed,
                "Seed the random numbers; the same seed gives the same welds")
        .group(simulation)
        .showDefault();
    command.option("--welds", options.source.simulation.welds, "Simulate this many welds")
        .group(simulation)
        .positive()
        .showDefault();
    command.option("--duration", options.source.duration, "Simulate this arc time (s), at least 1.5")
        .group(simulation)
        .within(1.5, 1e5)
        .showDefault();

    const char* const replay = "Replay";
    command.option("--threshold", options.detector.threshold, "Detect an arc above this current (A)")
        .group(replay)
        .notNegative()
        .showDefault();
    command
        .option("--hold", options.hold,
                "End a weld when the current stays below the threshold for this time (s)")
        .group(replay)
        .notNegative()
        .showDefault();
    command
        .option("--speed", options.publisher.speed,
                "Publish at this speed relative to the recording; 0 for the maximum, at which slow "
                "subscribers miss records")
        .group(replay)
        .within(0.0, 1e9)
        .showDefault();
    command
        .flag("--stamp-now", options.publisher.stampNow,
              "Stamp records with the current time instead of the recorded one")
        .group(replay);
    command
        .option("--ledger", options.ledger, "Share FILE with telvane monitor, to report losses and latency")
        .typeName("FILE")
        .group(replay);
}

} // namespace

void addWeldCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "weld", "Publish welds as a power source does: from a CSV file, or simulated");
    addBusOptions(command, options->bus, false);
    command.option("-o,--output", options->output, "Write a recording to FILE instead of publishing on PATH")
        .typeName("FILE");
    command.flag("--force", options->force, "Overwrite an existing file").needs("--output");
    addRecordingOptions(command, options->source);
    addReplayOptions(command, *options);
    addSetupOptions(command, options->setup);
    command.examples(
        "# three simulated welds\n"
        "telvane weld /tmp/bus --welds 3 --duration 5\n"
        "# a CSV file, ten times faster\n"
        "telvane weld /tmp/bus --csv robot.csv --amps current_A --volts voltage_V --period-us 500 \\\n"
        "    --speed 10\n"
        "# convert a CSV file to a recording; the weld number is kept with each weld\n"
        "telvane weld -o robot.jsonl --csv robot.csv --amps current_A --volts voltage_V --time t --group "
        "weld\n");
    command.run([options, command] {
        if (options->source.recording.path.empty() && !command.given("--set-volts")) {
            options->setup.setVolts = SimulatedWeld::kSetVolts;
        }
        if (options->source.recording.path.empty() && !command.given("--set-wfs")) {
            options->setup.setWfs = SimulatedWeld::kSetWfs;
        }
        return weld(*options);
    });
}

} // namespace TelvaneTool

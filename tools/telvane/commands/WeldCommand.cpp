#include "catalogue/ConsumableCode.h"
#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "weld/WeldPublisher.h"
#include "weld/WeldSource.h"

#include <Telvane/Consumables.h>

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
    double hold = 0.5;
    WeldPublisher::Settings publisher;
    WeldSetup setup;
    std::string ledger;
};

void replay(BusConnection& session, SampleSource& samples, WeldPublisher& publisher, const Options& options)
{
    WeldDetector::Settings settings = options.detector;
    settings.hold = nanoseconds(options.hold);
    WeldDetector detector(settings, publisher);
    WeldSample sample;
    Nanoseconds period = 0;
    for (;;) {
        const SampleSource::Next next = samples.next(sample);
        if (next != SampleSource::Next::Sample) {
            detector.finish(period);
        }
        if (next == SampleSource::Next::End) {
            return;
        }
        if (session.stopping()) {
            publisher.abort();
            return;
        }
        if (next == SampleSource::Next::NewGroup) {
            publisher.beginGroup(sample);
        }
        period = samples.traits().period;
        detector.push(sample);
    }
}

/// With a ledger somebody is to see everything, from the first record on.
int awaitListener(BusConnection& session, const LatencyTracker& ledger)
{
    constexpr Nanoseconds kPatience = 10 * kSecond;
    const Nanoseconds deadline = monotonicNow() + kPatience;
    while (!ledger.hasListener() && session.sleepUntil(monotonicNow() + 10 * kMillisecond)) {
        if (monotonicNow() >= deadline) {
            printError("nobody listens with this ledger; start: telvane monitor PATH --ledger FILE");
            return kTimeRanOut;
        }
    }
    return kSuccess;
}

/// Whatever ends the command ends the listener's wait, too.
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

int weld(const Options& options)
{
    LatencyTracker ledger;
    if (!options.ledger.empty() && !ledger.open(options.ledger, LatencyTracker::Role::Publisher)) {
        return kOutputFailure;
    }
    LedgerEnd ledgerEnd(ledger);
    // Samples are 20 microseconds apart, and the kernel would by itself sleep 50 longer than asked.
    prctl(PR_SET_TIMERSLACK, 1UL);

    BusConnection session(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    WeldSource source(options.source, [&session](int fd) { return session.awaitInput(fd); });
    if (const int opened = source.open(); opened != kSuccess) {
        return session.finish(opened);
    }
    int result = session.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess && ledger.isOpen()) {
        result = awaitListener(session, ledger);
    }
    if (result != kSuccess) {
        return session.finish(result);
    }
    WeldPublisher publisher(session, source.samples(), ledger, options.setup, options.publisher);
    replay(session, source.samples(), publisher, options);
    ledgerEnd.finish();
    result = source.finish();
    if (result == kSuccess && publisher.welds() == 0 && !session.stopping()) {
        printError("there is no weld: the current never rose above --threshold");
        result = kWrongInput;
    }
    result = session.finish(result);
    printError("published " + std::to_string(publisher.welds()) + " welds with " +
               std::to_string(publisher.samples()) + " samples");
    if (publisher.late() > 0) {
        printError("fell behind the wanted pace by " + std::to_string(publisher.late() / kMillisecond) +
                   " ms");
    }
    return result;
}

template <class Code, std::size_t N>
void addCodeOption(Command& command, const char* name, Code& code, const std::string (&names)[N],
                   const char* what)
{
    const auto read = [&code, &names](const std::string& text) -> std::string {
        const auto known = readConsumableCode(text, names, N);
        if (!known) {
            return "\"" + text + "\" is neither a name nor a code";
        }
        code = static_cast<Code>(*known);
        return {};
    };
    command.optionReadBy(read, name, std::string(what) + ", name or code (default: " + names[code] + ")")
        .group("Consumables")
        .typeName("CODE");
}

void addRecordingOptions(Command& command, Options& options)
{
    CsvRecording::Options& recording = options.source.recording;
    const char* const group = "Recording";
    const auto add = [&](const char* name, auto& target, const char* what) {
        return command.option(name, target, what).group(group);
    };
    add("--csv", recording.path, "File with a header line, or - for standard input").typeName("FILE");
    add("--amps", recording.text(Quantity::Amps), "Column of the current, as in current_dA*0.1 (A)");
    add("--volts", recording.text(Quantity::Volts), "Column of the voltage (V)");
    add("--wfs", recording.text(Quantity::Wfs), "Column of the wire-feed speed, or a number (in/min)");
    add("--gas", recording.text(Quantity::Gas), "Column of the gas flow, or a number (l/min)");
    add("--motor", recording.text(Quantity::Motor), "Column of the wire-feed motor's load (A)");
    add("--wire-used", recording.text(Quantity::WireUsed),
        "Column of the wire fed so far (in); goes before --wfs in the metrics");
    add("--time", recording.time,
        "Column of the time, as in t_ms*0.001 (s) or as clock time, or DATE+TIME for two columns");
    add("--period-us", options.source.periodMicroseconds, "Time between rows when there is no such column")
        .within(1.0, 1e9)
        .excludes("--time");
    add("--group", recording.group, "Column whose change begins a new weld");
    add("--delimiter", recording.delimiter, "Character between fields").showDefault();
}

void addReplayOptions(Command& command, Options& options)
{
    const char* const simulation = "Simulation (without --csv; --period-us applies)";
    command.option("--seed", options.source.simulation.seed, "Welds of one seed are all alike")
        .group(simulation)
        .showDefault();
    command.option("--welds", options.source.simulation.welds, "Number of welds")
        .group(simulation)
        .positive()
        .showDefault();
    command.option("--duration", options.source.duration, "Arc time of each weld, in seconds")
        .group(simulation)
        .within(1.5, 1e5)
        .showDefault();

    const char* const replay = "Replay";
    command.option("--threshold", options.detector.threshold, "The arc burns above this current (A)")
        .group(replay)
        .notNegative()
        .showDefault();
    command
        .option("--hold", options.hold, "A weld is over when the current has stayed below for this time (s)")
        .group(replay)
        .notNegative()
        .showDefault();
    command
        .option("--speed", options.publisher.speed,
                "Times the recorded pace; 0 for as fast as it goes, which slow subscribers miss")
        .group(replay)
        .within(0.0, 1e9)
        .showDefault();
    command
        .flag("--stamp-now", options.publisher.stampNow,
              "Stamp records with the time of publication instead of the recorded one")
        .group(replay);
    command
        .option("--ledger", options.ledger,
                "File shared with telvane monitor, which tells losses and delays by it")
        .typeName("FILE")
        .group(replay);
}

void addSetupOptions(Command& command, WeldSetup& setup)
{
    using namespace Telvane;
    const char* const group = "Set points";
    const auto add = [&](const char* name, auto& target, const char* what) {
        command.option(name, target, what).group(group).showDefault();
    };
    add("--set-volts", setup.setVolts, "Commanded voltage (V)");
    add("--set-amps", setup.setAmps, "Commanded current (A)");
    add("--set-wfs", setup.setWfs, "Commanded wire-feed speed (in/min)");
    add("--arc-control", setup.setArcControl, "Commanded arc control");
    add("--program", setup.program, "Number of the weld program");
    add("--tag", setup.firstTag, "Identifier of the first weld; the next ones count on");
    add("--feeder-side", setup.feederSide, "Side of a dual feeder");
    add("--lifetime-hours", setup.lifetimeHours, "Arc time of the machine so far (h)");
    addCodeOption(command, "--process", setup.process, ProcessIDStrings, "Weld process");
    addCodeOption(command, "--wire-type", setup.wireType, WireTypeStrings, "Wire type");
    addCodeOption(command, "--wire-size", setup.wireSize, WireSizeStrings, "Wire size");
    addCodeOption(command, "--alloy", setup.alloy, AlloyIDStrings, "Wire alloy");
    addCodeOption(command, "--gas-type", setup.gas, GasIDStrings, "Shielding gas");
}

} // namespace

void addWeldCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "weld",
                    "Play the power source: publish the welds of a recording, or a simulated one");
    addBusOptions(command, options->bus);
    addRecordingOptions(command, *options);
    addReplayOptions(command, *options);
    addSetupOptions(command, options->setup);
    command.examples(
        "# three welds that are made up\n"
        "telvane weld /tmp/bus --welds 3 --duration 5\n"
        "# a recording of your own, ten times as fast\n"
        "telvane weld /tmp/bus --csv robot.csv --amps current_A --volts voltage_V --period-us 500 \\\n"
        "    --speed 10\n");
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

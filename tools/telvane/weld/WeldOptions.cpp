#include "weld/WeldOptions.h"

#include "catalogue/ConsumableCode.h"
#include "common/cli/CommandLine.h"

namespace TelvaneTool
{

namespace
{

template <class Code, std::size_t N>
void addCodeOption(Command& command, const char* name, Code& code, const std::string (&names)[N],
                   const char* what)
{
    const auto read = [&code, &names](const std::string& text) -> std::string {
        const auto known = readConsumableCode(text, names, N);
        if (!known) {
            return "\"" + text + "\" is not a name or code";
        }
        code = static_cast<Code>(*known);
        return {};
    };
    command.optionReadBy(read, name, std::string(what) + ", name or code")
        .showDefault(names[code].c_str())
        .group("Consumables")
        .typeName("CODE");
}

} // namespace

void addRecordingOptions(Command& command, WeldSource::Options& options)
{
    CsvRecording::Options& recording = options.recording;
    const char* const group = "Recording";
    command.option("--csv", recording.path, "CSV file with a header line, or - for standard input")
        .typeName("FILE")
        .group(group);
    const auto add = [&](const char* name, auto& target, const char* what) {
        return command.option(name, target, what).group(group).needs("--csv");
    };
    add("--amps", recording.text(Quantity::Amps),
        "Column of the current (A); may be scaled, as in current_dA*0.1")
        .typeName("COLUMN");
    add("--volts", recording.text(Quantity::Volts), "Column of the voltage (V)").typeName("COLUMN");
    add("--wfs", recording.text(Quantity::Wfs), "Column of the wire-feed speed (in/min), or a constant")
        .typeName("COLUMN");
    add("--gas", recording.text(Quantity::Gas), "Column of the gas flow (l/min), or a constant")
        .typeName("COLUMN");
    add("--motor", recording.text(Quantity::Motor), "Column of the wire feeder's motor current (A)")
        .typeName("COLUMN");
    add("--wire-used", recording.text(Quantity::WireUsed),
        "Column of the wire fed so far (in); replaces --wfs in the metrics")
        .typeName("COLUMN");
    add("--time", recording.time,
        "Column of the time: seconds, which may be scaled, as in t_ms*0.001, or clock times; DATE+TIME for "
        "two columns")
        .typeName("COLUMN");
    command.option("--period-us", options.periodMicroseconds, "Time between rows (µs), without --time")
        .group(group)
        .within(1.0, 1e9)
        .excludes("--time");
    add("--group", recording.group, "Column whose value changes with each new weld; -o records its values")
        .typeName("COLUMN");
    add("--delimiter", recording.delimiter, "Field separator").showDefault();
    add("--decimal", recording.decimalSign, "Decimal sign of the numbers, . or ,")
        .check([](const std::string& text) {
            return text == "." || text == "," ? std::string() : "expected . or ,";
        })
        .typeName("SIGN")
        .showDefault();
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
    add("--tag", setup.firstTag, "Tag of the first weld; incremented for each weld");
    add("--feeder-side", setup.feederSide, "Side of a dual feeder");
    add("--lifetime-hours", setup.lifetimeHours, "Arc time of the machine before the first weld (h)");
    addCodeOption(command, "--process", setup.process, ProcessIDStrings, "Weld process");
    addCodeOption(command, "--wire-type", setup.wireType, WireTypeStrings, "Wire type");
    addCodeOption(command, "--wire-size", setup.wireSize, WireSizeStrings, "Wire size");
    addCodeOption(command, "--alloy", setup.alloy, AlloyIDStrings, "Wire alloy");
    addCodeOption(command, "--gas-type", setup.gas, GasIDStrings, "Shielding gas");
}

void publishWelds(SampleSource& samples, WeldPublisher& publisher, const WeldDetector::Settings& settings,
                  const std::function<bool()>& stopping)
{
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
        if (stopping()) {
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

} // namespace TelvaneTool

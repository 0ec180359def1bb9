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
    command.optionReadBy(read, name, "Set the " + std::string(what) + ", name or code")
        .showDefault(names[code].c_str())
        .group("Consumables")
        .typeName("CODE");
}

} // namespace

void addRecordingOptions(Command& command, WeldSource::Options& options)
{
    CsvRecording::Options& recording = options.recording;
    const char* const group = "Recording";
    command
        .option("--csv", recording.path,
                "Read samples from FILE: CSV with a header line; - is standard input")
        .typeName("FILE")
        .group(group);
    const auto add = [&](const char* name, auto& target, const char* what) {
        return command.option(name, target, what).group(group).needs("--csv");
    };
    add("--amps", recording.text(Quantity::Amps),
        "Read the current (A) from COLUMN, which may be scaled, as in current_dA*0.1")
        .typeName("COLUMN");
    add("--volts", recording.text(Quantity::Volts), "Read the voltage (V) from COLUMN").typeName("COLUMN");
    add("--wfs", recording.text(Quantity::Wfs),
        "Read the wire-feed speed (in/min) from COLUMN, or use a constant")
        .typeName("COLUMN");
    add("--gas", recording.text(Quantity::Gas), "Read the gas flow (l/min) from COLUMN, or use a constant")
        .typeName("COLUMN");
    add("--motor", recording.text(Quantity::Motor), "Read the wire feeder's motor current (A) from COLUMN")
        .typeName("COLUMN");
    add("--wire-used", recording.text(Quantity::WireUsed),
        "Read the wire fed so far (in) from COLUMN; replaces --wfs in the metrics")
        .typeName("COLUMN");
    add("--time", recording.time,
        "Read the time from COLUMN: seconds, which may be scaled, as in t_ms*0.001, or clock times; "
        "DATE+TIME for "
        "two columns")
        .typeName("COLUMN");
    command.option("--period-us", options.periodMicroseconds, "Use this time between rows (µs)")
        .group(group)
        .within(1.0, 1e9)
        .excludes("--time");
    add("--group", recording.group,
        "Begin a new weld when the value of COLUMN changes; -o records its values")
        .typeName("COLUMN");
    add("--delimiter", recording.delimiter, "Separate fields at CHAR").showDefault();
    add("--decimal", recording.decimalSign, "Read numbers with this decimal sign, . or ,")
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
    add("--set-volts", setup.setVolts, "Set the commanded voltage (V)");
    add("--set-amps", setup.setAmps, "Set the commanded current (A)");
    add("--set-wfs", setup.setWfs, "Set the commanded wire-feed speed (in/min)");
    add("--arc-control", setup.setArcControl, "Set the commanded arc control");
    add("--program", setup.program, "Set the number of the weld program");
    add("--tag", setup.firstTag, "Set the tag of the first weld, which is incremented for each weld");
    add("--feeder-side", setup.feederSide, "Set the side of a dual feeder");
    add("--lifetime-hours", setup.lifetimeHours, "Set the arc time of the machine before the first weld (h)");
    addCodeOption(command, "--process", setup.process, ProcessIDStrings, "weld process");
    addCodeOption(command, "--wire-type", setup.wireType, WireTypeStrings, "wire type");
    addCodeOption(command, "--wire-size", setup.wireSize, WireSizeStrings, "wire size");
    addCodeOption(command, "--alloy", setup.alloy, AlloyIDStrings, "wire alloy");
    addCodeOption(command, "--gas-type", setup.gas, GasIDStrings, "shielding gas");
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

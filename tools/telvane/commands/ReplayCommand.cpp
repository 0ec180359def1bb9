#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"
#include "recording/Replay.h"

#include <memory>
#include <unistd.h>
#include <vector>

namespace TelvaneTool
{

namespace
{

struct Options
{
    BusOptions bus;
    std::string file;
    Replay::Settings replay;
    std::vector<std::string> renames;
    bool verbose = false;
};

std::string checkRename(const std::string& text)
{
    const std::size_t equals = text.find('=');
    return equals == std::string::npos || equals == 0 ? "expected OLD=NEW, got \"" + text + "\""
                                                      : checkChannel(text.substr(equals + 1));
}

int replay(Options& options)
{
    for (const std::string& rename : options.renames) {
        const std::size_t equals = rename.find('=');
        options.replay.renames[rename.substr(0, equals)] = rename.substr(equals + 1);
    }
    if (options.replay.loop && options.file == "-") {
        printError("--loop cannot repeat standard input");
        return kWrongUsage;
    }
    if (options.file != "-") {
        // Report an unreadable recording before sending anything.
        RecordingReader reader;
        if (!reader.open(options.file)) {
            return kWrongInput;
        }
    }
    BusConnection bus(BusConnection::Output::Unused, options.replay.loop
                                                         ? BusConnection::Interruption::ExpectedExit
                                                         : BusConnection::Interruption::Aborts);
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        Replay run(bus, options.file, options.replay);
        result = run.run();
        if (options.verbose || isatty(STDERR_FILENO) != 0) {
            printStatus(std::to_string(run.published()) + " records published");
        }
    }
    return bus.finish(result);
}

} // namespace

void addReplayCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Replay::Settings& replaySettings = options->replay;
    Command command(line, "replay", "Publish the records of a recording at their original times");
    addBusOptions(command, options->bus);
    command.option("FILE", options->file, "Recording, or - for standard input").required();
    command
        .option("--speed", replaySettings.speed,
                "Speed relative to the recording; 0 does not wait between records")
        .within(0.0, 1e6)
        .showDefault();
    addDuration(command, "--from", replaySettings.from, "Start at this time after the first record");
    addDuration(command, "--until", replaySettings.until, "Stop at this time after the first record");
    command.flag("--loop", replaySettings.loop, "Repeat until interrupted");
    command
        .option("--only", replaySettings.only,
                "Publish only channels that match PATTERN, where * and ? are wildcards; may be repeated")
        .typeName("PATTERN")
        .repeatable();
    command
        .option("--rename", options->renames,
                "Publish the records of channel OLD on channel NEW; may be repeated")
        .check(&checkRename)
        .repeatable()
        .typeName("OLD=NEW");
    command.flag("--verbose", options->verbose, "Print the number of published records to standard error");
    command.examples("# ten times slower\n"
                     "telvane replay /tmp/bus weld.jsonl --speed 0.1\n"
                     "# a part of it, on another channel\n"
                     "telvane replay /tmp/bus weld.jsonl --from 12s --until 1m --rename PSFeedback=Before\n");
    command.run([options] { return replay(*options); });
}

} // namespace TelvaneTool

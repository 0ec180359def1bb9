#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"
#include "common/support/HumanReadable.h"
#include "recording/Replay.h"

#include <algorithm>

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
    std::vector<std::string> files;
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
    const bool fromInput = std::find(options.files.begin(), options.files.end(), "-") != options.files.end();
    if (options.replay.loop && fromInput) {
        printError("--loop cannot repeat standard input");
        return kWrongUsage;
    }
    for (const std::string& file : options.files) {
        // Report a file that cannot be replayed before sending anything.
        if (file != "-" && !RecordingReader().open(file)) {
            return kWrongInput;
        }
    }
    BusConnection bus(BusConnection::Output::Unused, options.replay.loop
                                                         ? BusConnection::Interruption::ExpectedExit
                                                         : BusConnection::Interruption::Aborts);
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        Replay run(bus, options.files, options.replay);
        result = run.run();
        if (options.verbose || isatty(STDERR_FILENO) != 0) {
            printStatus("published " + printNumber(run.published(), "record"));
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
    command.option("FILE", options->files, "Recordings, in order; - is standard input").required();
    command
        .option("--speed", replaySettings.speed,
                "Publish at this speed relative to the recording; 0 does not wait between records")
        .within(0.0, 1e6)
        .showDefault();
    addRangeOptions(command, replaySettings.range);
    command.flag("--loop", replaySettings.loop, "Repeat until interrupted");
    command
        .option("--only", replaySettings.only,
                "Publish only channels that match PATTERN, where * and ? are wildcards")
        .typeName("PATTERN")
        .repeatable();
    command.option("--rename", options->renames, "Publish the records of channel OLD on channel NEW")
        .check(&checkRename)
        .repeatable()
        .typeName("OLD=NEW");
    command.flag("--verbose", options->verbose, "Print the number of published records to standard error");
    command.examples("# ten times slower\n"
                     "telvane replay /tmp/bus weld.jsonl --speed 0.1\n"
                     "# a part of it, on another channel\n"
                     "telvane replay /tmp/bus weld.jsonl --from 12s --to 1m --rename PSFeedback=Before\n");
    command.run([options] { return replay(*options); });
}

} // namespace TelvaneTool

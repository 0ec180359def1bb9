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
        printError("standard input can be read only once, and not in a loop");
        return kWrongUsage;
    }
    if (options.file != "-") {
        // What cannot be replayed is told before anything is sent.
        RecordingReader reader;
        if (!reader.open(options.file)) {
            return kWrongInput;
        }
    }
    BusConnection session(BusConnection::Output::Unused, options.replay.loop
                                                             ? BusConnection::Interruption::ExpectedExit
                                                             : BusConnection::Interruption::Aborts);
    int result = session.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        Replay run(session, options.file, options.replay);
        result = run.run();
        if (options.verbose || isatty(STDERR_FILENO) != 0) {
            printError(std::to_string(run.published()) + " records published");
        }
    }
    return session.finish(result);
}

} // namespace

void addReplayCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Replay::Settings& replaySettings = options->replay;
    Command command(line, "replay", "Publish what a recording holds, at the pace of the recording");
    addBusOptions(command, options->bus);
    command.option("FILE", options->file, "Recording, or - for standard input").required();
    command.option("--speed", replaySettings.speed, "Times the recorded pace; 0 for no waiting")
        .within(0.0, 1e6)
        .showDefault();
    addDuration(command, "--from", replaySettings.from, "Leave out what came before, since the first record");
    addDuration(command, "--until", replaySettings.until, "Leave out what came from then on");
    command.flag("--loop", replaySettings.loop, "Begin anew at the end, until interrupted");
    command
        .option("--only", replaySettings.only,
                "Publish only channels like this, as recorded; * and ? stand for any characters")
        .typeName("PATTERN")
        .repeatable();
    command.option("--rename", options->renames, "OLD=NEW: publish on another channel than the recorded one")
        .check(&checkRename)
        .repeatable()
        .typeName("OLD=NEW");
    command.flag("--verbose", options->verbose, "Say on standard error how much was published");
    command.examples("# ten times as slow\n"
                     "telvane replay /tmp/bus weld.jsonl --speed 0.1\n"
                     "# a part of it, under another name\n"
                     "telvane replay /tmp/bus weld.jsonl --from 12s --until 1m --rename PSFeedback=Before\n");
    command.run([options] { return replay(*options); });
}

} // namespace TelvaneTool

#include "catalogue/CompletionValues.h"
#include "commands/Commands.h"
#include "common/bus/StatusClient.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Programs.h"

#include <memory>

namespace TelvaneTool
{

namespace
{

/// Errors go to standard error, which the shells' scripts discard.
std::vector<std::string> channelsOfServer(const std::string& path)
{
    std::vector<std::string> names;
    BusConnection bus(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    if (bus.connect(path, 0.0) == kSuccess) {
        StatusClient status(bus);
        if (status.start(false) == kSuccess) {
            for (const ChannelStatus& channel : status.channels()) {
                if (!isStatusChannel(channel.name)) {
                    names.push_back(channel.name);
                }
            }
        }
        bus.finish(kSuccess);
    }
    return names;
}

} // namespace

void addCompleteCommand(CommandLine& line)
{
    auto words = std::make_shared<std::vector<std::string>>();
    Command command(line, "complete", "List completions of a command line, for shells");
    command.hide();
    command.option("WORD", *words, "The words typed so far, after --");
    command.run([words, &line] {
        std::vector<CommandInfo> commands = line.describe();
        for (const Program& program : installedPrograms(programDirectories())) {
            commands.push_back({program.name, program.what, {}});
        }
        if (words->size() > 1 && !line.hasCommand(words->front())) {
            return completeProgram(*words);
        }
        return writeResult(completionText(complete(commands, *words, completionValues(&channelsOfServer))));
    });
}

} // namespace TelvaneTool

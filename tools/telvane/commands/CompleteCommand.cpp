#include "catalogue/CompletionValues.h"
#include "commands/Commands.h"
#include "common/bus/StatusClient.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <memory>

namespace TelvaneTool
{

namespace
{

/// One candidate a line, what it is behind a tabulator; a line ":files" asks for files.
int print(const Completion& completion)
{
    std::string text = completion.files ? ":files\n" : "";
    for (const Candidate& candidate : completion.candidates) {
        text += candidate.text + '\t' + candidate.what + '\n';
    }
    return writeResult(text);
}

/// Complaints go to standard error, which shells throw away: nobody is to be disturbed while typing.
std::vector<std::string> channelsOfServer(const std::string& path)
{
    std::vector<std::string> names;
    BusConnection session(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    if (session.connect(path, 0.0) == kSuccess) {
        StatusClient inquiry(session);
        if (inquiry.start(false) == kSuccess) {
            for (const ChannelStatus& channel : inquiry.channels()) {
                if (!isStatusChannel(channel.name)) {
                    names.push_back(channel.name);
                }
            }
        }
        session.finish(kSuccess);
    }
    return names;
}

} // namespace

void addCompleteCommand(CommandLine& line)
{
    auto words = std::make_shared<std::vector<std::string>>();
    Command command(line, "complete", "Tell a shell what may come next on a line");
    command.hide();
    command.option("WORD", *words, "What has been typed so far, behind --");
    command.run([words, &line] {
        return print(complete(line.describe(), *words, completionValues(&channelsOfServer)));
    });
}

} // namespace TelvaneTool

#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Signals.h"

#include <string>

int main(int argc, char** argv)
{
    using namespace TelvaneTool;

    const std::string footer =
        std::string(kExitCodeHelp) + "\n\ntelvane COMMAND --help tells about a command.";
    CommandLine line(
        "Works with an event bus of libTelvane: serves it, listens, publishes, asks, replays welds.",
        TELVANE_VERSION, footer.c_str());
    addServeCommand(line);
    addListenCommand(line);
    addPublishCommand(line);
    addRequestCommand(line);
    addReplyCommand(line);
    addRecordsCommand(line);
    addWeldCommand(line);
    addConsumablesCommand(line);
    addWireCommand(line);
    addMonitorCommand(line);
    addRecordCommand(line);
    addInfoCommand(line);
    addReplayCommand(line);
    addTopCommand(line);
    addPlotCommand(line);
    addBenchCommand(line);
    addCompleteCommand(line);

    prepareProcess();
    return line.run(argc, argv);
}

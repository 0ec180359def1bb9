#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Programs.h"
#include "common/cli/Signals.h"

#include <string>

int main(int argc, char** argv)
{
    using namespace TelvaneTool;

    const std::string programs = programHelp(installedPrograms(programDirectories()));
    const std::string footer = programs + (programs.empty() ? "" : "\n") + kExitCodeHelp +
                               "\n\nFor help on a command: telvane COMMAND --help";
    CommandLine line("Serve, use, record and inspect an event bus of libTelvane", TELVANE_VERSION,
                     footer.c_str());
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
    addShowCommand(line);
    addReplayCommand(line);
    addTopCommand(line);
    addPlotCommand(line);
    addBenchCommand(line);
    addCompleteCommand(line);

    openStandardDescriptors();
    if (argc > 1 && argv[1][0] != '-' && !line.hasCommand(argv[1])) {
        return executeProgram(argv);
    }
    blockTerminationSignals();
    return line.run(argc, argv);
}

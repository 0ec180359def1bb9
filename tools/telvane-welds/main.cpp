#include "Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Signals.h"

#include <string>
#include <utility>
#include <vector>

int main(int argc, char** argv)
{
    using namespace TelvaneTool;

    const std::string footer =
        std::string(kExitCodeHelp) +
        "\n\nThe database may come first: telvane welds DB show 17. Without a command, \"list\" "
        "is meant.\nFor help on a command: telvane welds COMMAND --help";
    CommandLine line("Answer questions about archived welds", TELVANE_VERSION, footer.c_str(),
                     "telvane-welds");
    TelvaneArchive::addListCommand(line);
    TelvaneArchive::addShowCommand(line);
    TelvaneArchive::addPlotCommand(line);
    TelvaneArchive::addCompareCommand(line);
    TelvaneArchive::addExportCommand(line);
    TelvaneArchive::addTrendCommand(line);
    TelvaneArchive::addCopyCommand(line);

    std::vector<const char*> arguments(argv, argv + argc);
    if (!isCompletion(argc, argv) && argc > 1 && argv[1][0] != '-' && !line.hasCommand(argv[1])) {
        if (argc > 2 && line.hasCommand(argv[2])) {
            std::swap(arguments[1], arguments[2]);
        } else {
            arguments.insert(arguments.begin() + 1, "list");
        }
    }
    openStandardDescriptors();
    blockTerminationSignals();
    const TerminationSignals end(TerminationSignals::Effect::End);
    return line.run(static_cast<int>(arguments.size()), arguments.data());
}

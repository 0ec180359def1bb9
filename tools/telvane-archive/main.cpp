#include "Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Signals.h"

#include <string>
#include <vector>

int main(int argc, char** argv)
{
    using namespace TelvaneTool;

    const std::string footer =
        std::string(kExitCodeHelp) +
        "\n\nWithout a command, \"follow\" is meant: telvane archive PATH --database FILE\n"
        "For help on a command: telvane archive COMMAND --help";
    CommandLine line("Keep every weld in a database", TELVANE_VERSION, footer.c_str(), "telvane-archive");
    TelvaneArchive::addFollowCommand(line);
    TelvaneArchive::addImportCommand(line);
    TelvaneArchive::addRetainCommand(line);
    TelvaneArchive::addJudgeCommand(line);

    std::vector<const char*> arguments(argv, argv + argc);
    if (!isCompletion(argc, argv) && argc > 1 && argv[1][0] != '-' && !line.hasCommand(argv[1])) {
        arguments.insert(arguments.begin() + 1, "follow");
    }
    openStandardDescriptors();
    blockTerminationSignals();
    return line.run(static_cast<int>(arguments.size()), arguments.data());
}

#include "Commands.h"
#include "ExitCodes.h"
#include "Messages.h"
#include "Signals.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <string>

namespace
{

bool isCommand(const CLI::App& app, const char* name)
{
    const auto commands = app.get_subcommands([](const CLI::App*) { return true; });
    return std::any_of(commands.begin(), commands.end(),
                       [name](const CLI::App* command) { return command->get_name() == name; });
}

} // namespace

int main(int argc, char** argv)
{
    using namespace TelvaneTool;

    CLI::App app("Works with an event bus of libTelvane: serves it, listens, publishes, asks, replays welds.",
                 "telvane");
    app.set_version_flag("--version", TELVANE_VERSION);
    app.require_subcommand(1);
    app.footer(std::string("telvane COMMAND --help tells about a command.\n") + kExitCodeHelp);

    int exitCode = kSuccess;
    addServeCommand(app, exitCode);
    addListenCommand(app, exitCode);
    addPublishCommand(app, exitCode);
    addRequestCommand(app, exitCode);
    addReplyCommand(app, exitCode);
    addRecordsCommand(app, exitCode);
    addWeldCommand(app, exitCode);
    addConsumablesCommand(app, exitCode);
    addWireCommand(app, exitCode);
    addMonitorCommand(app, exitCode);

    prepareProcess();
    if (argc > 1 && argv[1][0] != '-' && !isCommand(app, argv[1])) {
        complain("there is no command \"" + std::string(argv[1]) + "\"; telvane --help lists them");
        return kWrongUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kSuccess : kWrongUsage;
    } catch (const std::exception& error) {
        complain(std::string("unexpected error: ") + error.what());
        return kWrongInput;
    }
    return exitCode;
}

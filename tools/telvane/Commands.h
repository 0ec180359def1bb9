#pragma once

// Each subcommand adds itself to the command line; its work is done when the line has been read.

namespace CLI
{
class App;
}

namespace TelvaneTool
{

/// \param exitCode set when the subcommand has done its work
/// @{
void addServeCommand(CLI::App& app, int& exitCode);
void addListenCommand(CLI::App& app, int& exitCode);
void addPublishCommand(CLI::App& app, int& exitCode);
void addRequestCommand(CLI::App& app, int& exitCode);
void addReplyCommand(CLI::App& app, int& exitCode);
void addRecordsCommand(CLI::App& app, int& exitCode);
void addWeldCommand(CLI::App& app, int& exitCode);
void addConsumablesCommand(CLI::App& app, int& exitCode);
void addWireCommand(CLI::App& app, int& exitCode);
void addMonitorCommand(CLI::App& app, int& exitCode);
/// @}

} // namespace TelvaneTool

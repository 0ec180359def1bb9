#pragma once

// Each subcommand adds itself to the command line; its work is done when the line has been read.

namespace TelvaneTool
{

class CommandLine;

void addServeCommand(CommandLine& line);
void addListenCommand(CommandLine& line);
void addPublishCommand(CommandLine& line);
void addRequestCommand(CommandLine& line);
void addReplyCommand(CommandLine& line);
void addRecordsCommand(CommandLine& line);
void addWeldCommand(CommandLine& line);
void addConsumablesCommand(CommandLine& line);
void addWireCommand(CommandLine& line);
void addMonitorCommand(CommandLine& line);
void addRecordCommand(CommandLine& line);
void addReplayCommand(CommandLine& line);
void addInfoCommand(CommandLine& line);
void addShowCommand(CommandLine& line);
void addTopCommand(CommandLine& line);
void addBenchCommand(CommandLine& line);
void addPlotCommand(CommandLine& line);
void addCompleteCommand(CommandLine& line);

} // namespace TelvaneTool

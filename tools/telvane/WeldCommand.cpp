#include "Commands.h"
namespace TelvaneTool
{
void addWeldCommand(CLI::App&, int&) {}
void addMonitorCommand(CLI::App&, int&) {}
} // namespace TelvaneTool

#pragma once

#include <string>
#include <sys/types.h>

namespace TelvaneTool
{

/// \return the name of a process's program, for the tool with its subcommand; empty if it has ended or is not visible
std::string programOf(pid_t process);

} // namespace TelvaneTool

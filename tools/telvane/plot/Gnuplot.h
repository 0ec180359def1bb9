#pragma once

#include <string>

namespace TelvaneTool
{

/// Runs a gnuplot script. Prints the reason if it fails.
/// \param[out] output  what gnuplot wrote to its standard output
/// \return an exit code
int runGnuplot(const std::string& script, std::string& output);

} // namespace TelvaneTool

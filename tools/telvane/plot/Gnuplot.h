#pragma once

#include <string>

namespace TelvaneTool
{

/// Runs a gnuplot script. Prints the reason if it fails.
/// \return an exit code
int runGnuplot(const std::string& script);

} // namespace TelvaneTool

#pragma once

#include <string>

namespace TelvaneTool
{

/// Has gnuplot do what a text says, or complains.
/// \return an exit code
int runGnuplot(const std::string& script);

} // namespace TelvaneTool

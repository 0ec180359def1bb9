#pragma once

#include <string>
#include <string_view>

namespace TelvaneTool
{

/// Sets the name that stands before every message: "telvane listen".
void setMessagePrefix(const std::string& prefix);

/// Writes one line to standard error, whole even when several threads write.
void printError(std::string_view message);

/// Writes everything to a descriptor.
/// \return 0 or an error number
int writeFully(int fd, std::string_view data);

/// Writes a command's whole result to standard output, or complains.
/// \return an exit code
int writeResult(std::string_view text);

} // namespace TelvaneTool

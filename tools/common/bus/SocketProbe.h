#pragma once

#include <string>

namespace TelvaneTool
{

/// Connects to the socket of a server for a moment. Does not block.
/// \param path at most 107 characters
/// \return 0 if a server accepts the connection; else a positive error number: `EAGAIN` if a server is running
///         but busy, `ECONNREFUSED` or `ENOENT` if none is running, `EPROTOTYPE` if the socket is of another type
int probeSocket(const std::string& path);

bool isSocket(const std::string& path);

/// \return whether a process listens on a socket with this path, without connecting; false if unknown
bool isListening(const std::string& path);

} // namespace TelvaneTool

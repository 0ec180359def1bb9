#pragma once

// The interface to a service manager, if there is one.

#include <string>

namespace TelvaneTool
{

/// Descriptor of the first inherited socket.
constexpr int kFirstInheritedSocket = 3;

/// Removes the variables of inherited sockets from the environment, so that child processes do not use them.
/// \return the number of inherited sockets
int takeListenSockets();

/// \return the path of a socket; empty if it has none
std::string pathOfSocket(int socket);

/// Sends a state, such as "READY=1", to the service manager.
void notifyServiceManager(const std::string& state);

} // namespace TelvaneTool

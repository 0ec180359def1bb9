#pragma once

// What a service manager hands over and wants to be told, if there is one.

#include <string>

namespace TelvaneTool
{

/// The descriptor of the first socket that is handed over.
constexpr int kFirstInheritedSocket = 3;

/// Takes what was handed over to this process out of the environment, so that no child takes it for its own.
/// \return how many sockets there are
int takeListenSockets();

/// \return the path that a socket is bound to; empty when it has none
std::string pathOfSocket(int socket);

/// Tells a state, "READY=1" or "STOPPING=1", to whoever wants to hear it.
void notifyServiceManager(const std::string& state);

} // namespace TelvaneTool

// systemd's protocol, which other service managers implement as well. LISTEN_FDS is the number of sockets passed from
// descriptor 3 on to the process LISTEN_PID. States are sent as datagrams to the socket NOTIFY_SOCKET. A library for
// these few lines would be one more dependency on machines without systemd.

#include "serve/ServiceManager.h"

#include "common/support/FileDescriptor.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

/// \return the value of an environment variable; 0 if it is not a positive number
int numberIn(const char* variable)
{
    const char* const text = std::getenv(variable);
    return text != nullptr ? std::max(std::atoi(text), 0) : 0;
}

} // namespace

int takeListenSockets()
{
    const int count = numberIn("LISTEN_PID") == getpid() ? numberIn("LISTEN_FDS") : 0;
    for (const char* const variable : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) {
        unsetenv(variable);
    }
    return count;
}

std::string pathOfSocket(int socket)
{
    sockaddr_un address = {};
    socklen_t length = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        address.sun_family != AF_UNIX) {
        return std::string();
    }
    return std::string(address.sun_path, strnlen(address.sun_path, sizeof address.sun_path));
}

void notifyServiceManager(const std::string& state)
{
    const char* const name = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::size_t length = name != nullptr ? std::strlen(name) : 0;
    if (length < 2 || length > sizeof address.sun_path) {
        return;
    }
    std::memcpy(address.sun_path, name, length);
    if (address.sun_path[0] == '@') { // an abstract socket, whose name begins with a zero byte
        address.sun_path[0] = '\0';
    }
    const FileDescriptor notify(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    // A failure is ignored: the bus works without a service manager.
    static_cast<void>(sendto(notify.get(), state.data(), state.size(), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&address),
                             static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length)));
}

} // namespace TelvaneTool

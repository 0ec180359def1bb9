// systemd's protocol, which others speak too: sockets are handed over from descriptor 3 on, as LISTEN_FDS tells
// the process whose number is LISTEN_PID; states go as packets to the socket that NOTIFY_SOCKET names. These few
// lines are all of it. A library for them would be one more thing to carry to machines that have no systemd.

#include "serve/ServiceManager.h"

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

/// \return the variable as a positive number; 0 when it is none
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
    if (address.sun_path[0] == '@') { // which stands for the zero that begins a name outside the file system
        address.sun_path[0] = '\0';
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // Nobody could be told that this has failed, and the bus works without.
    static_cast<void>(sendto(fd, state.data(), state.size(), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&address),
                             static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length)));
    close(fd);
}

} // namespace TelvaneTool

#include "common/bus/SocketProbe.h"

#include "common/support/FileDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace TelvaneTool
{

int probeSocket(const std::string& path)
{
    const FileDescriptor probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (probe.get() < 0) {
        return errno;
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), std::min(path.size(), sizeof address.sun_path - 1));
    const int result = connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return result != 0 ? errno : 0;
}

bool isSocket(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

bool isListening(const std::string& path)
{
    // Columns: address, references, protocol, flags, type, state, inode, path.
    constexpr unsigned long kListening = 0x10000; // __SO_ACCEPTCON of the kernel
    std::ifstream sockets("/proc/net/unix");
    std::string line;
    while (std::getline(sockets, line)) {
        std::istringstream columns(line);
        std::string skipped;
        std::string flags;
        std::string name;
        columns >> skipped >> skipped >> skipped >> flags >> skipped >> skipped >> skipped >> std::ws;
        if (std::getline(columns, name) && name == path &&
            (std::strtoul(flags.c_str(), nullptr, 16) & kListening) != 0) {
            return true;
        }
    }
    return false;
}

} // namespace TelvaneTool

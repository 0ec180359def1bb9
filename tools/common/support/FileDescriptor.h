#pragma once

#include "TelvaneLib/support/FileDescriptor.h"

#include <cerrno>
#include <string_view>
#include <unistd.h>

namespace TelvaneTool
{

using Telvane::FileDescriptor;

/// Writes all data to a descriptor.
/// \return 0 or an error number (positive errno)
inline int writeFully(int fd, std::string_view data)
{
    while (!data.empty()) {
        // cppcheck-suppress invalidLifetime ; the line outlives the call
        const ssize_t written = write(fd, data.data(), data.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return written == 0 ? ENOSPC : errno;
        }
        data.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

} // namespace TelvaneTool

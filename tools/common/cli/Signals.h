#pragma once

#include "common/support/FileDescriptor.h"

namespace TelvaneTool
{

/// Opens /dev/null in place of closed descriptors 0 to 2. Otherwise a socket could get the number of standard
/// output and receive the tool's output.
void openStandardDescriptors();

/// Blocks SIGINT, SIGTERM and SIGHUP, unless they are ignored, and ignores SIGPIPE. Call this before starting any
/// thread; threads inherit the mask.
void blockTerminationSignals();

/// \return a descriptor that becomes readable when a blocked signal arrives
FileDescriptor openSignals();

/// \return the number of the next signal; 0 if there is none
int readSignal(int fd);

} // namespace TelvaneTool

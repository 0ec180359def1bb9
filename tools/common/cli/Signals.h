#pragma once

#include "common/support/FileDescriptor.h"

#include <csignal>

namespace TelvaneTool
{

/// Opens /dev/null in place of closed descriptors 0 to 2. Otherwise a socket could get the number of standard
/// output and receive the tool's output.
void openStandardDescriptors();

/// Blocks SIGINT, SIGTERM and SIGHUP, unless they are ignored, and ignores SIGPIPE. Call this before starting any
/// thread; threads inherit the mask.
void blockTerminationSignals();

/// Whether SIGINT, SIGTERM and SIGHUP end the process, on this thread while the object exists. Ignored ones never do.
class TerminationSignals
{
public:
    enum class Effect
    {
        Block, ///< openSignals() reports them
        End,   ///< they end the process at once: for work that may be cut off anywhere
    };

    explicit TerminationSignals(Effect effect);
    ~TerminationSignals();
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

private:
    sigset_t m_before = {};
};

/// \return a descriptor that becomes readable when a blocked signal arrives
FileDescriptor openSignals();

/// \return the number of the next signal; 0 if there is none
int readSignal(int fd);

} // namespace TelvaneTool

#pragma once

// The exit codes of the tool. Scripts rely on them; `telvane --help` shows them.

namespace TelvaneTool
{

enum ExitCode : int
{
    kSuccess = 0,
    kTimeRanOut = 1,     ///< what was waited for did not come in time
    kWrongUsage = 2,     ///< arguments that make no sense; nothing was done
    kBusFailure = 3,     ///< no server, a refusal, or a connection that was lost
    kWrongInput = 4,     ///< a record or a recording that is not right, wholly or in part
    kOutputFailure = 5,  ///< standard output or a file could not be written
    kSignalBase = 128,   ///< plus the signal's number: interrupted before the work was done
    kOutputClosed = 141, ///< whoever read standard output has left; as of SIGPIPE, and without a word
};

constexpr const char* kExitCodeHelp =
    "Exit codes:\n"
    "  0      Done\n"
    "  1      What was waited for did not come in time\n"
    "  2      Arguments that make no sense; nothing was done\n"
    "  3      No server, a refusal, or a connection that was lost\n"
    "  4      A record or a recording that is not right, wholly or in part\n"
    "  5      Standard output or a file could not be written\n"
    "  128+N  Ended by signal N before it was done\n"
    "  141    Whoever read standard output has left";

} // namespace TelvaneTool

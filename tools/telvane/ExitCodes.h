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
    "Exit codes: 0 done, 1 time ran out, 2 wrong usage, 3 no server or connection lost,\n"
    "  4 wrong record or recording, 5 output cannot be written, 128+n ended by signal n before it was done,\n"
    "  141 the reader of the output has left";

} // namespace TelvaneTool

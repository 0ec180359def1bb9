#pragma once

// The exit codes of the tool. Scripts depend on them; `telvane --help` lists them.

namespace TelvaneTool
{

enum ExitCode : int
{
    kSuccess = 0,
    kTimedOut = 1,
    kRecordsMissed = 1,  ///< records were missed while recording
    kWrongUsage = 2,     ///< invalid arguments; nothing was done
    kBusFailure = 3,     ///< no server, refused by the server, or connection lost
    kWrongInput = 4,     ///< a record or recording is invalid, at least in part
    kOutputFailure = 5,  ///< standard output or a file could not be written
    kSignalBase = 128,   ///< plus the signal's number: interrupted before the work was done
    kOutputClosed = 141, ///< the reader closed standard output; the same code as SIGPIPE, without a message
};

constexpr const char* kExitCodeHelp = "Exit codes:\n"
                                      "  0      Success\n"
                                      "  1      Timed out, or records were missed\n"
                                      "  2      Invalid arguments; nothing was done\n"
                                      "  3      No server, refused by the server, or connection lost\n"
                                      "  4      A record or recording is invalid, at least in part\n"
                                      "  5      Standard output or a file could not be written\n"
                                      "  128+N  Interrupted by signal N\n"
                                      "  141    The reader closed standard output";

} // namespace TelvaneTool

#pragma once

// The exit codes of the tool. Scripts depend on them; `telvane --help` lists them.

namespace TelvaneTool
{

enum ExitCode : int
{
    kSuccess = 0,
    kTimedOut = 1,
    kRecordsMissed = 1,  ///< a recording lacks records
    kWrongUsage = 2,     ///< invalid arguments; nothing was done
    kBusFailure = 3,     ///< no server, refused by the server, or connection lost
    kWrongInput = 4,     ///< invalid record or recording, in whole or in part
    kOutputFailure = 5,  ///< standard output or a file could not be written
    kSignalBase = 128,   ///< plus the signal's number: interrupted before the work was done
    kOutputClosed = 141, ///< the reader closed standard output; the same code as SIGPIPE, without a message
};

constexpr const char* kExitCodeHelp = "Exit codes:\n"
                                      "  0      Success\n"
                                      "  1      Timed out\n"
                                      "  2      Invalid arguments; nothing was done\n"
                                      "  3      No server, refused by the server, or connection lost\n"
                                      "  4      Invalid record or recording, in whole or in part\n"
                                      "  5      Standard output or a file could not be written\n"
                                      "  128+N  Interrupted by signal N\n"
                                      "  141    The reader closed standard output";

} // namespace TelvaneTool

#include "plot/Gnuplot.h"

#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace TelvaneTool
{

namespace
{

/// The exit code of a child that could not start its program, where posix_spawn() cannot tell at once: without a
/// memory shared with the child, as under an emulator.
constexpr int kNotStarted = 127;

/// Starts gnuplot with a descriptor as its standard input.
/// \return an error number
int start(int input, pid_t& process)
{
    char program[] = "gnuplot";
    char fromInput[] = "-";
    char* arguments[] = {program, fromInput, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    // The signals that this process has blocked are to end gnuplot.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int error = posix_spawnp(&process, program, &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

int complainOfStart(int error)
{
    printError(error == ENOENT
                   ? "gnuplot, which draws the picture, is not installed; Debian has it as gnuplot-nox"
                   : std::string("cannot run gnuplot: ") + std::strerror(error));
    return kOutputFailure;
}

} // namespace

int runGnuplot(const std::string& script)
{
    int ends[2] = {-1, -1};
    pid_t process = 0;
    int error = pipe2(ends, O_CLOEXEC) != 0 ? errno : 0;
    if (error == 0) {
        error = start(ends[0], process);
        close(ends[0]);
    }
    if (error != 0) {
        close(ends[1]);
        return complainOfStart(error);
    }
    writeFully(ends[1], script); // when gnuplot stops reading, its status tells why
    close(ends[1]);
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        return kSignalBase + WTERMSIG(status);
    }
    if (WEXITSTATUS(status) == kNotStarted) {
        return complainOfStart(ENOENT);
    }
    if (WEXITSTATUS(status) != 0) {
        printError("gnuplot could not draw the picture");
        return kOutputFailure;
    }
    return kSuccess;
}

} // namespace TelvaneTool

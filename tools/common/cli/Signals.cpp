#include "common/cli/Signals.h"

#include <csignal>
#include <fcntl.h>
#include <initializer_list>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

/// Those that whoever started the process wants it to heed: a shell has processes in the background ignore
/// SIGINT, and nohup has them ignore SIGHUP. A signal that is blocked would be queued all the same.
sigset_t terminationSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&signals, number);
        }
    }
    return signals;
}

} // namespace

void prepareProcess()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1) {
            // The lowest free number is this one. Opened for the wrong direction, so that its use still
            // fails.
            open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY); // NOLINT: kept open on purpose
        }
    }
    const sigset_t signals = terminationSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN); // NOLINT(bugprone-signal-handler): no handler
}

int openSignals()
{
    const sigset_t signals = terminationSignals();
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

int readSignal(int fd)
{
    signalfd_siginfo info = {};
    return read(fd, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

} // namespace TelvaneTool

#include "Signals.h"

#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

sigset_t terminationSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
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

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

/// Excludes ignored signals: a shell makes background processes ignore SIGINT, and nohup makes them ignore SIGHUP.
/// If blocked, they would be delivered nevertheless.
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

void openStandardDescriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1) {
            // open() returns the lowest free number, which is fd. The wrong direction makes its use fail, as
            // on a closed descriptor.
            open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY); // NOLINT: stays open
        }
    }
}

void blockTerminationSignals()
{
    const sigset_t signals = terminationSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN); // NOLINT(bugprone-signal-handler): no handler
}

TerminationSignals::TerminationSignals(Effect effect)
{
    const sigset_t signals = terminationSignals();
    pthread_sigmask(effect == Effect::Block ? SIG_BLOCK : SIG_UNBLOCK, &signals, &m_before);
}

TerminationSignals::~TerminationSignals()
{
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

FileDescriptor openSignals()
{
    const sigset_t signals = terminationSignals();
    return FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

int readSignal(int fd)
{
    signalfd_siginfo info = {};
    return read(fd, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

} // namespace TelvaneTool

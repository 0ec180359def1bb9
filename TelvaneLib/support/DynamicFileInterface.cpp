// Serving a named pipe means waiting in open() for a reader, and ending that wait from another thread
// without losing the descriptor that open() may be about to return.
//
// Cancelling the thread in open() will not do: in the C libraries in use (2.36 among them) a cancellation
// that arrives when the kernel has opened the pipe, but before the call has returned, unwinds the thread with
// the new descriptor in a register, where nobody can close it. Therefore:
//
// - Close() asks first. It sets the stop flag, and when the listener waits in open() it lets it out by
//   opening the reading end itself. The listener sees the flag, closes what it got and ends.
// - Close() cancels a listener that does not end then. Either its handler blocks; or it waits at a pipe that
//   the path no longer leads to (removed or replaced behind our back), where no reader can come and open()
//   is not about to return; or this process may serve the pipe but not read it. Only there could a reader
//   that comes at the very instant of the cancellation still cost a descriptor.
// - Cancellation is disabled but for the open() and for the handler with its newline. Around these two
//   windows each descriptor and lock belongs to an object whose destructor the unwinding runs. No destructor
//   of ours runs inside one, since a cancellation in close() would then end the process.
//
// The listener shares the state with the interface, so an interface that is destroyed without Close() leaves
// a working listener behind and not one that reads freed memory.
//
// Locks: the handler lock is held while the handler runs and while it is replaced, the phase lock for
// moments; neither is taken under the other.

#include <Telvane/DynamicFileInterface.h>

#include "support/Diagnostics.h"
#include "support/FileDescriptor.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Telvane
{

namespace
{

// Lets a reader see the end of the file before the pipe is opened for the next one.
constexpr useconds_t kPauseMicroseconds = 1000;
// Few handlers are written with cancellation in mind: one that is merely at work may finish.
constexpr std::chrono::milliseconds kHandlerPatience(100);
// Waited out only at a pipe that was replaced by another one; otherwise the listener comes at once.
constexpr std::chrono::seconds kOpenPatience(1);

class CancellationWindow
{
public:
    CancellationWindow() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr); }
    CancellationWindow(const CancellationWindow&) = delete;
    CancellationWindow& operator=(const CancellationWindow&) = delete;
    ~CancellationWindow() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }
};

enum class Phase
{
    Starting,
    Opening,
    Serving,
    Ended
};

} // namespace

struct DynamicFileInterface::State
{
    State(const std::string& pipePath, std::function<void(int fd)> contentHandler)
        : path(pipePath), handler(std::move(contentHandler))
    {}

    void startListener(DynamicFileInterface* interface);
    void stopListener();
    bool endsWhenAsked();

    void listen();
    bool enter(Phase next);
    FileDescriptor openForWriting() const;
    int waitForReader() const;
    void serve(FileDescriptor opened);

    const std::string path;
    pthread_t listener = {};
    bool hasListener = false;
    std::function<void(int fd)> handler;
    std::mutex handlerLock;

    std::mutex phaseLock;
    std::condition_variable phaseChanged;
    Phase phase = Phase::Starting;
    bool stopping = false;
};

void DynamicFileInterface::State::startListener(DynamicFileInterface* interface)
{
    std::unique_lock<std::mutex> lock(phaseLock);
    phase = Phase::Starting;
    stopping = false;
    hasListener = pthread_create(&listener, nullptr, dynamicFile_listener, interface) == 0;
    if (hasListener) {
        phaseChanged.wait(lock, [this] { return phase != Phase::Starting; });
    }
}

void DynamicFileInterface::State::stopListener()
{
    if (!hasListener) {
        return;
    }
    if (!endsWhenAsked()) {
        pthread_cancel(listener);
    }
    pthread_join(listener, nullptr);
    hasListener = false;
}

bool DynamicFileInterface::State::endsWhenAsked()
{
    std::unique_lock<std::mutex> lock(phaseLock);
    stopping = true;
    const auto ended = [this] {
        return phase == Phase::Ended;
    };
    if (phase != Phase::Opening) {
        return phaseChanged.wait_for(lock, kHandlerPatience, ended);
    }
    const FileDescriptor reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return reader.valid() && phaseChanged.wait_for(lock, kOpenPatience, ended);
}

void DynamicFileInterface::State::listen()
{
    while (enter(Phase::Opening)) {
        FileDescriptor opened = openForWriting();
        if (!enter(Phase::Serving)) {
            return;
        }
        if (opened.valid()) {
            serve(std::move(opened));
        }
        ::usleep(kPauseMicroseconds);
    }
}

bool DynamicFileInterface::State::enter(Phase next)
{
    const std::lock_guard<std::mutex> lock(phaseLock);
    phase = stopping ? Phase::Ended : next;
    phaseChanged.notify_all();
    return !stopping;
}

FileDescriptor DynamicFileInterface::State::openForWriting() const
{
    FileDescriptor opened(waitForReader());
    if (opened.get() == 0) {
        // Standard input is closed. Left at 0 the descriptor would not be served, and while open it would
        // keep every reader from its end of the file.
        return FileDescriptor(::fcntl(opened.get(), F_DUPFD, 1));
    }
    return opened;
}

int DynamicFileInterface::State::waitForReader() const
{
    const CancellationWindow window;
    return ::open(path.c_str(), O_WRONLY | O_SYNC);
}

void DynamicFileInterface::State::serve(FileDescriptor opened)
{
    const std::lock_guard<std::mutex> lock(handlerLock);
    const FileDescriptor file(std::move(opened));
    const CancellationWindow window;
    handler(file.get());
    // Fails for good when the reader has gone, which is the reader's affair.
    while (::write(file.get(), "\n", 1) < 0 && errno == EINTR) {
    }
}

DynamicFileInterface::DynamicFileInterface(const std::string& path, std::function<void(int fd)> handler)
    : m_state(std::make_shared<State>(path, std::move(handler)))
{}

DynamicFileInterface::~DynamicFileInterface() = default;

int DynamicFileInterface::Open()
{
    m_state->stopListener();
    const int result = ::mkfifo(m_state->path.c_str(), 0644);
    const int error = errno;
    if (result == 0 || error == EEXIST) {
        m_state->startListener(this);
    }
    writeOutputLine("ERROR[" + std::to_string(error) + "]: " + std::strerror(error));
    return -result;
}

int DynamicFileInterface::Close()
{
    m_state->stopListener();
    return ::unlink(m_state->path.c_str());
}

void DynamicFileInterface::setHandlerFunction(std::function<void(int fd)> handler)
{
    // The old handler is released when the lock is free again: what it holds may do anything.
    const std::lock_guard<std::mutex> lock(m_state->handlerLock);
    m_state->handler.swap(handler);
}

void* DynamicFileInterface::dynamicFile_listener(void* interface)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    const std::shared_ptr<State> state = static_cast<DynamicFileInterface*>(interface)->m_state;
    std::signal(SIGPIPE, SIG_IGN);
    state->listen();
    return nullptr;
}

} // namespace Telvane

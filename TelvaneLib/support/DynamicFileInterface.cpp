// The listener waits for a reader in open(). Close() has to end that wait without losing a descriptor that
// open() is about to return.
//
// Cancelling the thread in open() can lose it: with current C libraries (for example 2.36), a cancellation
// between the opening of the pipe and the return of the call unwinds the thread while only a register holds
// the new descriptor. Therefore:
//
// - Close() first sets the stop flag. If the listener waits in open(), Close() opens the reading end itself.
//   Then the listener sees the flag, closes the pipe and ends.
// - Close() cancels a listener that does not end. Then either its handler blocks; or the pipe was removed or
//   replaced, so that no reader can come and open() does not return; or this process may write to the pipe
//   but not read it. Only in the last case can a reader that comes at the moment of the cancellation cost a
//   descriptor.
// - Cancellation is enabled only during open() and during the handler and its newline. Objects around these
//   two windows own all descriptors and locks, and the unwinding runs their destructors. No destructor of
//   this file runs inside a window, because a cancellation in close() would end the process.
//
// The listener shares the state with the interface. If the interface is destroyed without Close(), the
// listener continues to work. docs/threads-and-locks.md describes the locks.

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

// Lets a reader see the end of the file before the pipe is opened again.
constexpr useconds_t kPauseMicroseconds = 1000;
// Lets a handler finish that is not stuck: few handlers expect a cancellation.
constexpr std::chrono::milliseconds kHandlerTimeout(100);
// Takes this long only if another pipe has replaced this one; otherwise the listener wakes at once.
constexpr std::chrono::seconds kOpenTimeout(1);

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
    bool endGracefully();

    void listen();
    bool enter(Phase next);
    FileDescriptor openForWriting() const;
    int waitForReader() const;
    void serve(FileDescriptor opened);

    const std::string path;
    pthread_t listener = {};
    bool hasListener = false;
    bool served = false; ///< from an Open() that created or found the file until Close()
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
    if (!endGracefully()) {
        pthread_cancel(listener);
    }
    pthread_join(listener, nullptr);
    hasListener = false;
}

bool DynamicFileInterface::State::endGracefully()
{
    std::unique_lock<std::mutex> lock(phaseLock);
    stopping = true;
    const auto ended = [this] {
        return phase == Phase::Ended;
    };
    if (phase != Phase::Opening) {
        return phaseChanged.wait_for(lock, kHandlerTimeout, ended);
    }
    const FileDescriptor reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return reader.isOpen() && phaseChanged.wait_for(lock, kOpenTimeout, ended);
}

void DynamicFileInterface::State::listen()
{
    while (enter(Phase::Opening)) {
        FileDescriptor opened = openForWriting();
        if (!enter(Phase::Serving)) {
            return;
        }
        if (opened.isOpen()) {
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
        // Standard input is closed. Handlers get descriptors greater than 0, and an open descriptor 0 would
        // keep readers from seeing the end of the file.
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
    // Fails with another error if the reader has closed the pipe, which is no error here.
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
        m_state->served = true;
        m_state->startListener(this);
    }
    writeOutputLine("ERROR[" + std::to_string(error) + "]: " + std::strerror(error));
    return -result;
}

int DynamicFileInterface::Close()
{
    m_state->stopListener();
    if (!std::exchange(m_state->served, false)) {
        errno = ENOENT; // the file at the path, if there is one, is not this pipe
        return -1;
    }
    return ::unlink(m_state->path.c_str());
}

void DynamicFileInterface::setHandlerFunction(std::function<void(int fd)> handler)
{
    // The old handler is destroyed after the lock: it may own anything.
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

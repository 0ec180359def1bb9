// Start and stop of the server, accepting of clients, and a receiver thread for each.
//
// Results are 0 or negated error numbers. Errors without a caller are lines on standard error. Stop() sets
// the thread to end as its target, shuts the thread's socket down, and waits until the thread confirms. A
// socket is closed only when no thread can use its number any more. docs/threads-and-locks.md describes the
// locks.

#include "bus/EventServerState.h"

#include "support/Diagnostics.h"
#include "support/Thread.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Telvane
{

namespace
{

constexpr auto kStopDeadline = std::chrono::seconds(10);
constexpr auto kPauseAfterFailedAccept = std::chrono::milliseconds(20);
constexpr int kBacklog = 5;

// Numbers in the error lines. Logs are filtered by them.
constexpr int kSocketErrorLine = 288;
constexpr int kBindErrorLine = 298;

/// Reports the error in errno.
void reportBindingError(int code, int line)
{
    const int error = errno;
    char text[256];
    std::snprintf(
        text, sizeof text,
        "ERROR (%d) @ TelvaneLib/EventServer.%d-> An error occurred while binding the local socket: "
        "[%d] %s",
        code, line, error, std::strerror(error));
    writeErrorLine(text);
}

/// Removes a socket file without a server.
/// \return 0; -1 if no socket can be created; `-EADDRINUSE` if a server listens on the path
int clearStalePath(const std::string& path)
{
    if (access(path.c_str(), F_OK) != 0) {
        return 0;
    }
    // Does not wait for a server that is suspended with a full backlog.
    const FileDescriptor probe = openSocket(SOCK_NONBLOCK);
    if (!probe.isOpen()) {
        return -1;
    }
    int connected = -1;
    do {
        connected = connectSocket(probe.get(), path);
    } while (connected != 0 && errno == EINTR); // says nothing about a server
    if (connected == 0 || errno == EADDRINUSE || errno == EAGAIN) {
        return -EADDRINUSE;
    }
    unlink(path.c_str());
    return 0;
}

} // namespace

EventServer::State::State(EventServer& owner) : server(owner)
{
    channels[kSubscribeHeader].metaHandler = &EventServer::meta_subscribeHandler;
    channels[kUnsubscribeHeader].metaHandler = &EventServer::meta_unsubscribeHandler;
}

EventServer::EventServer() : m_state(std::make_unique<State>(*this)) {}

EventServer::~EventServer() = default;

int EventServer::Start(const std::string& path)
{
    if (m_state->listener != -1) {
        return -1;
    }
    std::string ownPath;
    try {
        ownPath = path;
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    if (const int result = clearStalePath(path); result != 0) {
        return result;
    }
    FileDescriptor listener = openSocket();
    if (!listener.isOpen()) {
        reportBindingError(-1, kSocketErrorLine);
        return -1;
    }
    if (const int result = bindSocket(listener.get(), path); result != 0) {
        reportBindingError(result, kBindErrorLine);
        return result;
    }
    listen(listener.get(), kBacklog);
    const int result = m_state->listenOn(listener, FileDescriptor());
    if (result == 0) {
        m_state->path = std::move(ownPath);
    }
    return result;
}

int EventServer::StartOn(int listeningDescriptor)
{
    if (m_state->listener != -1) {
        return -EALREADY;
    }
    if (!isListeningSocket(listeningDescriptor)) {
        return -EINVAL;
    }
    FileDescriptor wake = openWake();
    if (!wake.isOpen()) {
        return -errno;
    }
    adoptListeningSocket(listeningDescriptor);
    FileDescriptor listener(listeningDescriptor);
    const int result = m_state->listenOn(listener, std::move(wake));
    listener.release(); // either the server or still the caller owns it
    return result;
}

int EventServer::State::listenOn(FileDescriptor& socket, FileDescriptor wakeOfInherited)
{
    wake = std::move(wakeOfInherited);
    listener = socket.get();
    listenerEnded = false;
    const int result = startThread(listenerThread, &EventServer::connectionListener, &server, stackSize);
    if (result != 0) {
        listener = -1;
        wake.reset();
        return result;
    }
    socket.release();
    return 0;
}

bool EventServer::IsStarted()
{
    return m_state->listener >= 0;
}

void* EventServer::connectionListener(void* server)
{
    State& state = State::of(server);
    while (!state.stopTargets(pthread_self())) {
        if (state.wake.isOpen() && !awaitClient(state.listener, state.wake.get())) {
            continue;
        }
        FileDescriptor client(acceptClient(state.listener));
        const int error = errno;
        if (client.isOpen()) {
            state.addClient(std::move(client));
        } else if (error == EINVAL || error == EBADF) {
            break;
        } else {
            // Usually the process is out of descriptors. The client stays in the backlog, so trying again at
            // once would only use the processor.
            std::this_thread::sleep_for(kPauseAfterFailedAccept);
        }
        state.joinFinishedThreads();
    }
    state.endListener();
    return nullptr;
}

void EventServer::State::addClient(FileDescriptor client)
{
    if (refusesConnection(client.get())) {
        return;
    }
    applySendBuffer(client.get());
    // The new thread first looks up its entry under this lock, so it always finds it. The entry is allocated
    // before the thread runs, after which nothing can be undone.
    const std::lock_guard<std::mutex> guard(connectionsLock);
    auto entry = connections.end();
    try {
        entry = connections.try_emplace(client.get()).first;
    } catch (const std::bad_alloc&) {
        return;
    }
    if (startThread(entry->second, &EventServer::rx_handler, &server, stackSize) != 0) {
        connections.erase(entry);
        return;
    }
    onConnect.call(server, client.release(), {}, -1, nullptr);
}

void EventServer::State::applySendBuffer(int client)
{
    const int wanted = sendBuffer;
    if (wanted > 0 && setsockopt(client, SOL_SOCKET, SO_SNDBUFFORCE, &wanted, sizeof wanted) != 0) {
        setsockopt(client, SOL_SOCKET, SO_SNDBUF, &wanted, sizeof wanted);
    }
    int granted = 0;
    socklen_t length = sizeof granted;
    if (getsockopt(client, SOL_SOCKET, SO_SNDBUF, &granted, &length) == 0) {
        grantedSendBuffer = granted / 2; // the kernel doubles the size, for its overhead
    }
}

void EventServer::State::joinFinishedThreads()
{
    std::multimap<int, pthread_t> finished;
    {
        const std::lock_guard<std::mutex> guard(connectionsLock);
        finished.swap(finishedThreads);
    }
    for (const auto& [client, thread] : finished) {
        pthread_join(thread, nullptr);
    }
}

void* EventServer::rx_handler(void* server)
{
    State& state = State::of(server);
    const int client = state.descriptorOf(pthread_self());
    if (client >= 0) {
        state.serve(client);
    }
    state.tearDown(client);
    return nullptr;
}

int EventServer::State::descriptorOf(pthread_t thread)
{
    const std::lock_guard<std::mutex> guard(connectionsLock);
    const auto found = std::find_if(connections.begin(), connections.end(), [thread](const auto& entry) {
        return pthread_equal(entry.second, thread) != 0;
    });
    return found != connections.end() ? found->first : -1;
}

void EventServer::State::serve(int client)
{
    Inbox inbox(client, packetBuffers);
    while (!stopTargets(pthread_self())) {
        const int number = inbox.receive();
        if (number < 1) {
            return;
        }
        handlePackets(client, inbox.packets(), number);
    }
}

void EventServer::State::tearDown(int client)
{
    rights.forget(client);
    {
        const std::lock_guard<std::mutex> stopGuard(stopLock);
        {
            const std::lock_guard<std::mutex> connectionsGuard(connectionsLock);
            removeSubscriptions(client);
            FileDescriptor(client).reset();
            finishedThreads.insert(connections.extract(client));
        }
        if (stopTargets(pthread_self())) {
            stopPending = false;
            stopCondition.notify_all();
        }
    }
    onDisconnect.call(server, client, {}, -1, nullptr);
}

int EventServer::Stop()
{
    if (!IsStarted()) {
        return -ENOTCONN;
    }
    if (const int result = m_state->stopListener(); result != 0) {
        return result;
    }
    if (const int result = m_state->stopReceivers(); result != 0) {
        return result;
    }
    m_state->joinFinishedThreads();
    return 0;
}

bool EventServer::State::stopTargets(pthread_t thread) const
{
    return stopPending && pthread_equal(stopTarget, thread) != 0;
}

void EventServer::State::endListener()
{
    const std::lock_guard<std::mutex> guard(stopLock);
    listenerEnded = true;
    if (stopTargets(pthread_self())) {
        stopPending = false;
        stopCondition.notify_all();
    }
}

bool EventServer::State::waitForStop(std::unique_lock<std::mutex>& stopGuard)
{
    const auto deadline = std::chrono::system_clock::now() + kStopDeadline;
    return stopCondition.wait_until(stopGuard, deadline, [this] { return !stopPending; });
}

int EventServer::State::stopListener()
{
    std::unique_lock<std::mutex> stopGuard(stopLock);
    stopTarget = listenerThread;
    stopPending = !listenerEnded; // a thread that has ended does not confirm
    const int fd = listener;
    if (wake.isOpen()) {
        wakeUp(wake.get());
    } else if (shutdown(fd, SHUT_RDWR) != 0) {
        stopPending = false;
        return -EALREADY;
    }
    // Closed on return, when the listener thread can no longer use it.
    const FileDescriptor socket(fd);
    listener = -1;
    if (!wake.isOpen()) {
        unlink(path.c_str());
    }
    if (!waitForStop(stopGuard)) {
        return -ETIMEDOUT;
    }
    pthread_join(listenerThread, nullptr);
    wake.reset();
    return 0;
}

int EventServer::State::stopReceivers()
{
    for (;;) {
        // While this lock is held, no receiver thread closes its socket.
        std::unique_lock<std::mutex> stopGuard(stopLock);
        {
            const std::lock_guard<std::mutex> guard(connectionsLock);
            if (connections.empty()) {
                return 0;
            }
            stopTarget = connections.begin()->second;
            stopPending = true;
            shutdown(connections.begin()->first, SHUT_RDWR);
        }
        if (!waitForStop(stopGuard)) {
            return -ETIMEDOUT;
        }
        joinFinishedThreads();
    }
}

} // namespace Telvane

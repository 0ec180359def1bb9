// The receiver thread: connects, subscribes, receives until the connection is lost, and starts again.
//
// While the connection is being established, the socket is non-blocking: the thread sends subscribe requests, reads
// their answers, and then sends the messages of the outbox. It gives up after kAnswerDeadline without progress. On an
// established connection, the thread blocks in recv(), which costs one system call per message; shutting the socket
// down wakes it. Only while kWindow subscribe requests are unanswered, it also waits for their deadline.

#include "client/BusState.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <sys/socket.h>

namespace Telvane::Detail
{

namespace
{

constexpr auto kAnswerDeadline = std::chrono::seconds(3); ///< without any progress
constexpr auto kAnswersLostInStream =
    std::chrono::seconds(9);                       ///< after the end of the window, while packets wait
constexpr const char* kPingChannel = "TelvaneBus"; ///< for a request if there is no subscription

void setBlocking(int fd, bool blocking)
{
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

std::error_code reasonOf(int error)
{
    switch (error) {
    case ENOENT:
    case ECONNREFUSED:
        return BusError::NoServer;
    case EACCES:
    case EPERM:
        return BusError::NoPermission;
    case EAGAIN:
    case EINTR:
        return BusError::Busy;
    case EPROTOTYPE:
    case ENOTSOCK:
        return BusError::NotABus;
    default:
        return {error, std::system_category()};
    }
}

int pollTimeout(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left <= 0 ? 0 : static_cast<int>(std::min<std::int64_t>(left, 3'600'000));
}

} // namespace

void Link::shutDown() const
{
    ::shutdown(socket.get(), SHUT_RDWR);
}

void BusState::receive()
{
    {
        const std::lock_guard<std::mutex> guard(lock);
        m_receiver = std::this_thread::get_id();
    }
    unsigned failures = 0;
    for (;;) {
        LinkPointer link;
        std::error_code why;
        try {
            why = openLink(link);
            if (!why) {
                beginEpoch(link);
                why = establish(link);
            }
        } catch (const std::bad_alloc&) {
            why = BusError::OutOfMemory;
        }
        auto pause = options.firstPause;
        if (!why) {
            const Clock::time_point begin = Clock::now();
            receiveUntilLost(link);
            endLink(link, BusError::Lost);
            failures = 0;
            // A server that closes new connections at once may do so every time.
            pause = Clock::now() - begin < options.firstPause ? pauseAfter(0) : std::chrono::nanoseconds(0);
        } else {
            if (link != nullptr) {
                endLink(link, why);
            }
            attemptFailed(why);
            pause = pauseAfter(failures);
            ++failures;
        }
        link.reset();
        if (!sleepFor(pause)) {
            return;
        }
    }
}

std::error_code BusState::openLink(LinkPointer& link) const
{
    FileDescriptor socket = openSocket();
    if (!socket.isOpen()) {
        return {errno, std::system_category()};
    }
    setBlocking(socket.get(), false);
    if (connectSocket(socket.get(), path) != 0) {
        return reasonOf(errno);
    }
    link = std::make_shared<Link>(std::move(socket));
    return {};
}

void BusState::beginEpoch(const LinkPointer& link)
{
    const std::lock_guard<std::mutex> guard(lock);
    if (m_closed) {
        link->shutDown();
    }
    revokeDirect();
    m_link = link;
    m_answersDue = 0;
    m_windowFull = false;
    m_answered = false;
    m_pinged = false;
    ++m_counters.connections;
    for (auto next = m_channels.begin(); next != m_channels.end();) {
        const auto entry = next++;
        Channel& channel = entry->second;
        channel.asked = channel.active = channel.refused = channel.lingers = false;
        channel.answersDue = channel.answersGivenUp = 0;
        if (channel.wanted()) {
            markDirty(*entry);
        } else {
            eraseIfIdle(entry);
        }
    }
}

BusState::Step BusState::nextStep(const LinkPointer& link, Kept& message)
{
    Held held(lock);
    message.since = Clock::time_point::max();
    Channels::value_type* channel = nullptr;
    if (m_closed || m_answersDue >= kWindow) {
        return Step::Wait; // if closed, the socket has been shut down, which ends the wait
    }
    if (takeDirtyChannel(message.text, channel)) {
        return Step::Send;
    }
    if (m_answersDue > 0 || (m_pinged && !m_answered)) {
        return Step::Wait;
    }
    if (!m_answered) {
        // There is nothing to subscribe to. Any answer shows that the server accepts this client.
        message.text = printRequest(makeUnsubscribeRequest(kPingChannel));
        m_pinged = true;
        return Step::Send;
    }
    dropExpired(Clock::now());
    if (!m_outbox.empty()) {
        message = std::move(m_outbox.front());
        m_outbox.pop_front();
        return Step::Send;
    }
    setBlocking(link->socket.get(), true);
    m_linkUp = true;
    m_upLink = link.get();
    setState(held, ConnectionState::Connected, {});
    return Step::Done;
}

std::error_code BusState::establish(const LinkPointer& link)
{
    Kept message;
    const std::error_code why = establish(link, message);
    if (!message.text.empty() && message.since != Clock::time_point::max()) {
        const std::lock_guard<std::mutex> guard(lock);
        m_outbox.push_front(std::move(message));
    }
    return why;
}

std::error_code BusState::establish(const LinkPointer& link, Kept& message)
{
    Clock::time_point deadline = Clock::now() + kAnswerDeadline;
    for (;;) {
        Step step = message.text.empty() ? nextStep(link, message) : Step::Send;
        if (step == Step::Done) {
            return {};
        }
        bool blocked = false;
        if (step == Step::Send) {
            const std::error_code sent =
                send(*link, message.text.data(), static_cast<int>(message.text.size()),
                     std::chrono::nanoseconds(0));
            blocked = sent == BusError::TimedOut;
            if (sent && !blocked) {
                return m_answered ? BusError::Lost : BusError::TurnedAway;
            }
            if (!blocked) {
                message.text.clear();
                deadline = Clock::now() + kAnswerDeadline;
            }
        }
        const auto events = static_cast<short>(blocked ? POLLIN | POLLOUT : POLLIN);
        pollfd watched[] = {{link->socket.get(), events, 0}, {m_wake.get(), POLLIN, 0}};
        poll(watched, 2, step == Step::Send && !blocked ? 0 : pollTimeout(deadline));
        if ((watched[1].revents & POLLIN) != 0) {
            clearWake(m_wake.get());
        }
        if (watched[0].revents != 0) {
            if (const std::error_code why = receiveSome(link)) {
                return why;
            }
        }
        if (Clock::now() >= deadline) {
            return BusError::NoAnswer;
        }
    }
}

/// Receives the packets that have arrived, at most kWindow.
std::error_code BusState::receiveSome(const LinkPointer& link)
{
    char buffer[kMessageLimit];
    for (int i = 0; i < kWindow; ++i) {
        const int length = receivePacket(link->socket.get(), buffer);
        if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
            break;
        }
        if (length < 1) {
            return m_answered ? BusError::Lost : BusError::TurnedAway;
        }
        take(buffer);
    }
    return {};
}

/// Waits for a packet while the window is full. At the end of the window, the answers count as lost, and the next
/// requests are sent. Packets that wait are taken first, as the answers may be among them, but not for ever. The thread
/// need not be woken for this: a server drops answers only while packets wait in this socket, so the thread takes one of
/// those after m_windowFull was set.
/// \return whether there is a packet; false also if it has sent requests
bool BusState::awaitPacket(const Link& link)
{
    Clock::time_point end;
    {
        const std::lock_guard<std::mutex> guard(lock);
        end = m_windowEnd;
    }
    pollfd watched = {link.socket.get(), POLLIN, 0};
    if (poll(&watched, 1, pollTimeout(end)) > 0 && Clock::now() < end + kAnswersLostInStream) {
        return true;
    }
    Held held(lock);
    if (m_windowFull && pollTimeout(m_windowEnd) == 0) {
        for (auto& [name, channel] : m_channels) {
            channel.answersGivenUp = channel.answersDue;
        }
        m_answersDue = 0;
        m_windowFull = false;
        updateServer(held);
    }
    return false;
}

void BusState::receiveUntilLost(const LinkPointer& link)
{
    char buffer[kMessageLimit];
    for (;;) {
        if (m_windowFull && !awaitPacket(*link)) {
            continue;
        }
        const int length = receivePacket(link->socket.get(), buffer);
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 1) {
            return;
        }
        take(buffer);
    }
}

void BusState::endLink(const LinkPointer& link, std::error_code why)
{
    link->shutDown(); // ends pending sends
    Held held(lock);
    revokeDirect();
    m_link.reset();
    const bool wasUp = m_linkUp;
    m_linkUp = false;
    m_upLink = nullptr;
    forgetIdleLink();
    for (auto& [name, channel] : m_channels) {
        for (const RequestPointer& request : channel.requests) {
            request->fail(m_closed ? BusError::Closed : BusError::Lost);
        }
    }
    if (wasUp && !m_closed) {
        m_lastFailure = why;
        setState(held, ConnectionState::Connecting, why);
    }
    changed.notify_all();
}

void BusState::attemptFailed(std::error_code why)
{
    const std::lock_guard<std::mutex> guard(lock);
    if (m_closed) {
        return;
    }
    reason = why;
    if (m_lastFailure != why) {
        m_lastFailure = why;
        report(BusEvent::Kind::AttemptFailed, why, {}, "");
    }
}

void BusState::setState(Held& /*held*/, ConnectionState newState, std::error_code why)
{
    state = newState;
    reason = why;
    if (newState == ConnectionState::Connected) {
        m_lastFailure.clear();
    }
    report(BusEvent::Kind::StateChanged, why, {}, "");
    pushToQueues(newState == ConnectionState::Connected ? Item::Kind::Connected : Item::Kind::Lost, why);
    changed.notify_all();
}

std::chrono::nanoseconds BusState::pauseAfter(unsigned failures)
{
    auto pause = options.firstPause;
    for (; failures > 0 && pause < options.longestPause; --failures) {
        pause *= 2;
    }
    pause = std::min(pause, options.longestPause);
    // Programs that lost the same server must not all reconnect at the same moment.
    m_random = m_random * 6364136223846793005U + 1442695040888963407U;
    return pause - (pause / 2) * static_cast<std::int64_t>(m_random >> 48U) / 65536;
}

bool BusState::sleepFor(std::chrono::nanoseconds pause)
{
    const Clock::time_point until = deadlineAfter(pause);
    for (;;) {
        {
            const std::lock_guard<std::mutex> guard(lock);
            if (m_closed) {
                return false;
            }
        }
        const int timeout = pollTimeout(until);
        if (timeout == 0) {
            return true;
        }
        pollfd watched = {m_wake.get(), POLLIN, 0};
        if (poll(&watched, 1, timeout) == 1) {
            clearWake(m_wake.get());
        }
    }
}

} // namespace Telvane::Detail

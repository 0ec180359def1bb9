// Publishing: writes a record into the socket, or into the outbox while there is no connection.

#include "client/BusState.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <new>
#include <poll.h>
#include <sys/socket.h>

namespace Telvane::Detail
{

namespace
{

/// Waits until a packet may fit into the socket, or the connection has ended.
/// \return false at the deadline
bool awaitRoom(int fd, Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
        return false;
    }
    const timespec time = {static_cast<time_t>(left / 1'000'000'000),
                           static_cast<long>(left % 1'000'000'000)};
    pollfd watched = {fd, POLLOUT, 0};
    return ppoll(&watched, 1, &time, nullptr) != 0;
}

/// \return the size of a publication that is too large to be written as a whole
std::size_t measure(const std::string& channel, TelvaneDataTypeBase& record)
{
    PublicationWriter writer(INT_MAX / 2);
    const char* text = nullptr;
    return writer.write(channel, record, text) == 0 ? static_cast<std::size_t>(writer.length()) : 0;
}

} // namespace

std::error_code BusState::send(const Link& link, const char* text, int length,
                               std::chrono::nanoseconds timeout)
{
    Clock::time_point deadline; // computed only if needed: usually the first attempt succeeds
    bool waited = false;
    for (;;) {
        if (sendPacket(link.socket.get(), text, length, MSG_DONTWAIT).sent >= 0) {
            return {};
        }
        const int error = errno;
        if (error == EINTR) {
            continue;
        }
        if (error == ENOBUFS || error == ENOMEM) {
            return BusError::OutOfMemory;
        }
        if (error == EMSGSIZE) {
            return BusError::TooLarge;
        }
        if (error != EAGAIN) {
            return BusError::NotConnected;
        }
        if (!waited) {
            waited = true;
            deadline = deadlineAfter(timeout);
        }
        if (!awaitRoom(link.socket.get(), deadline)) {
            return BusError::TimedOut;
        }
    }
}

// A thread owns the writer that it has exchanged out of m_idleWriter, and the writer owns its connection. So
// takeWriter() may compare the addresses of that connection and of m_upLink: nothing else can have the same one.
//
// A lost connection has to be closed although an idle writer refers to it. endLink() changes m_upLink and then looks
// into m_idleWriter; returnWriter() changes m_idleWriter and then looks at m_upLink. All four operations have one
// order (they are sequentially consistent), so at least one of the two threads sees what the other has changed. A third
// thread that has taken the writer in between returns it in the same way.

/// \return a writer with the current connection, or with none if the publication has to be kept; null, with the error
/// in \p publication, if it can be neither sent nor kept
std::unique_ptr<Writer> BusState::takeWriter(bool keeps, Publication& publication)
{
    std::unique_ptr<Writer> writer(m_idleWriter.exchange(nullptr));
    const Link* const up = m_upLink;
    if (writer != nullptr && up != nullptr && writer->link.get() == up) {
        return writer;
    }
    LinkPointer link;
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (m_closed) {
            publication.error = BusError::Closed;
        } else if (m_linkUp) {
            link = m_link;
        } else if (!keeps) {
            publication.error = BusError::NotConnected;
        }
    }
    if (publication.error) {
        if (writer != nullptr) {
            returnWriter(std::move(writer));
        }
        return nullptr;
    }
    if (writer == nullptr) {
        writer = std::make_unique<Writer>();
    }
    writer->link = std::move(link);
    return writer;
}

/// Keeps the writer for the next publication, with its connection while that lasts.
void BusState::returnWriter(std::unique_ptr<Writer> writer)
{
    const Link* const link = writer->link.get();
    // Delete a writer that another thread has returned meanwhile.
    writer.reset(m_idleWriter.exchange(writer.release()));
    if (link != m_upLink) {
        forgetIdleLink(); // it may have ended after endLink() has looked for it
    }
}

/// Lets the connection of the idle writer be closed.
void BusState::forgetIdleLink()
{
    std::unique_ptr<Writer> writer(m_idleWriter.exchange(nullptr));
    if (writer != nullptr) {
        writer->link.reset();
        writer.reset(m_idleWriter.exchange(writer.release()));
    }
}

Publication BusState::publish(const std::string& channel, const TelvaneDataTypeBase& record,
                              std::chrono::nanoseconds timeout, Absence absence)
{
    Publication publication;
    const bool keeps = absence == Absence::Keeps && options.outbox.messages != 0;
    try {
        // Packaging does not change the record, although the interface of records does not declare it const.
        auto& packaged = const_cast<TelvaneDataTypeBase&>(record);
        std::unique_ptr<Writer> writer = takeWriter(keeps, publication);
        if (writer == nullptr) {
            return publication;
        }
        const char* text = nullptr;
        const int result = writer->text.write(channel, packaged, text);
        const int printed = writer->text.length();
        if (result != 0) {
            publication.error = result == -ENOMEM ? BusError::OutOfMemory : BusError::NotWritable;
        } else if (const auto length = static_cast<std::size_t>(printed); length > Publication::kLimit) {
            publication.size = length < kMessageLimit ? length : std::max(length, measure(channel, packaged));
            publication.error = BusError::TooLarge;
        } else {
            publication.size = length;
            LinkPointer& link = writer->link;
            do {
                publication.error = link != nullptr ? send(*link, text, printed, timeout)
                                                    : make_error_code(BusError::NotConnected);
            } while (publication.error == BusError::NotConnected && keeps && !keep(publication, text, link));
        }
        returnWriter(std::move(writer));
    } catch (const std::bad_alloc&) {
        publication.error = BusError::OutOfMemory;
    }
    return publication;
}

/// Puts a message into the outbox.
/// \param[in,out] link the connection on which it could not be sent, or null
/// \return false if there is a new connection meanwhile, which \p link is set to
bool BusState::keep(Publication& publication, const char* text, LinkPointer& link)
{
    std::list<Kept> kept; // allocated without the lock
    kept.push_back({text, Clock::now()});
    const std::lock_guard<std::mutex> guard(lock);
    if (m_closed) {
        publication.error = BusError::Closed;
        return true;
    }
    if (m_linkUp && m_link != link) {
        link = m_link;
        return false;
    }
    dropExpired(kept.front().since);
    if (m_outbox.size() >= options.outbox.messages) {
        m_outbox.pop_front();
        ++m_counters.outboxDropped;
    }
    m_outbox.splice(m_outbox.end(), kept);
    publication.error.clear();
    publication.queued = true;
    return true;
}

void BusState::dropExpired(Clock::time_point now)
{
    while (!m_outbox.empty() && now - m_outbox.front().since > options.outbox.age) {
        m_outbox.pop_front();
        ++m_counters.outboxExpired;
    }
}

} // namespace Telvane::Detail

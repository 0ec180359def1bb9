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

std::unique_ptr<PublicationWriter> BusState::takeWriter()
{
    PublicationWriter* const idle = m_idleWriter.exchange(nullptr);
    return std::unique_ptr<PublicationWriter>(idle != nullptr ? idle : new PublicationWriter());
}

void BusState::returnWriter(std::unique_ptr<PublicationWriter> writer)
{
    // Keep this one. Delete one that another thread has returned meanwhile.
    writer.reset(m_idleWriter.exchange(writer.release()));
}

Publication BusState::publish(const std::string& channel, const TelvaneDataTypeBase& record,
                              std::chrono::nanoseconds timeout, Absence absence)
{
    Publication publication;
    const bool keeps = absence == Absence::Keeps && options.outbox.messages != 0;
    LinkPointer link;
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (m_linkUp) {
            link = m_link;
        } else if (m_closed || !keeps) {
            publication.error = m_closed ? BusError::Closed : BusError::NotConnected;
            return publication;
        }
    }
    try {
        // Packaging does not change the record, although the interface of records does not declare it const.
        auto& packaged = const_cast<TelvaneDataTypeBase&>(record);
        std::unique_ptr<PublicationWriter> writer = takeWriter();
        const char* text = nullptr;
        const int result = writer->write(channel, packaged, text);
        if (result != 0) {
            publication.error = result == -ENOMEM ? BusError::OutOfMemory : BusError::NotWritable;
        } else if (const auto length = static_cast<std::size_t>(writer->length());
                   length > Publication::kLimit) {
            publication.size = length < kMessageLimit ? length : std::max(length, measure(channel, packaged));
            publication.error = BusError::TooLarge;
        } else {
            publication.size = length;
            do {
                publication.error = link != nullptr ? send(*link, text, writer->length(), timeout)
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
    Kept kept{text, Clock::now()};
    const std::lock_guard<std::mutex> guard(lock);
    if (m_closed) {
        publication.error = BusError::Closed;
        return true;
    }
    if (m_linkUp && m_link != link) {
        link = m_link;
        return false;
    }
    dropExpired(kept.since);
    if (m_outbox.size() >= options.outbox.messages) {
        m_outbox.pop_front();
        ++m_counters.outboxDropped;
    }
    m_outbox.push_back(std::move(kept));
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

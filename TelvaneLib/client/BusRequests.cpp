// Requests: the requesting thread waits here until the receiver thread finds the answer.
//
// Both share an entry that is added to the table before the request is sent, because the answer may arrive before the
// send returns. The first event that sets `done`, under the lock, decides the result: answer, refusal, loss or
// deadline. The server handles the packets of one client in order, so the request need not wait for the server's
// answer to the subscription.

#include "client/BusState.h"

#include <algorithm>
#include <cstdio>
#include <new>

namespace Telvane::Detail
{

void PendingRequest::fail(std::error_code why)
{
    if (!done) {
        done = true;
        error = why;
        changed.notify_all();
    }
}

std::string BusState::newRequestId()
{
    char text[48];
    std::snprintf(text, sizeof text, "%016llx-%llx", static_cast<unsigned long long>(m_identity),
                  static_cast<unsigned long long>(++m_requests));
    return std::string(kRequestId) + text;
}

std::error_code BusState::request(const std::string& channel, const TelvaneDataTypeBase& argument,
                                  TelvaneDataTypeBase& answer, std::chrono::nanoseconds timeout)
{
    const Clock::time_point deadline = deadlineAfter(timeout);
    try {
        if (CallbackFrame::inReceiver(*this)) {
            return BusError::WouldDeadlock;
        }
        const std::string requestChannel = kRequestPrefix + channel;
        if (CallbackFrame::responds(*this, requestChannel)) {
            return BusError::WouldDeadlock;
        }
        // The argument must not change, so a copy carries the identifier.
        const std::unique_ptr<TelvaneDataTypeBase> question(argument.BuildNewDataType());
        auto pending = std::make_shared<PendingRequest>();
        pending->prototype.reset(answer.BuildNewDataType());
        if (question == nullptr || pending->prototype == nullptr ||
            question->copy(const_cast<TelvaneDataTypeBase*>(&argument)) != 0) {
            return BusError::OutOfMemory;
        }

        Held held(lock);
        if (!m_linkUp || m_closed) {
            return m_closed ? BusError::Closed : BusError::NotConnected;
        }
        pending->id = question->_id = newRequestId();
        const auto found = findOrAddChannel(channel);
        Channel& entry = found->second;
        if (entry.refused) {
            entry.refused = entry.asked = false;
        }
        revokeDirect();
        entry.requests.push_back(pending);
        if (!entry.asked) {
            markDirty(*found);
            updateServer(held);
            // Another thread may be sending the subscription. The request must not overtake it.
            changed.wait_until(held, deadline,
                               [&] { return pending->done || (!entry.dirty && !entry.sending); });
        } else {
            changed.wait_until(held, deadline, [&] { return pending->done || !entry.sending; });
        }
        held.unlock();
        const Publication sent = publish(requestChannel, *question, deadline - Clock::now(), Absence::Fails);
        held.lock();
        if (sent.error) {
            pending->fail(sent.error);
        }
        std::error_code error = await(held, *pending, requestChannel, deadline);

        auto& requests = entry.requests;
        requests.erase(std::find(requests.begin(), requests.end(), pending));
        entry.lastRequest = Clock::now();
        entry.lingers = entry.asked;
        eraseIfIdle(found);
        held.unlock();
        if (!error) {
            pending->answer->_id.clear();
            if (answer.copy(pending->answer.get()) != 0) {
                error = BusError::NotWritable;
            }
        }
        return error;
    } catch (const std::bad_alloc&) {
        return BusError::OutOfMemory;
    }
}

/// Waits for the end of a request. In a callback, runs responders of this bus meanwhile.
std::error_code BusState::await(Held& held, PendingRequest& pending, const std::string& requestChannel,
                                Clock::time_point deadline)
{
    const CallbackFrame* const frame = CallbackFrame::innermost(*this);
    if (frame != nullptr) {
        pending.nextHelper = m_helpers;
        m_helpers = &pending;
    }
    while (!pending.done) {
        const EndpointPointer responder =
            frame != nullptr ? runnableResponder(requestChannel, frame->run) : nullptr;
        if (responder != nullptr) {
            runOldest(held, responder, frame->run);
        } else if (pending.changed.wait_until(held, deadline) == std::cv_status::timeout) {
            pending.fail(BusError::TimedOut);
        }
    }
    if (frame != nullptr) {
        PendingRequest** place = &m_helpers;
        while (*place != &pending) {
            place = &(*place)->nextHelper;
        }
        *place = pending.nextHelper;
    }
    return pending.error;
}

/// \return a responder of this bus to \p requestChannel that waits for this thread, or null
EndpointPointer BusState::runnableResponder(const std::string& requestChannel, Run where)
{
    const auto found = m_channels.find(requestChannel);
    if (found == m_channels.end()) {
        return nullptr;
    }
    for (const EndpointPointer& endpoint : found->second.endpoints) {
        if (endpoint->settings.kind == EndpointSettings::Kind::Responder && endpoint->settings.run == where &&
            !endpoint->running && !endpoint->items.empty()) {
            return endpoint;
        }
    }
    return nullptr;
}

} // namespace Telvane::Detail

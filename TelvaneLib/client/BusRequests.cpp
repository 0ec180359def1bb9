// Requests: the asker waits here for the receiver thread to find its answer.
//
// The entry that both share is put into the table before the request goes out, since the answer may be
// quicker than the return of the send. Whoever sets `done` first, under the lock, decides: answer, refusal,
// loss, or the deadline. The server handles the packets of one client in order, so the request may follow
// the subscription to its answer without waiting for the server's consent.

#include "client/BusState.h"

#include <algorithm>
#include <cstdio>
#include <new>

namespace Telvane::Detail
{

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
        // A copy of the argument, which is not ours to change, carries the identifier.
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
        entry.requests.push_back(pending);
        if (!entry.asked) {
            markDirty(*found);
            updateServer(held);
            // Another thread may be at it: the request must not overtake the subscription.
            changed.wait_until(held, deadline,
                               [&] { return pending->done || (!entry.dirty && !entry.sending); });
        } else {
            changed.wait_until(held, deadline, [&] { return pending->done || !entry.sending; });
        }
        held.unlock();
        const Publication sent = publish(requestChannel, *question, deadline - Clock::now(), Absence::Fails);
        held.lock();
        if (sent.error && !pending->done) {
            pending->done = true;
            pending->error = sent.error;
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

/// Waits for the end of a request. In a callback that an executor runs, its responders go on meanwhile.
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
            Item item = std::move(responder->items.front());
            responder->items.pop_front();
            --responder->messages;
            --executorOf(*responder).messages;
            run(held, responder, frame->run, std::move(item.record), item.delivery);
        } else if (pending.changed.wait_until(held, deadline) == std::cv_status::timeout && !pending.done) {
            pending.done = true;
            pending.error = BusError::TimedOut;
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

/// \return a responder of this bus to \p requestChannel that only this thread could run at present, or null
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

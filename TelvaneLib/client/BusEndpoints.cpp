// Adds and ends subscriptions, responders and queues, and takes items from queues.
//
// Ending one waits for its running callback, except in three cases in which the wait would never end: in that callback
// itself, if that callback waits for one on this thread, and if that callback is closing the bus.

#include "client/BusState.h"
#include "client/PayloadText.h"

#include <algorithm>
#include <new>

namespace Telvane::Detail
{

namespace
{

constexpr std::size_t kMaxChanges = 16; ///< limit of the connection changes in a queue

} // namespace

/// Moves the oldest item that is a message, or the oldest that is none, to \p to. There must be one.
void Endpoint::takeOldest(bool isMessage, std::list<Item>& to)
{
    auto oldest = items.begin();
    while ((oldest->kind == Item::Kind::Message) != isMessage) {
        ++oldest;
    }
    to.splice(to.end(), items, oldest);
}

EndpointPointer BusState::addEndpoint(const std::string& channel, const EndpointSettings& settings,
                                      std::unique_ptr<TelvaneDataTypeBase> prototype,
                                      std::unique_ptr<MessageHandler> handler, std::error_code& error)
{
    const bool responds = settings.kind == EndpointSettings::Kind::Responder;
    EndpointSettings resolved = settings;
    if (resolved.run == Run::Default) {
        resolved.run = options.run == Run::Default ? Run::Queued : options.run;
    }
    auto endpoint = std::make_shared<Endpoint>(shared_from_this(), resolved,
                                               responds ? kRequestPrefix + channel : channel);
    if (responds) {
        endpoint->answerChannel = channel;
    }
    endpoint->prototype = std::move(prototype);
    endpoint->takesText = dynamic_cast<const PayloadText*>(endpoint->prototype.get()) != nullptr;
    endpoint->handler = std::move(handler);

    Held held(lock);
    if (m_closed) {
        error = reason ? reason : make_error_code(BusError::Closed);
        return nullptr;
    }
    if (endpoint->settings.kind != EndpointSettings::Kind::Queue && endpoint->settings.run == Run::Queued) {
        if (const int result = startWorker(); result != 0) {
            error = {result, std::system_category()};
            return nullptr;
        }
    }
    revokeDirect();
    const auto found = findOrAddChannel(endpoint->name);
    Channel& entry = found->second;
    entry.endpoints.push_back(endpoint);
    if (entry.refused) {
        entry.refused = false; // request it again: the server's limits may have changed
        entry.asked = false;
    }
    markDirty(*found);
    updateServer(held);
    return endpoint;
}

/// Marks an endpoint as ended. Destroys nothing, because the lock is held.
/// \param[out] garbage items that the caller destroys without the lock
void BusState::removeEndpoint(Endpoint& endpoint, std::list<Item>& garbage)
{
    endpoint.ended = true;
    if (!endpoint.error) {
        endpoint.error = BusError::Closed;
    }
    if (endpoint.settings.kind != EndpointSettings::Kind::Queue) {
        executorOf(endpoint).messages -= endpoint.messages;
    }
    endpoint.items.swap(garbage);
    endpoint.messages = 0;
    endpoint.updateEvent();
    endpoint.changed.notify_all();
    changed.notify_all();
}

void BusState::endEndpoint(const EndpointPointer& endpoint, bool wait)
{
    std::list<Item> garbage;
    std::unique_ptr<MessageHandler> handler;
    EndpointPointer unlisted;
    Held held(lock);
    revokeDirect();
    if (!endpoint->ended) {
        removeEndpoint(*endpoint, garbage);
        const auto found = m_channels.find(endpoint->name);
        auto& listed = found->second.endpoints;
        const auto position = std::find(listed.begin(), listed.end(), endpoint);
        unlisted = std::move(*position);
        listed.erase(position);
        if (!found->second.wanted()) {
            markDirty(*found);
            updateServer(held);
        }
    }
    if (endpoint->running && endpoint->runner == std::this_thread::get_id()) {
        return; // in its own callback
    }
    if (wait && endpoint->running && !endsEachOther(*endpoint)) {
        WaitingEnd own{std::this_thread::get_id(), endpoint.get(), m_waitingEnds};
        m_waitingEnds = &own;
        ++endpoint->endsWaiting;
        endpoint->changed.wait(
            held, [&] { return !endpoint->running || (m_closed && endpoint->runner == m_closer); });
        --endpoint->endsWaiting;
        WaitingEnd** place = &m_waitingEnds;
        while (*place != &own) {
            place = &(*place)->next;
        }
        *place = own.next;
    }
    if (!endpoint->running) {
        handler = std::move(endpoint->handler);
    }
    held.unlock();
}

/// \return whether \p endpoint's callback waits, directly or indirectly, for a callback on this thread
bool BusState::endsEachOther(const Endpoint& endpoint) const
{
    const std::thread::id self = std::this_thread::get_id();
    const Endpoint* awaited = &endpoint;
    while (awaited->running) {
        const WaitingEnd* waiting = m_waitingEnds;
        while (waiting != nullptr && waiting->thread != awaited->runner) {
            waiting = waiting->next;
        }
        if (waiting == nullptr) {
            return false;
        }
        awaited = waiting->awaited;
        if (awaited->runner == self) {
            return awaited->running;
        }
    }
    return false;
}

std::error_code BusState::waitActive(const EndpointPointer& endpoint, Clock::time_point deadline)
{
    Held held(lock);
    for (;;) {
        if (endpoint->ended || endpoint->error) {
            return endpoint->error;
        }
        const auto found = m_channels.find(endpoint->name);
        if (m_linkUp && found->second.active) {
            return {};
        }
        if (CallbackFrame::inReceiver(*this)) {
            return BusError::WouldDeadlock;
        }
        if (Clock::now() >= deadline) {
            return BusError::TimedOut;
        }
        changed.wait_until(held, deadline);
    }
}

Item BusState::nextItem(const EndpointPointer& endpoint, std::chrono::nanoseconds timeout)
{
    const Clock::time_point deadline = deadlineAfter(timeout);
    Item item;
    Held held(lock);
    const bool some = endpoint->changed.wait_until(
        held, deadline, [&] { return endpoint->ended || !endpoint->items.empty(); });
    if (!some) {
        return item;
    }
    if (endpoint->ended) {
        item.kind = Item::Kind::Ended;
        item.reason = endpoint->error;
        return item;
    }
    item = std::move(endpoint->items.front());
    endpoint->items.pop_front();
    if (item.kind == Item::Kind::Message) {
        --endpoint->messages;
        ++endpoint->counters.delivered;
    }
    endpoint->overflowing = endpoint->overflowing && endpoint->messages != 0;
    endpoint->updateEvent();
    return item;
}

int BusState::queueDescriptor(const EndpointPointer& endpoint)
{
    const std::lock_guard<std::mutex> guard(lock);
    return endpoint->event.descriptor(endpoint->isReadable());
}

int ReadyEvent::descriptor(bool ready)
{
    if (!m_event.isOpen()) {
        m_event = openWake();
        update(ready);
    }
    return m_event.get();
}

void ReadyEvent::update(bool ready)
{
    if (m_event.isOpen() && ready != m_ready) {
        m_ready = ready;
        (ready ? wakeUp : clearWake)(m_event.get());
    }
}

/// Appends a change of the connection to every queue.
void BusState::pushToQueues(Item::Kind kind, std::error_code why)
{
    for (auto& [name, channel] : m_channels) {
        for (const EndpointPointer& endpoint : channel.endpoints) {
            if (endpoint->settings.kind != EndpointSettings::Kind::Queue ||
                (kind == Item::Kind::Connected && !endpoint->knowsLoss)) {
                continue; // the first connection is not reported
            }
            endpoint->knowsLoss = kind == Item::Kind::Lost;
            try {
                std::list<Item> change;
                if (endpoint->items.size() - endpoint->messages >= kMaxChanges) {
                    endpoint->takeOldest(false, change);
                } else {
                    change.emplace_back();
                }
                change.front().kind = kind;
                change.front().reason = why;
                endpoint->items.splice(endpoint->items.end(), change);
            } catch (const std::bad_alloc&) {
                ++m_counters.outOfMemory;
            }
            endpoint->updateEvent();
            endpoint->changed.notify_one();
        }
    }
}

} // namespace Telvane::Detail

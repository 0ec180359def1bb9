// Runs callbacks.
//
// An endpoint that has messages is in the list of its executor: that of the worker, or that of dispatch(). The
// endpoints take turns, one message each. A callback runs without the lock. end() reads from `running` and
// `runner` whether to wait. A list on each thread's stack contains the callbacks on that stack, so that a wait
// that would never end can be refused.

#include "client/BusState.h"

#include "support/Diagnostics.h"

#include <cstdio>
#include <exception>
#include <new>

namespace Telvane::Detail
{

namespace
{

constexpr std::size_t kMaxEvents = 256;

thread_local CallbackFrame* innermostFrame = nullptr;

/// \return the innermost frame of \p bus on this thread for which \p accepts is true, or null
template <class Predicate>
const CallbackFrame* findFrame(const BusState& bus, Predicate accepts)
{
    const CallbackFrame* frame = innermostFrame;
    while (frame != nullptr && (&frame->bus != &bus || !accepts(*frame))) {
        frame = frame->outer;
    }
    return frame;
}

} // namespace

CallbackFrame::CallbackFrame(const BusState& of, const Endpoint* running, Run on)
    : bus(of), endpoint(running), run(on), outer(innermostFrame)
{
    innermostFrame = this;
}

CallbackFrame::~CallbackFrame()
{
    innermostFrame = outer;
}

const CallbackFrame* CallbackFrame::innermost(const BusState& bus)
{
    return findFrame(bus, [](const CallbackFrame&) { return true; });
}

bool CallbackFrame::responds(const BusState& bus, const std::string& requestChannel)
{
    return findFrame(bus, [&](const CallbackFrame& frame) {
               return frame.endpoint != nullptr &&
                      frame.endpoint->settings.kind == EndpointSettings::Kind::Responder &&
                      frame.endpoint->name == requestChannel;
           }) != nullptr;
}

bool CallbackFrame::inEvent(const BusState& bus)
{
    return findFrame(bus, [](const CallbackFrame& frame) { return frame.endpoint == nullptr; }) != nullptr;
}

bool CallbackFrame::inReceiver(const BusState& bus)
{
    return findFrame(bus, [](const CallbackFrame& frame) { return frame.run == Run::Direct; }) != nullptr;
}

Executor& BusState::executorOf(const Endpoint& endpoint)
{
    return endpoint.settings.run == Run::Dispatch ? m_dispatcher : m_worker;
}

void BusState::pushReady(const EndpointPointer& endpoint)
{
    if (endpoint->ready || endpoint->running) {
        return; // after the current callback, run() puts it into the list again
    }
    Executor& executor = executorOf(*endpoint);
    endpoint->ready = true;
    if (executor.last != nullptr) {
        executor.last->nextReady = endpoint;
    } else {
        executor.first = endpoint;
    }
    executor.last = endpoint.get();
    if (&executor == &m_worker) {
        m_work.notify_one();
    } else {
        updateDispatchEvent();
    }
}

EndpointPointer BusState::popReady(Executor& executor)
{
    EndpointPointer endpoint = std::move(executor.first);
    if (endpoint != nullptr) {
        executor.first = std::move(endpoint->nextReady);
        if (executor.first == nullptr) {
            executor.last = nullptr;
        }
        endpoint->ready = false;
    }
    return endpoint;
}

bool BusState::mustDispatch() const
{
    return m_dispatcher.first != nullptr || (eventsAreDispatched() && !m_events.empty());
}

int BusState::dispatchDescriptor()
{
    const std::lock_guard<std::mutex> guard(lock);
    return m_dispatchEvent.descriptor(mustDispatch());
}

void BusState::work()
{
    Held held(lock);
    for (;;) {
        m_work.wait(held, [this] {
            return m_closed || m_worker.first != nullptr || (!m_events.empty() && !eventsAreDispatched());
        });
        if (m_closed) {
            break;
        }
        runNext(held, m_worker, Run::Queued);
    }
}

std::size_t BusState::dispatch()
{
    std::size_t ran = 0;
    Held held(lock);
    const std::size_t waiting = m_dispatcher.messages + (eventsAreDispatched() ? m_events.size() : 0);
    while (ran < waiting && !m_closed && runNext(held, m_dispatcher, Run::Dispatch)) {
        ++ran;
    }
    return ran;
}

/// Runs one callback.
/// \return false when there is none to run
bool BusState::runNext(Held& held, Executor& executor, Run where)
{
    if ((where == Run::Dispatch) == eventsAreDispatched() && runEvent(held, where)) {
        return true;
    }
    for (;;) {
        const EndpointPointer endpoint = popReady(executor);
        if (where == Run::Dispatch) {
            updateDispatchEvent();
        }
        if (endpoint == nullptr) {
            return false;
        }
        if (endpoint->running || endpoint->items.empty()) {
            continue;
        }
        runOldest(held, endpoint, where);
        return true;
    }
}

/// Runs an endpoint's callback with the oldest message of its queue.
void BusState::runOldest(Held& held, const EndpointPointer& endpoint, Run where)
{
    Item item = std::move(endpoint->items.front());
    endpoint->items.pop_front();
    --endpoint->messages;
    --executorOf(*endpoint).messages;
    endpoint->overflowing = endpoint->overflowing && !endpoint->items.empty();
    run(held, endpoint, where, std::move(item.record), item.delivery);
}

bool BusState::runEvent(Held& held, Run where)
{
    if (m_events.empty() || m_eventRuns || !options.onEvent) {
        return false;
    }
    const BusEvent event = std::move(m_events.front());
    m_events.pop_front();
    if (where == Run::Dispatch) {
        updateDispatchEvent();
    }
    m_eventRuns = true;
    held.unlock();
    try {
        const CallbackFrame frame(*this, nullptr, where);
        options.onEvent(event);
    } catch (...) {
        writeErrorLine("Telvane: an exception left the event callback of a bus");
    }
    held.lock();
    m_eventRuns = false;
    changed.notify_all();
    return true;
}

/// Runs an endpoint's callback. The lock is released meanwhile.
void BusState::run(Held& held, const EndpointPointer& endpoint, Run where,
                   std::unique_ptr<TelvaneDataTypeBase> record, const Delivery& delivery)
{
    endpoint->running = true;
    endpoint->runner = std::this_thread::get_id();
    held.unlock();
    CallbackOutcome outcome;
    bool unanswered = false;
    try {
        const CallbackFrame frame(*this, endpoint.get(), where);
        std::unique_ptr<TelvaneDataTypeBase> answer = endpoint->handler->handle(*record, delivery);
        if (answer != nullptr) {
            answer->_id = record->_id; // identifies the request
            unanswered = static_cast<bool>(
                publish(endpoint->answerChannel, *answer, options.deadline, Absence::Fails).error);
        }
    } catch (...) {
        outcome.noteException();
    }
    record.reset();
    held.lock();
    ++endpoint->counters.delivered;
    endpoint->counters.unanswered += unanswered ? 1 : 0;
    finish(held, endpoint, outcome);
}

/// Only in a handler of an exception.
void CallbackOutcome::noteException()
{
    threw = true;
    try {
        // cppcheck-suppress rethrowNoCurrentException ; the caller handles one
        throw;
    } catch (const std::exception& exception) {
        std::snprintf(text, sizeof text, "%s", exception.what());
    } catch (...) {
        text[0] = '\0';
    }
}

/// Ends the run of a callback that has returned. May release the lock meanwhile.
void BusState::finish(Held& held, const EndpointPointer& endpoint, const CallbackOutcome& outcome)
{
    if (outcome.threw) {
        ++endpoint->counters.threw;
        if (!options.onEvent && endpoint->counters.threw == 1) {
            writeErrorLine("Telvane: an exception left a callback of the bus: ", outcome.text);
        }
        report(BusEvent::Kind::CallbackThrew, {}, endpoint->name, outcome.text);
    }
    if (endpoint->ended && endpoint->endsWaiting == 0) {
        std::unique_ptr<MessageHandler> last = std::move(endpoint->handler);
        held.unlock();
        last.reset();
        held.lock();
    }
    endpoint->running = false;
    if (endpoint->ended) {
        endpoint->changed.notify_all();
        changed.notify_all();
    } else if (!endpoint->items.empty()) {
        pushReady(endpoint);
    }
}

/// Queues an event for BusOptions::onEvent. Drops and counts it if the queue is full.
void BusState::report(BusEvent::Kind kind, std::error_code why, const std::string& channel, const char* text)
{
    if (!options.onEvent || m_closed) {
        return;
    }
    if (m_events.size() >= kMaxEvents) {
        ++m_counters.eventsDropped;
        return;
    }
    try {
        BusEvent event;
        event.kind = kind;
        event.state = state;
        event.reason = why;
        event.channel = channel;
        event.text = text;
        event.epoch = m_counters.connections;
        m_events.push_back(std::move(event));
    } catch (const std::bad_alloc&) {
        ++m_counters.eventsDropped;
        return;
    }
    if (eventsAreDispatched()) {
        updateDispatchEvent();
    } else {
        m_work.notify_one();
    }
}

} // namespace Telvane::Detail

// The path of most messages: a relay for a single subscription with a callback on the receiver thread. It takes no
// lock and counts no reference; DirectTurn.h says how. All other messages go to BusDelivery.cpp.

#include "client/BusState.h"
#include "client/Relay.h"

#include <new>

namespace Telvane::Detail
{

/// Grants a turn to the only recipient of the second of two messages in a row.
void BusState::considerDirect(const Channel& channel)
{
    const Endpoint* const only =
        m_asked.empty() && m_targets.size() == 1 && channel.active ? m_targets.front().get() : nullptr;
    if (only != nullptr && only == m_lastOnly && !only->ended && !m_closed && only->inReceiver() &&
        only->settings.kind == EndpointSettings::Kind::Callback &&
        (only->takesText || only->prototype->_recordTable() != nullptr)) {
        try {
            m_directName = only->name;
            m_direct.grant(m_targets.front());
        } catch (const std::bad_alloc&) {
            // The name and the turn stay as they were.
        }
    }
    m_lastOnly = only;
}

void BusState::take(const char* text)
{
    bool outOfMemory = false;
    try {
        Relay relay;
        if (!relay.begin(text)) {
            takeMessage(text);
        } else if (!takeDirectly(relay)) {
            takeRelay(relay);
        }
    } catch (const std::bad_alloc&) {
        outOfMemory = true;
    }
    m_targets.clear();
    m_asked.clear();
    if (outOfMemory) {
        const std::lock_guard<std::mutex> guard(lock);
        ++m_counters.outOfMemory;
    }
}

/// \return false, without any effect, if this needs takeRelay()
bool BusState::takeDirectly(Relay& relay)
{
    if (relay.channel != m_directName) {
        return false;
    }
    Endpoint* const endpoint = m_direct.beginReading();
    if (endpoint == nullptr) {
        return false;
    }
    const Clock::time_point arrival = Clock::now();
    std::unique_ptr<TelvaneDataTypeBase> record;
    try {
        record = relay.readPrintedFor(*endpoint);
    } catch (const std::bad_alloc&) {
        endDirect();
        m_received.add();
        throw;
    }
    if (record == nullptr || !m_direct.beginRunning()) {
        endDirect();
        return false;
    }
    m_lastOnly = nullptr;
    m_received.add();
    const Delivery delivery = noteDelivery(*endpoint, relay, record.get(), m_counters.connections, arrival);
    CallbackOutcome outcome;
    try {
        const CallbackFrame frame(*this, endpoint, Run::Direct);
        endpoint->handler->handle(*record, delivery);
    } catch (...) {
        outcome.noteException();
    }
    record.reset();
    endpoint->deliveredDirectly.add();
    if (outcome.threw || !m_direct.end()) {
        Held held(lock);
        m_direct.revoke(m_receiver);
        const EndpointPointer own = m_direct.release();
        finish(held, own, outcome);
        held.unlock();
    }
    return true;
}

/// Ends a turn in which no callback has run.
void BusState::endDirect()
{
    if (!m_direct.end()) {
        EndpointPointer own; // destroyed without the lock
        const std::lock_guard<std::mutex> guard(lock);
        own = m_direct.release();
    }
}

} // namespace Telvane::Detail

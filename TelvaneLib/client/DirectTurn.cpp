// What changes a turn with the lock of the bus held. What the receiver does without it is in the header.

#include "client/BusState.h"

namespace Telvane::Detail
{

void DirectTurn::grant(const EndpointPointer& endpoint)
{
    revoke({});
    m_endpoint = endpoint;
    m_state = State::Idle;
}

void DirectTurn::revoke(std::thread::id receiver)
{
    State seen = m_state;
    for (;;) {
        switch (seen) {
        case State::None:
        case State::Revoked:
            return;
        case State::Idle:
            if (m_state.compare_exchange_weak(seen, State::None)) {
                m_endpoint.reset(); // not the last reference: the channel has one until after the revoke
                return;
            }
            break;
        case State::Reading:
            if (m_state.compare_exchange_weak(seen, State::Revoked)) {
                return;
            }
            break;
        case State::Running:
            if (m_state.compare_exchange_weak(seen, State::Revoked)) {
                // The receiver reads these with the lock, which the caller holds until it has made its change.
                m_endpoint->running = true;
                m_endpoint->runner = receiver;
                return;
            }
            break;
        }
    }
}

EndpointPointer DirectTurn::release()
{
    m_state = State::None;
    return std::move(m_endpoint);
}

} // namespace Telvane::Detail

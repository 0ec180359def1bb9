#pragma once

// Lets the receiver thread run a subscription's callback without BusState::lock, as long as no other thread changes
// anything that concerns the subscription. A thread that does so first revokes the turn, with the lock held. If the
// callback is running then, revoke() notes that in the endpoint, where the thread finds it as if the callback had been
// started with the lock.
//
//   None --grant--> Idle --beginReading--> Reading --beginRunning--> Running
//                   Idle <------------- end -----------------------------+
//                   Idle --revoke--> None
//                   Reading, Running --revoke--> Revoked --release--> None
//
// Why that is correct:
//
// - Every arrow is a change of m_state that exactly one thread makes: a compare-exchange, or a store in a state that
//   nobody else leaves (grant: None with the lock, release: Revoked).
// - m_endpoint is written only with the lock, and only in None. The receiver reads it without the lock only when it has
//   entered Reading, which leads to None only through end() and release() of the receiver itself. So it is never read
//   while it is written, and what it points to exists until then.
// - After revoke(), one of three things is true. None: the receiver is not in the endpoint, and its last callback
//   happened before: its end() wrote the Idle that revoke() read. Revoked from Reading: the receiver's beginRunning()
//   will fail, so no callback starts, and the handler may be destroyed; the receiver uses only the prototype, which
//   lives as long as the endpoint. Revoked from Running: the endpoint says `running`, so the handler stays until the
//   receiver has taken the lock and finished.
// - After a revoke, only the receiver can grant a turn again, with the lock, and only to an endpoint that has not ended
//   in a bus that is not closed. So the caller of revoke() makes its change before any later turn, which sees it.
//
// All operations are sequentially consistent. They cost three compare-exchanges for a message, instead of three locks.

#include <atomic>
#include <memory>
#include <thread>

namespace Telvane::Detail
{

class Endpoint;

class DirectTurn
{
public:
    /// \name With the lock
    /// @{
    /// Only by the receiver, not within a turn.
    void grant(const std::shared_ptr<Endpoint>& endpoint);
    /// \param receiver the receiver thread
    void revoke(std::thread::id receiver);
    /// Ends a turn that was revoked. Only by the receiver.
    /// \return the endpoint, which the caller may have to destroy without the lock
    std::shared_ptr<Endpoint> release();
    /// @}

    /// \name Without the lock, by the receiver
    /// @{
    /// Begins a turn, in which the endpoint exists.
    /// \return the endpoint; null if there is none
    Endpoint* beginReading()
    {
        State expected = State::Idle;
        return m_state.compare_exchange_strong(expected, State::Reading) ? m_endpoint.get() : nullptr;
    }
    /// \return false if the turn has been revoked
    bool beginRunning()
    {
        State expected = State::Reading;
        return m_state.compare_exchange_strong(expected, State::Running);
    }
    /// Ends reading, or running.
    /// \return false if the turn has been revoked: then the receiver has to release it
    bool end()
    {
        State expected = m_state.load(std::memory_order_relaxed);
        return expected != State::Revoked && m_state.compare_exchange_strong(expected, State::Idle);
    }
    /// @}

private:
    enum class State
    {
        None,    ///< there is no endpoint
        Idle,    ///< the next turn may begin
        Reading, ///< the receiver uses the endpoint, but not its handler
        Running, ///< the receiver runs the callback
        Revoked, ///< the receiver still uses the endpoint
    };

    std::atomic<State> m_state{State::None};
    std::shared_ptr<Endpoint> m_endpoint; ///< null in None; changed with the lock
};

} // namespace Telvane::Detail

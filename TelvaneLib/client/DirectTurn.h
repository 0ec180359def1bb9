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
// docs/threads-and-locks.md ("Direct callbacks") says what each state allows, and why this is correct. A message costs
// three compare-exchanges instead of three locks.

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

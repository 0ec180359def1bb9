#pragma once

// The part of a request that EventClient and EventClientSynchronizer share. Both subscribe to the channel of the
// reply before, and give the subscription up after it, each in its own way.

#include <Telvane/EventClient.h>

#include <condition_variable>
#include <mutex>
#include <string>

namespace Telvane
{

/// One request at a time, and the wait for its reply.
class PendingRequest
{
public:
    /// From now on take() copies replies to \p reply.
    void begin(TelvaneDataTypeBase& reply);

    /// Publishes a request on \p requestChannel and waits for the first reply since begin(). The lock is held until
    /// the wait begins: a reply that is quicker has to wait.
    /// \param timeout in seconds; 0 gives up even if there is a reply already
    /// \param[out] result 0, or `ETIMEDOUT`; what Publish() returned if the request was not sent
    /// \return whether the request was sent
    bool ask(EventClient& client, const std::string& requestChannel, unsigned int timeout, int& result);

    /// From now on take() ignores replies. A late one must not be copied into a record that is gone.
    void end();

    /// Called with each reply, on the receiver thread. One for which memory runs out is ignored.
    void take(TelvaneDataTypeBase* reply);

private:
    std::mutex m_lock;
    std::condition_variable m_condition;
    bool m_answered = false;
    TelvaneDataTypeBase* m_target = nullptr;
};

} // namespace Telvane

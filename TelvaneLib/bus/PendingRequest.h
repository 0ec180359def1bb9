#pragma once

// The part of a request that EventClient and EventClientSynchronizer share. Each subscribes and unsubscribes
// in its own way, before and after it.

#include <Telvane/EventClient.h>

#include <condition_variable>
#include <mutex>
#include <string>

namespace Telvane
{

/// A request and the wait for its reply, one at a time.
class PendingRequest
{
public:
    /// Makes take() copy replies to \p reply.
    void begin(TelvaneDataTypeBase& reply);

    /// Publishes a request and waits for the first reply since begin(). Holds the lock until the wait begins,
    /// so that a quick reply waits for it.
    /// \param      client         the client
    /// \param      requestChannel channel of the request
    /// \param      timeout        time-out in seconds; with 0 it times out even if there is a reply
    /// \param[out] result         0 or `ETIMEDOUT`; the result of Publish() if the request was not sent
    /// \return true if the request was sent
    bool ask(EventClient& client, const std::string& requestChannel, unsigned int timeout, int& result);

    /// Makes take() ignore replies: the record for the reply may not exist any more.
    void end();

    /// Takes a reply, on the receiver thread. Ignores it if memory runs out.
    void take(TelvaneDataTypeBase* reply);

private:
    std::mutex m_lock;
    std::condition_variable m_condition;
    bool m_answered = false;
    TelvaneDataTypeBase* m_target = nullptr;
};

} // namespace Telvane

/// \file
/// Requests with a time-out.
#pragma once

#include <Telvane/EventClient.h>
#include <Telvane/detail/Export.h>

#include <memory>
#include <string>

namespace Telvane
{

/// Makes requests over an EventClient, one at a time.
///
/// Several synchronizers may share a client if their channels differ.
class TELVANE_EXPORT EventClientSynchronizer
{
public:
    /// Creates a synchronizer that can be used with any client.
    EventClientSynchronizer();
    virtual ~EventClientSynchronizer();
    EventClientSynchronizer(const EventClientSynchronizer&) = delete;
    EventClientSynchronizer& operator=(const EventClientSynchronizer&) = delete;

    /// Subscribes to \p channel, publishes a RequestType on kRequestPrefix + \p channel, waits for the first
    /// record on \p channel, and unsubscribes. Ends an earlier subscription of \p client to the channel.
    /// \param      client  a connected client; must stay valid during the call
    /// \param      channel name of the channel
    /// \param[out] reply   set to the reply, whose payload is read as this record's class
    /// \param      timeout time to wait for the reply, in seconds; 0 returns without waiting. Where `time_t`
    ///             has 32 bits, the wait ends by 2038-01-19T03:14:07Z.
    /// \return 0, even if the request could not be sent; `+ETIMEDOUT` (positive) without a reply. If the
    ///         unsubscription failed, its result instead. If the subscription failed: `-ENOTCONN`; -1 if the
    ///         server refused; `-ETIMEDOUT` (negative) without a response; `-ENOMEM`
    /// \par Threads One thread at a time, but not a callback or notification of \p client.
    int Request(EventClient& client, const std::string& channel, TelvaneDataTypeBase& reply,
                unsigned int timeout);

    /// Takes the reply. Do not call.
    static void callback(void* client, TelvaneDataTypeBase* record, int sequence, void* user);

private:
    struct TELVANE_LOCAL State;
    std::shared_ptr<State> m_state; ///< shared with a subscription that the server did not end
};

} // namespace Telvane

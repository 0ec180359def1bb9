/// \file
/// Blocking requests with a time-out of the caller's choice.
#pragma once

#include <Telvane/EventClient.h>
#include <Telvane/Export.h>

#include <memory>
#include <string>

namespace Telvane
{

/// Makes one request at a time over an EventClient: subscribes to the channel, publishes an empty request on
/// "req_" + channel, waits for the first record on the channel, and unsubscribes. Several synchronizers may
/// share a client as long as their channels differ. Must not be used on the client's receiver thread.
class TELVANE_EXPORT EventClientSynchronizer
{
public:
    EventClientSynchronizer();
    virtual ~EventClientSynchronizer();
    EventClientSynchronizer(const EventClientSynchronizer&) = delete;
    EventClientSynchronizer& operator=(const EventClientSynchronizer&) = delete;

    /// \param[out] reply   filled with the answer; its class decides what the answer is read into
    /// \param      timeout whole seconds to wait for the answer; 0 gives up without waiting. With a
    ///                `time_t` of 32 bits no wait outlasts 2038-01-19T03:14:07Z.
    /// \return 0; `-ENOTCONN`; -1 when the channel's name was refused; `-ETIMEDOUT` when the server did not
    ///         answer the subscription; `+ETIMEDOUT` (positive) when no reply came in time; a non-zero result
    ///         of the final unsubscription, before all others
    int Request(EventClient& client, const std::string& channel, TelvaneDataTypeBase& reply,
                unsigned int timeout);

    /// Takes the reply; \p user is the synchronizer. Not for callers.
    static void callback(void* client, TelvaneDataTypeBase* record, int sequence, void* user);

private:
    struct TELVANE_LOCAL State;
    std::shared_ptr<State> m_state; ///< shared with a subscription that could not be ended
};

} // namespace Telvane

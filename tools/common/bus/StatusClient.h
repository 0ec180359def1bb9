#pragma once

#include "common/bus/BusConnection.h"
#include "common/bus/StatusPayload.h"

#include <mutex>

namespace TelvaneTool
{

/// Requests the channels and clients of a server. Ignores responses that cannot come from the server: other clients can
/// publish on the same channels.
class StatusClient
{
public:
    explicit StatusClient(BusConnection& bus) : m_bus(bus) {}

    /// Subscribes to the responses, sends requests and waits for the first response. Prints an error on failure.
    /// \param clients request the clients as well
    /// \return an exit code; kSuccess also if the connection is stopping
    int start(bool clients);

    /// Sends a request. Does not wait for the response.
    void request();

    /// \return the contents of the latest response
    std::vector<ChannelStatus> channels();
    std::vector<ClientStatus> clients();

    /// \return the number of responses, for channels and clients together
    std::uint64_t responses();

private:
    template <class Item>
    int subscribe(const char* channel, StatusResponse<Item>& response, std::vector<Item>& items);
    bool complete();

    BusConnection& m_bus;
    bool m_wantsClients = false;
    std::mutex m_lock;
    StatusResponse<ChannelStatus> m_channelResponse;
    StatusResponse<ClientStatus> m_clientResponse;
    std::vector<ChannelStatus> m_channels;
    std::vector<ClientStatus> m_clients;
    std::uint64_t m_channelResponses = 0;
    std::uint64_t m_clientResponses = 0;
};

} // namespace TelvaneTool

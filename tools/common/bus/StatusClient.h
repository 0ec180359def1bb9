#pragma once

#include "common/bus/BusConnection.h"
#include "common/bus/StatusPayload.h"

#include <mutex>

namespace TelvaneTool
{

/// Asks the server for its channels and clients, again and again.
class StatusClient
{
public:
    explicit StatusClient(BusConnection& session) : m_session(session) {}

    /// Subscribes to the answers, asks, and waits for the first one, or complains.
    /// \param clients ask for the clients, too
    /// \return an exit code; kSuccess, too, when the session is stopping
    int start(bool clients);

    /// Asks. Answers come when they come.
    void ask();

    /// \return what the latest answers said
    std::vector<ChannelStatus> channels();
    std::vector<ClientStatus> clients();

    /// \return how many answers have come, of both kinds together
    std::uint64_t answers();

private:
    template <class Item>
    int subscribe(const char* channel, StatusAnswer<Item>& answer);
    bool complete();

    BusConnection& m_session;
    bool m_wantsClients = false;
    std::mutex m_lock;
    StatusAnswer<ChannelStatus> m_channels;
    StatusAnswer<ClientStatus> m_clients;
    std::uint64_t m_channelAnswers = 0;
    std::uint64_t m_clientAnswers = 0;
};

} // namespace TelvaneTool

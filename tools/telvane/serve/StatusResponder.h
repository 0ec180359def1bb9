#pragma once

#include <Telvane/EventClient.h>
#include <Telvane/EventServer.h>

#include <string>

namespace TelvaneTool
{

/// Answers for a server who and what is on its bus: as a client of it, in the same process.
class StatusResponder
{
public:
    explicit StatusResponder(Telvane::EventServer& server) : m_server(server) {}

    /// To be called before the server starts: has it let its own user in, too, for as long as it takes to
    /// connect.
    /// \param limits what others are held to, the service's own connection and channels not counted
    void prepare(const Telvane::EventServerLimits& limits);

    /// Begins to answer, or complains: a bus without it is a bus all the same.
    void start(const std::string& path);

    /// To be called before the server stops.
    void stop() { m_client.Disconnect(); }

private:
    void answerChannels();
    void answerClients();
    void publish(const std::string& channel, const std::vector<std::string>& payloads);

    Telvane::EventServer& m_server;
    Telvane::EventServerLimits m_limits;
    Telvane::EventClient m_client;
};

} // namespace TelvaneTool

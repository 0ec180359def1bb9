#pragma once

#include <Telvane/EventClient.h>
#include <Telvane/EventServer.h>

#include <string>

namespace TelvaneTool
{

/// Responds to requests for the channels and clients of a server, as a client in the server's process.
class StatusResponder
{
public:
    explicit StatusResponder(Telvane::EventServer& server) : m_server(server) {}

    /// Prepares the server's limits. Call this before the server starts: its own user is allowed until start()
    /// returns.
    /// \param limits the limits for other clients, not counting this client and its channels
    void prepare(const Telvane::EventServerLimits& limits);

    /// Starts to respond. A failure is printed and otherwise ignored.
    void start(const std::string& path);

    /// Call this before the server stops.
    void stop() { m_client.Disconnect(); }

private:
    void sendChannels();
    void sendClients();
    void publish(const std::string& channel, const std::vector<std::string>& payloads);

    Telvane::EventServer& m_server;
    Telvane::EventServerLimits m_limits;
    Telvane::EventClient m_client;
};

} // namespace TelvaneTool

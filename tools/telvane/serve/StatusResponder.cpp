#include "serve/StatusResponder.h"

#include "common/bus/DecodedRecord.h"
#include "common/bus/RecordBuilder.h"
#include "common/bus/StatusPayload.h"
#include "common/cli/Messages.h"
#include "common/support/Json.h"
#include "serve/ProgramName.h"

#include <Telvane/RequestType.h>

#include <algorithm>
#include <cerrno>
#include <pwd.h>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

std::string nameOf(uid_t user)
{
    passwd entry = {};
    passwd* found = nullptr;
    char texts[4096];
    return getpwuid_r(user, &entry, texts, sizeof texts, &found) == 0 && found != nullptr ? entry.pw_name
                                                                                          : "";
}

} // namespace

void StatusResponder::prepare(const Telvane::EventServerLimits& limits)
{
    constexpr std::size_t kOwnSubscriptions = 2;
    constexpr std::size_t kOwnChannels = 2; // of requests; those of responses count only when subscribed to
    m_limits = limits;
    if (m_limits.connections != 0) {
        ++m_limits.connections;
    }
    if (m_limits.channels != 0) {
        m_limits.channels += kOwnChannels;
    }
    Telvane::EventServerLimits startLimits = m_limits;
    if (!startLimits.users.empty() || !startLimits.groups.empty()) {
        startLimits.users.push_back(geteuid());
    }
    if (startLimits.subscriptionsPerClient != 0) {
        startLimits.subscriptionsPerClient = std::max(startLimits.subscriptionsPerClient, kOwnSubscriptions);
    }
    m_server.SetLimits(std::move(startLimits));
}

void StatusResponder::start(const std::string& path)
{
    using Telvane::TelvaneDataTypeBase;
    const auto subscribe = [this](const char* channel, void (StatusResponder::*respond)()) {
        // On a machine that is busy with something else, the server may need more than a second for its response.
        constexpr int kMaxAttempts = 10;
        int result = -ETIMEDOUT;
        for (int attempt = 0; attempt < kMaxAttempts && result == -ETIMEDOUT; ++attempt) {
            result = m_client.Subscribe(
                Telvane::kRequestPrefix + std::string(channel),
                [this, respond](void*, TelvaneDataTypeBase*, int, void*) { (this->*respond)(); },
                DecodedRecord(nullptr), nullptr);
        }
        return result;
    };
    // If the server refuses or ends the connection, nothing else ends a send.
    m_client.install_OnConnectionLost([](Telvane::EventClient& client) { client.Disconnect(); });
    if (m_client.Connect(path) != 0 || subscribe(kChannelsStatus, &StatusResponder::sendChannels) != 0 ||
        subscribe(kClientsStatus, &StatusResponder::sendClients) != 0) {
        printError("status requests are disabled: the server refused its own connection");
        m_client.Disconnect();
    }
    m_server.SetLimits(m_limits);
}

void StatusResponder::sendChannels()
{
    publish(kChannelsStatus, encodeStatus(m_server.Channels()));
}

void StatusResponder::sendClients()
{
    std::vector<ClientStatus> clients;
    for (Telvane::EventServerClientStatus& status : m_server.Clients()) {
        ClientStatus& client = clients.emplace_back();
        static_cast<Telvane::EventServerClientStatus&>(client) = std::move(status);
        client.program = programOf(client.process);
        client.userName = nameOf(client.user);
    }
    publish(kClientsStatus, encodeStatus(clients));
}

void StatusResponder::publish(const std::string& channel, const std::vector<std::string>& payloads)
{
    std::string error;
    for (const std::string& payload : payloads) {
        RawRecord record(parseJson(payload, error));
        m_client.Publish(channel, record);
    }
}

} // namespace TelvaneTool

#include "serve/MissReport.h"

#include "common/support/HumanReadable.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

using Counts = std::map<std::string, std::uint64_t>;

Counts countsOf(const Telvane::EventServerClientStatus& status)
{
    Counts counts;
    for (const Telvane::EventServerSubscriptionStatus& subscription : status.subscriptions) {
        if (subscription.missed != 0) {
            counts[subscription.channel] = subscription.missed;
        }
    }
    return counts;
}

/// \return "12 messages (LogData 5, WeldTraceData 7)"
std::string difference(const Counts& now, const Counts& before)
{
    std::uint64_t total = 0;
    std::string channels;
    for (const auto& [channel, count] : now) {
        const auto found = before.find(channel);
        const std::uint64_t old = found != before.end() ? found->second : 0;
        if (count > old) {
            total += count - old;
            channels += (channels.empty() ? "" : ", ") + channel + " " + std::to_string(count - old);
        }
    }
    return printNumber(total, "message") + " (" + channels + ")";
}

} // namespace

std::vector<std::string> MissReport::update(const std::vector<Telvane::EventServerClientStatus>& clients,
                                            Nanoseconds now)
{
    std::vector<std::string> lines;
    std::map<int, Client> before;
    before.swap(m_clients);
    for (const Telvane::EventServerClientStatus& status : clients) {
        Client client;
        const auto found = before.find(status.descriptor);
        if (found != before.end() && found->second.process == status.process) {
            client = std::move(found->second);
            before.erase(found);
        }
        Counts missed = countsOf(status);
        const bool more = std::any_of(missed.begin(), missed.end(), [&client](const auto& entry) {
            const auto old = client.missed.find(entry.first);
            return old == client.missed.end() || entry.second > old->second;
        });
        if (more && client.begin < 0) {
            const std::string program = m_programOf(status.process);
            client.process = status.process;
            client.name = "client " + std::to_string(status.descriptor) + " (" +
                          (program.empty() ? "" : program + ", ") + "process " +
                          std::to_string(status.process) + ")";
            client.begin = now;
            client.lastReport = now;
            client.atBegin = client.missed;
            client.atReport = missed;
            lines.push_back(client.name + " is too slow and has missed " +
                            difference(missed, client.atBegin));
        }
        client.process = status.process;
        client.missed = std::move(missed);
        client.lastMiss = more ? now : client.lastMiss;
        if (client.begin >= 0 && now - client.lastMiss >= kPeriod) {
            lines.push_back(end(client, client.lastMiss, " misses no more messages"));
        } else if (client.begin >= 0 && now - client.lastReport >= kPeriod) {
            lines.push_back(client.name + " has missed " + difference(client.missed, client.atReport) +
                            " more");
            client.lastReport = now;
            client.atReport = client.missed;
        }
        m_clients[status.descriptor] = std::move(client);
    }
    for (auto& [descriptor, client] : before) {
        if (client.begin >= 0) {
            lines.push_back(end(client, now, " has disconnected"));
        }
    }
    return lines;
}

std::vector<std::string> MissReport::finish(Nanoseconds now)
{
    std::vector<std::string> lines;
    for (auto& [descriptor, client] : m_clients) {
        if (client.begin >= 0) {
            lines.push_back(end(client, now, " still missed messages when the server stopped"));
        }
    }
    return lines;
}

std::string MissReport::end(Client& client, Nanoseconds now, const char* what) const
{
    std::string line = client.name + what + "; it missed " + difference(client.missed, client.atBegin) +
                       " in " + printSpan(now - client.begin);
    client.begin = -1;
    return line;
}

} // namespace TelvaneTool

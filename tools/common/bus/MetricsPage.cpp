// The reason for a missed relay has a metric of its own: a counter whose labels change starts again at 0.

#include "common/bus/MetricsPage.h"

#include <cstring>
#include <set>

namespace TelvaneTool
{

namespace
{

using Telvane::EventServerChannelStatus;
using Telvane::EventServerClientStatus;
using Telvane::EventServerStatistics;
using Telvane::EventServerSubscriptionStatus;
using Labels = OpenMetrics::Labels;

void writeServer(OpenMetrics& page, const EventServerStatistics& statistics, std::size_t clients,
                 std::size_t channels)
{
    std::set<std::string_view> families;
    for (const auto& first : Telvane::kServerCounters) {
        if (!families.insert(first.metric).second) {
            continue;
        }
        page.counter(first.metric, first.reason == nullptr ? first.meaning : "Packets dropped, by reason.");
        for (const auto& counter : Telvane::kServerCounters) {
            if (std::string_view(counter.metric) == first.metric) {
                page.sample(statistics.*counter.member,
                            counter.reason == nullptr ? Labels() : Labels().add("reason", counter.reason));
            }
        }
    }
    page.gauge("clients", "Clients connected.");
    page.sample(clients);
    page.gauge("channels", "Channels that have ever been subscribed to.");
    page.sample(channels);
}

void writeChannels(OpenMetrics& page, const std::vector<EventServerChannelStatus>& channels)
{
    const auto all = [&](auto member) {
        for (const EventServerChannelStatus& channel : channels) {
            page.sample(channel.*member, Labels().add("channel", channel.name));
        }
    };
    page.gauge("channel_subscribers", "Subscribers of a channel.");
    all(&EventServerChannelStatus::subscribers);
    for (const auto& counter : Telvane::kChannelCounters) {
        page.counter(counter.metric, counter.meaning);
        all(counter.member);
    }
}

Labels labelsOf(const EventServerClientStatus& client)
{
    return Labels()
        .number("client", client.descriptor)
        .number("process", client.process)
        .number("user", client.user);
}

Labels labelsOf(const EventServerClientStatus& client, const EventServerSubscriptionStatus& subscription)
{
    return labelsOf(client).add("channel", subscription.channel);
}

void writeClients(OpenMetrics& page, const std::vector<EventServerClientStatus>& clients)
{
    page.gauge("client_unread_bytes",
               "Data sent to a client and not yet read, including the kernel's overhead.");
    for (const EventServerClientStatus& client : clients) {
        page.sample(client.bytesBehind, labelsOf(client));
    }
    for (const auto& counter : Telvane::kSubscriptionCounters) {
        page.counter(counter.metric, counter.meaning);
        for (const EventServerClientStatus& client : clients) {
            for (const EventServerSubscriptionStatus& subscription : client.subscriptions) {
                page.sample(subscription.*counter.member, labelsOf(client, subscription));
            }
        }
    }
    page.info("subscription_last_error", "Error of the last relay that a client missed on a channel.");
    for (const EventServerClientStatus& client : clients) {
        for (const EventServerSubscriptionStatus& subscription : client.subscriptions) {
            if (subscription.lastError != 0) {
                page.sample(1, labelsOf(client, subscription)
                                   .add("error", relayErrorName(subscription.lastError))
                                   .add("text", subscription.lastError < 0
                                                    ? std::strerror(-subscription.lastError)
                                                    : "only a part was sent"));
            }
        }
    }
}

} // namespace

std::string relayErrorName(int result)
{
    if (result >= 0) {
        return "short";
    }
    const char* const name = strerrorname_np(-result);
    return name != nullptr ? name : std::to_string(-result);
}

void writeBusMetrics(OpenMetrics& page, const std::vector<EventServerChannelStatus>& channels,
                     const std::vector<EventServerClientStatus>& clients)
{
    writeChannels(page, channels);
    writeClients(page, clients);
}

std::string metricsPage(const EventServerStatistics& statistics,
                        const std::vector<EventServerChannelStatus>& channels,
                        const std::vector<EventServerClientStatus>& clients)
{
    OpenMetrics page;
    writeServer(page, statistics, clients.size(), channels.size());
    writeBusMetrics(page, channels, clients);
    return page.end();
}

std::string metricsPage(const Telvane::EventServer& server)
{
    return metricsPage(server.Statistics(), server.Channels(), server.Clients());
}

} // namespace TelvaneTool

// OpenMetrics text: families of samples, each with a type and a description. A family must be complete before the next
// one begins. The reason for a missed relay has a metric of its own: a counter whose labels change starts again at 0.

#include "serve/MetricsPage.h"

#include <cstring>

namespace TelvaneTool
{

namespace
{

using Telvane::EventServerChannelStatus;
using Telvane::EventServerClientStatus;
using Telvane::EventServerStatistics;
using Telvane::EventServerSubscriptionStatus;

/// The labels of a sample.
class Labels
{
public:
    Labels() = default;
    Labels& add(const char* name, std::string_view value)
    {
        m_text.append(m_text.empty() ? "" : ",").append(name).append("=\"");
        m_text.append(escapedLabel(value)).append("\"");
        return *this;
    }
    template <class Number>
    Labels& number(const char* name, Number value)
    {
        return add(name, std::to_string(value));
    }
    std::string text() const { return m_text.empty() ? m_text : "{" + m_text + "}"; }

private:
    std::string m_text;
};

/// Writes families of samples.
class Page
{
public:
    void counter(const char* name, const char* help, const char* unit = nullptr)
    {
        begin(name, "counter", "_total", help, unit);
    }
    void gauge(const char* name, const char* help, const char* unit = nullptr)
    {
        begin(name, "gauge", "", help, unit);
    }
    void info(const char* name, const char* help) { begin(name, "info", "_info", help, nullptr); }

    void sample(std::uint64_t value, const Labels& labels = {})
    {
        m_text += m_sample + labels.text() + " " + std::to_string(value) + "\n";
    }

    std::string end() { return std::move(m_text.append("# EOF")); }

private:
    void begin(const char* name, const char* kind, const char* suffix, const char* help, const char* unit)
    {
        const std::string family = std::string("telvane_") + name;
        m_text += "# TYPE " + family + " " + kind + "\n";
        if (unit != nullptr) {
            m_text += "# UNIT " + family + " " + unit + "\n";
        }
        m_text += "# HELP " + family + " " + help + "\n";
        m_sample = family + suffix;
    }

    std::string m_text;
    std::string m_sample;
};

void writeServer(Page& page, const EventServerStatistics& statistics, std::size_t clients,
                 std::size_t channels)
{
    page.counter("packets_received", "Packets received from clients.");
    page.sample(statistics.received);
    page.counter("packets_dispatched", "Packets handed to a handler.");
    page.sample(statistics.dispatched);
    page.counter("packets_dropped", "Packets dropped, by reason.");
    page.sample(statistics.tooLarge, Labels().add("reason", "too_large"));
    page.sample(statistics.notJson, Labels().add("reason", "not_json"));
    page.sample(statistics.withoutPayload, Labels().add("reason", "no_payload"));
    page.sample(statistics.unknownChannel, Labels().add("reason", "no_subscriber_ever"));
    page.sample(statistics.outOfMemory, Labels().add("reason", "out_of_memory"));
    page.counter("relays_sent", "Relays sent in full, one for each subscriber.");
    page.sample(statistics.relayed);
    page.counter("relays_missed", "Relays that subscribers missed.");
    page.sample(statistics.relaysFailed);
    page.counter("relays_cut", "Publications whose relay exceeds the message size limit.");
    page.sample(statistics.relaysTooLarge);
    page.counter("connections_refused", "Connections refused by a limit.");
    page.sample(statistics.connectionsRefused);
    page.counter("subscriptions_refused", "Subscriptions refused by a limit.");
    page.sample(statistics.subscriptionsRefused);
    page.gauge("clients", "Clients connected.");
    page.sample(clients);
    page.gauge("channels", "Channels that have ever been subscribed to.");
    page.sample(channels);
}

void writeChannels(Page& page, const std::vector<EventServerChannelStatus>& channels)
{
    const auto all = [&](auto member) {
        for (const EventServerChannelStatus& channel : channels) {
            page.sample(channel.*member, Labels().add("channel", channel.name));
        }
    };
    page.gauge("channel_subscribers", "Subscribers of a channel.");
    all(&EventServerChannelStatus::subscribers);
    page.counter("channel_publications", "Publications on a channel, including those without subscribers.");
    all(&EventServerChannelStatus::publications);
    page.counter("channel_relay_bytes", "Size of the relays of those publications, each counted once.",
                 "bytes");
    all(&EventServerChannelStatus::bytes);
    page.counter("channel_relays_missed",
                 "Relays that subscribers of a channel missed, including disconnected ones.");
    all(&EventServerChannelStatus::missed);
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

void writeClients(Page& page, const std::vector<EventServerClientStatus>& clients)
{
    page.gauge("client_unread_bytes",
               "Data sent to a client and not yet read, including the kernel's overhead.", "bytes");
    for (const EventServerClientStatus& client : clients) {
        page.sample(client.bytesBehind, labelsOf(client));
    }
    const auto all = [&](std::uint64_t EventServerSubscriptionStatus::*member) {
        for (const EventServerClientStatus& client : clients) {
            for (const EventServerSubscriptionStatus& subscription : client.subscriptions) {
                page.sample(subscription.*member, labelsOf(client, subscription));
            }
        }
    };
    page.counter("subscription_relays_sent", "Relays sent in full to a client on a channel.");
    all(&EventServerSubscriptionStatus::relayed);
    page.counter("subscription_relays_missed", "Relays that a client missed on a channel.");
    all(&EventServerSubscriptionStatus::missed);
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

std::string escapedLabel(std::string_view value)
{
    std::string text;
    for (const char c : value) {
        if (c == '\n') {
            text += "\\n";
        } else if (c == '"' || c == '\\') {
            text.append(1, '\\').append(1, c);
        } else {
            text += c;
        }
    }
    return text;
}

std::string relayErrorName(int result)
{
    if (result >= 0) {
        return "short";
    }
    const char* const name = strerrorname_np(-result);
    return name != nullptr ? name : std::to_string(-result);
}

std::string metricsPage(const EventServerStatistics& statistics,
                        const std::vector<EventServerChannelStatus>& channels,
                        const std::vector<EventServerClientStatus>& clients)
{
    Page page;
    writeServer(page, statistics, clients.size(), channels.size());
    writeChannels(page, channels);
    writeClients(page, clients);
    return page.end();
}

std::string metricsPage(const Telvane::EventServer& server)
{
    return metricsPage(server.Statistics(), server.Channels(), server.Clients());
}

} // namespace TelvaneTool

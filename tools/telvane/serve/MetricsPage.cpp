// OpenMetrics text: families of samples, each with a type and a description. A family must be complete before the next
// one begins. The reason for a missed relay has a metric of its own: a counter whose labels change starts again at 0.

#include "serve/MetricsPage.h"

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
    void counter(const char* name, const char* help) { begin(name, "counter", "_total", help); }
    void gauge(const char* name, const char* help) { begin(name, "gauge", "", help); }
    void info(const char* name, const char* help) { begin(name, "info", "_info", help); }

    void sample(std::uint64_t value, const Labels& labels = {})
    {
        m_text += m_sample + labels.text() + " " + std::to_string(value) + "\n";
    }

    std::string end() { return std::move(m_text.append("# EOF")); }

private:
    void begin(const char* name, const char* kind, const char* suffix, const char* help)
    {
        constexpr std::string_view kBytes = "_bytes"; // the only unit; the family's name ends with it
        const std::string family = std::string("telvane_") + name;
        m_text += "# TYPE " + family + " " + kind + "\n";
        if (family.size() > kBytes.size() && family.substr(family.size() - kBytes.size()) == kBytes) {
            m_text += "# UNIT " + family + " bytes\n";
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

void writeChannels(Page& page, const std::vector<EventServerChannelStatus>& channels)
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

void writeClients(Page& page, const std::vector<EventServerClientStatus>& clients)
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

#include "telvane-mqtt/Metrics.h"

#include "common/support/OpenMetrics.h"

namespace TelvaneTool::Mqtt
{

std::string metricsPage(const MetricsSources& sources)
{
    OpenMetrics page;
    const auto gauge = [&page](const char* name, const char* help, std::uint64_t value) {
        page.gauge(name, help);
        page.sample(value);
    };
    const auto counter = [&page](const char* name, const char* help, std::uint64_t value) {
        page.counter(name, help);
        page.sample(value);
    };
    gauge("mqtt_connected", "Whether the bridge is connected to the broker.", sources.link.connected ? 1 : 0);
    counter("mqtt_connections", "Connections to the broker.", sources.link.connections);
    counter("mqtt_connection_failures", "Failed attempts and lost connections.", sources.link.failures);
    counter("mqtt_state_corrections", "Times that the state on the broker was corrected.",
            sources.link.corrections);
    gauge("mqtt_queued_messages", "Messages that wait for the broker.", sources.queue.waiting());
    gauge("mqtt_queued_bytes", "What those in memory count for in the bounds of the queue.",
          sources.queue.waitingBytes());
    if (sources.spool != nullptr) {
        gauge("mqtt_spool_messages", "Messages on disk that wait for the broker.", sources.spool->waiting());
        gauge("mqtt_spool_bytes", "Bytes of the spool in use.", sources.spool->bytes());
        counter("mqtt_spool_failures", "Times that the spool could not be written or was damaged.",
                sources.spool->failures());
    }
    counter("mqtt_published", "Records from the broker that were published on the bus.",
            sources.inbound.published);
    counter("mqtt_answered", "Requests from the broker that were answered.", sources.inbound.answered);
    counter("mqtt_refused", "Records and requests from the broker that were refused.",
            sources.inbound.refused);
    counter("mqtt_repeated", "Messages that consumers asked for again.", sources.inbound.repeated);
    counter("mqtt_ignored_retained", "Retained records and requests, which are ignored.",
            sources.link.ignoredRetained);

    std::map<std::string, ChannelCounts> channels = sources.queue.counts();
    channels.erase(""); // answers and errors
    const auto perChannel = [&](const char* name, const char* help, std::uint64_t ChannelCounts::*value) {
        page.counter(name, help);
        for (const auto& [channel, counts] : channels) {
            page.sample(counts.*value, OpenMetrics::Labels().add("channel", channel));
        }
    };
    perChannel("mqtt_accepted", "Messages that the queue accepted.", &ChannelCounts::accepted);
    perChannel("mqtt_sent", "Messages that the broker has, with QoS 0 as far as known.",
               &ChannelCounts::sent);
    perChannel("mqtt_sent_bytes", "Bytes of their topics and payloads.", &ChannelCounts::bytes);
    perChannel("mqtt_delay_microseconds", "Time from acceptance to sending of all sent messages.",
               &ChannelCounts::delay);
    page.counter("mqtt_dropped", "Messages that were dropped.");
    for (const auto& [channel, counts] : channels) {
        for (int reason = 0; reason < kDropReasons; ++reason) {
            if (counts.dropped[reason] != 0) {
                page.sample(counts.dropped[reason],
                            OpenMetrics::Labels()
                                .add("channel", channel)
                                .add("reason", nameOf(static_cast<DropReason>(reason))));
            }
        }
    }
    return page.end() + "\n";
}

} // namespace TelvaneTool::Mqtt

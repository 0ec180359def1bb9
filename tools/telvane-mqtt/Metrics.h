#pragma once

#include "telvane-mqtt/InboundHandler.h"
#include "telvane-mqtt/broker/BrokerLink.h"
#include "telvane-mqtt/queue/OutgoingQueue.h"

#include <string>

namespace TelvaneTool::Mqtt
{

/// What the metrics are made from.
struct MetricsSources
{
    const OutgoingQueue& queue;
    const LinkCounts& link;
    const InboundCounts& inbound;
    const Spool* spool; ///< null for none
};

/// \return the counters as OpenMetrics text
std::string metricsPage(const MetricsSources& sources);

} // namespace TelvaneTool::Mqtt

#pragma once

#include "BrokerLink.h"
#include "InboundHandler.h"
#include "OutgoingQueue.h"

#include <Telvane/DynamicFileInterface.h>

#include <atomic>
#include <string>

namespace TelvaneTool::Mqtt
{

/// What the metrics are made from.
struct MetricsSources
{
    const OutgoingQueue& queue;
    const LinkCounts& link;
    const InboundCounts& inbound;
};

/// \return the counters as OpenMetrics text
std::string metricsPage(const MetricsSources& sources);

/// A named pipe that serves the metrics. The destructor removes it.
class MetricsPipe
{
public:
    /// \param sources must outlive the pipe
    MetricsPipe(const std::string& path, const MetricsSources& sources);
    MetricsPipe(const MetricsPipe&) = delete;
    MetricsPipe& operator=(const MetricsPipe&) = delete;
    ~MetricsPipe();

    /// Creates the pipe. Prints an error on failure.
    /// \return an exit code
    int open();

private:
    void writePage(int fd) const;

    const std::string m_path;
    const MetricsSources m_sources;
    std::atomic<bool> m_closing{false};
    Telvane::DynamicFileInterface m_pipe;
    bool m_open = false;
};

} // namespace TelvaneTool::Mqtt

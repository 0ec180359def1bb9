#pragma once

#include "common/support/OpenMetrics.h"

#include <Telvane/EventServer.h>

#include <string>
#include <vector>

namespace TelvaneTool
{

/// \return the status of a server as OpenMetrics text, without the newline at its end
/// @{
std::string metricsPage(const Telvane::EventServer& server);
std::string metricsPage(const Telvane::EventServerStatistics& statistics,
                        const std::vector<Telvane::EventServerChannelStatus>& channels,
                        const std::vector<Telvane::EventServerClientStatus>& clients);
/// @}

/// Adds the channels and clients of a server.
void writeBusMetrics(OpenMetrics& page, const std::vector<Telvane::EventServerChannelStatus>& channels,
                     const std::vector<Telvane::EventServerClientStatus>& clients);

/// \return the name of a relay's error, such as "EAGAIN"; "short" if only a part was sent
std::string relayErrorName(int result);

} // namespace TelvaneTool

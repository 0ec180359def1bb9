#pragma once

#include <Telvane/EventServer.h>

#include <string>
#include <string_view>
#include <vector>

namespace TelvaneTool
{

/// \return what a server tells of itself as OpenMetrics text, without the newline behind its last line
/// @{
std::string metricsPage(const Telvane::EventServer& server);
std::string metricsPage(const Telvane::EventServerStatistics& statistics,
                        const std::vector<Telvane::EventServerChannelStatus>& channels,
                        const std::vector<Telvane::EventServerClientStatus>& clients);
/// @}

/// \return a label's value as it stands between quotes
std::string escapedLabel(std::string_view value);

/// \return the name of an error that a relay ended with: "EAGAIN", or "short" for one that was cut
std::string relayErrorName(int result);

} // namespace TelvaneTool

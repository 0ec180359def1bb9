#pragma once

#include "telvane-mqtt/settings/Settings.h"

namespace TelvaneTool::Mqtt
{

/// Runs the bridge until a signal arrives.
/// \return an exit code
int runBridge(const BridgeSettings& settings);

/// Prints what would be published, without a broker, until a signal arrives.
/// \return an exit code
int runDry(const BridgeSettings& settings);

} // namespace TelvaneTool::Mqtt

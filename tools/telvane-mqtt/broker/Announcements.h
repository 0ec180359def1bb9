#pragma once

#include "telvane-mqtt/broker/MqttClient.h"
#include "telvane-mqtt/channels/Payload.h"
#include "telvane-mqtt/channels/Topics.h"

#include <string>
#include <vector>

namespace TelvaneTool::Mqtt
{

/// \return the retained state of a module; the will and the birth of a session differ only in "online", so that a late
///         will is recognized by its session
Publication stateMessage(const BridgeSettings& settings, const Session& session, bool online);

/// \return whether a payload on the own state topic must be corrected: it is not what this session says
bool isForeignState(const std::string& payload, const Session& session);

/// \return the retained schemas of the classes that cross the bridge, one message for each class
std::vector<Publication> schemaMessages(const BridgeSettings& settings);

} // namespace TelvaneTool::Mqtt

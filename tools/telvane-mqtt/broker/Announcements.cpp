// A will can arrive long after its connection, when the module is online again. So the state carries the session's
// number, and the bridge reads its own state topic and corrects what is not its own.

#include "telvane-mqtt/broker/Announcements.h"

#include "catalogue/RecordSchema.h"

#include <set>

namespace TelvaneTool::Mqtt
{

Publication stateMessage(const BridgeSettings& settings, const Session& session, bool online)
{
    const JsonTree state(cJSON_CreateObject());
    cJSON_AddBoolToObject(state.get(), "online", online ? 1 : 0);
    addNumber(state.get(), "session", session.number);
    addText(state.get(), "time", session.started);
    addText(state.get(), "version", TELVANE_VERSION);
    if (online) {
        cJSON* const channels = cJSON_AddObjectToObject(state.get(), "channels");
        for (const auto& [channel, rule] : settings.rules.out()) {
            addText(channels, channel.c_str(), rule.recordClass != nullptr ? rule.recordClass->name : "");
        }
    }
    Publication message;
    message.topic = Topics(settings.prefix, settings.module).state();
    message.payload = printJson(state.get());
    message.qos = 1;
    message.retain = true;
    return message;
}

bool isForeignState(const std::string& payload, const Session& session)
{
    std::string error;
    const JsonTree state = parseJson(payload, error);
    const cJSON* const number = cJSON_GetObjectItemCaseSensitive(state.get(), "session");
    return cJSON_IsNumber(number) == 0 || number->valuedouble != static_cast<double>(session.number) ||
           cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(state.get(), "online")) == 0;
}

std::vector<Publication> schemaMessages(const BridgeSettings& settings)
{
    std::set<const Telvane::RecordClass*> classes;
    for (const auto& [channel, rule] : settings.rules.out()) {
        classes.insert(rule.recordClass);
    }
    for (const auto* const rules : {&settings.rules.in(), &settings.rules.requests()}) {
        for (const auto& [channel, rule] : *rules) {
            classes.insert(rule.recordClass);
        }
    }
    classes.erase(nullptr);
    const Topics topics(settings.prefix, settings.module);
    std::vector<Publication> messages;
    for (const Telvane::RecordClass* const recordClass : classes) {
        const JsonTree schema = recordSchema(*recordClass);
        Publication& message = messages.emplace_back();
        message.topic = topics.schema(recordClass->name);
        message.payload = printJson(schema.get());
        message.qos = 1;
        message.retain = true;
    }
    return messages;
}

} // namespace TelvaneTool::Mqtt

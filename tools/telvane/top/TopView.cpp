// Names and numbers are never shortened; the last column gets the rest of the line.

#include "top/TopView.h"

#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Table.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr const char* kBold = "\x1b[1m";
constexpr const char* kInverse = "\x1b[7m";
constexpr const char* kRed = "\x1b[31m";
constexpr const char* kGrey = "\x1b[90m";

Table::Layout layoutOf(const TopViewSettings& settings)
{
    return {0, settings.width, settings.colour ? kInverse : nullptr};
}

Table::Cell missedCell(std::uint64_t missed)
{
    return {std::to_string(missed), missed != 0 ? kRed : nullptr};
}

std::string channelTable(const TopModel& model, const TopViewSettings& settings)
{
    Table table({{"CHANNEL"},
                 {"CLASS"},
                 {"SUBS", true},
                 {"RATE/S", true},
                 {"BYTES/S", true},
                 {"RECORDS", true},
                 {"MISSED", true},
                 {"SEQ", true},
                 {"LAST VALUE"}});
    for (const TopModel::ChannelRow& row : model.channels(settings.order)) {
        const bool idle = row.rate <= 0.0;
        const std::string recordClass = row.recordClass.empty()              ? "-"
                                        : row.recordClass == row.status.name ? "same"
                                                                             : row.recordClass;
        table.add({{row.status.name, idle ? nullptr : kBold},
                   recordClass,
                   std::to_string(row.status.subscribers),
                   model.hasRates() ? printCount(row.rate) : "-",
                   model.hasRates() ? printBytes(row.bytesPerSecond) : "-",
                   std::to_string(row.status.publications),
                   missedCell(row.status.missed),
                   row.status.lastSequence >= 0 ? std::to_string(row.status.lastSequence) : "-",
                   {row.value, kGrey}});
    }
    return table.print(layoutOf(settings));
}

std::string clientTable(const TopModel& model, const TopViewSettings& settings)
{
    Table table({{"CLIENT", true},
                 {"PID", true},
                 {"USER"},
                 {"PROGRAM"},
                 {"BEHIND", true},
                 {"RELAYED", true},
                 {"MISSED", true},
                 {"SUBSCRIPTIONS"}});
    for (const TopModel::ClientRow& row : model.clients()) {
        std::string channels;
        for (const Telvane::EventServerSubscriptionStatus& subscription : row.status.subscriptions) {
            channels += (channels.empty() ? "" : " ") + subscription.channel;
        }
        table.add({std::to_string(row.status.descriptor), std::to_string(row.status.process),
                   row.status.userName.empty() ? std::to_string(row.status.user) : row.status.userName,
                   row.status.program, printBytes(static_cast<double>(row.status.bytesBehind)),
                   std::to_string(row.relayed), missedCell(row.missed), channels.empty() ? "-" : channels});
    }
    return table.print(layoutOf(settings));
}

} // namespace

std::string printTop(const TopModel& model, const TopViewSettings& settings, Nanoseconds moment)
{
    const auto channels = model.channels(settings.order);
    std::string head = settings.path + "  " + printMoment(moment).substr(11, 8) + " UTC  " +
                       std::to_string(channels.size()) + " channels, " +
                       std::to_string(model.clients().size()) + " clients";
    if (model.hasRates()) {
        head += "  " + printCount(model.rate()) + " records/s, " + printBytes(model.bytesPerSecond()) + "/s";
    }
    head = cut(head, settings.width);
    return (settings.colour ? kBold + head + kPlainStyle : head) + "\n\n" + channelTable(model, settings) +
           "\n" + clientTable(model, settings);
}

std::string printTopJson(const TopModel& model, const TopViewSettings& settings, Nanoseconds moment)
{
    const JsonTree tree(cJSON_CreateObject());
    addText(tree.get(), "time", printMoment(moment));
    cJSON* const channels = cJSON_AddArrayToObject(tree.get(), "channels");
    for (const TopModel::ChannelRow& row : model.channels(settings.order)) {
        cJSON* const item = cJSON_CreateObject();
        cJSON_AddItemToArray(channels, item);
        addText(item, "channel", row.status.name);
        addText(item, "class", row.recordClass);
        addNumber(item, "subscribers", row.status.subscribers);
        addNumber(item, "rate", row.rate);
        addNumber(item, "bytesPerSecond", row.bytesPerSecond);
        addNumber(item, "records", row.status.publications);
        addNumber(item, "missed", row.status.missed);
        addNumber(item, "lastSequence", row.status.lastSequence);
        std::string error;
        if (JsonTree value = parseJson(row.value, error); value != nullptr) {
            cJSON_AddItemToObject(item, "value", value.release());
        }
    }
    cJSON* const clients = cJSON_AddArrayToObject(tree.get(), "clients");
    for (const TopModel::ClientRow& row : model.clients()) {
        cJSON* const item = cJSON_CreateObject();
        cJSON_AddItemToArray(clients, item);
        addNumber(item, "client", row.status.descriptor);
        addNumber(item, "pid", row.status.process);
        addNumber(item, "uid", row.status.user);
        addText(item, "user", row.status.userName);
        addText(item, "program", row.status.program);
        addNumber(item, "bytesBehind", row.status.bytesBehind);
        addNumber(item, "relayed", row.relayed);
        addNumber(item, "missed", row.missed);
        cJSON* const subscriptions = cJSON_AddArrayToObject(item, "subscriptions");
        for (const Telvane::EventServerSubscriptionStatus& subscription : row.status.subscriptions) {
            cJSON_AddItemToArray(subscriptions, cJSON_CreateString(subscription.channel.c_str()));
        }
    }
    return printJson(tree.get()) + "\n";
}

} // namespace TelvaneTool

// Names and numbers are never shortened; the last column gets the rest of the line.

#include "top/TopView.h"

#include "common/support/ChannelPattern.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Table.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

Table::Layout layoutOf(const TopViewSettings& settings)
{
    return {0, settings.width, settings.colour ? kInverse : nullptr};
}

Table::Cell missedCell(std::uint64_t missed)
{
    return {std::to_string(missed), missed != 0 ? kRed : nullptr};
}

std::string missRate(const TopModel& model, double missedPerSecond)
{
    return model.hasRates() ? printCount(missedPerSecond) : "-";
}

bool matchesFilter(const std::string& filter, const std::string& channel)
{
    return filter.empty() ||
           (isPattern(filter) ? matchesPattern(filter, channel) : channel.find(filter) != std::string::npos);
}

std::vector<TopModel::ChannelRow> channelsOf(const TopModel& model, const TopViewSettings& settings)
{
    std::vector<TopModel::ChannelRow> rows = model.channels(settings.order);
    rows.erase(std::remove_if(rows.begin(), rows.end(),
                              [&settings](const TopModel::ChannelRow& row) {
                                  return !matchesFilter(settings.filter, row.status.name);
                              }),
               rows.end());
    return rows;
}

std::vector<TopModel::ClientRow> clientsOf(const TopModel& model, const TopViewSettings& settings)
{
    std::vector<TopModel::ClientRow> rows = model.clients();
    const auto isShown = [&settings](const TopModel::ClientRow& row) {
        return settings.filter.empty() ||
               std::any_of(row.status.subscriptions.begin(), row.status.subscriptions.end(),
                           [&settings](const Telvane::EventServerSubscriptionStatus& subscription) {
                               return matchesFilter(settings.filter, subscription.channel);
                           });
    };
    rows.erase(std::remove_if(rows.begin(), rows.end(),
                              [&isShown](const TopModel::ClientRow& row) { return !isShown(row); }),
               rows.end());
    return rows;
}

TopRows::Range rangeOf(std::size_t offset, std::size_t shown, std::size_t total)
{
    const std::size_t begin = std::min(offset, total - shown);
    return {begin, begin + shown, total};
}

/// Both tables stay visible: the clients get at least a third of the page if they need it.
TopRows layOut(const TopViewSettings& settings, std::size_t channels, std::size_t clients)
{
    // The title, two headings, two empty lines, and the line of keys.
    const std::size_t others = settings.keys ? 6 : 5;
    const std::size_t available = settings.height > others ? settings.height - others : 0;
    const std::size_t left = available - std::min(available, channels);
    const std::size_t clientsShown = std::min(clients, std::max((available + 2) / 3, left));
    const std::size_t channelsShown = std::min(channels, available - clientsShown);
    return {rangeOf(settings.channelOffset, channelsShown, channels),
            rangeOf(settings.clientOffset, clientsShown, clients)};
}

const char* nameOf(TopModel::Order order)
{
    switch (order) {
    case TopModel::Order::Name:
        return "name";
    case TopModel::Order::Rate:
        return "rate";
    case TopModel::Order::Bytes:
        return "bytes";
    case TopModel::Order::Missed:
        break;
    }
    return "missed";
}

/// \return " channels 1-10/40", with a mark if these rows scroll
std::string describe(const char* what, const TopRows::Range& rows, bool scrolls)
{
    return std::string(scrolls ? " >" : " ") + what + " " +
           std::to_string(rows.end != rows.begin ? rows.begin + 1 : rows.begin) + "-" +
           std::to_string(rows.end) + "/" + std::to_string(rows.total);
}

std::string keyLine(const TopViewSettings& settings, const TopRows& rows)
{
    if (settings.editsFilter) {
        return "filter: " + settings.filter + "_  (Enter accepts, Esc shows all)";
    }
    return std::string(settings.paused ? "PAUSED  " : "") + "q quit  s sort:" + nameOf(settings.order) +
           "  / filter" + (settings.filter.empty() ? "" : ":" + settings.filter) + "  p pause  h help " +
           describe("channels", rows.channels, !settings.scrollsClients) +
           describe("clients", rows.clients, settings.scrollsClients);
}

std::string channelTable(const TopModel& model, const std::vector<TopModel::ChannelRow>& rows,
                         const TopRows::Range& shown, const TopViewSettings& settings)
{
    Table table({{"CHANNEL"},
                 {"CLASS"},
                 {"SUBS", true},
                 {"RATE/S", true},
                 {"BYTES/S", true},
                 {"RECORDS", true},
                 {"MISSED", true},
                 {"MISS/S", true},
                 {"SEQ", true},
                 {"LAST VALUE"}});
    for (std::size_t i = shown.begin; i < shown.end; ++i) {
        const TopModel::ChannelRow& row = rows[i];
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
                   missRate(model, row.missedPerSecond),
                   row.status.lastSequence >= 0 ? std::to_string(row.status.lastSequence) : "-",
                   {row.value, kGrey}});
    }
    return table.print(layoutOf(settings));
}

std::string clientTable(const TopModel& model, const std::vector<TopModel::ClientRow>& rows,
                        const TopRows::Range& shown, const TopViewSettings& settings)
{
    Table table({{"CLIENT", true},
                 {"PID", true},
                 {"USER"},
                 {"PROGRAM"},
                 {"BEHIND", true},
                 {"RELAYED", true},
                 {"MISSED", true},
                 {"MISS/S", true},
                 {"SUBSCRIPTIONS"}});
    for (std::size_t i = shown.begin; i < shown.end; ++i) {
        const TopModel::ClientRow& row = rows[i];
        std::string channels;
        for (const Telvane::EventServerSubscriptionStatus& subscription : row.status.subscriptions) {
            channels += (channels.empty() ? "" : " ") + subscription.channel;
        }
        table.add({std::to_string(row.status.descriptor), std::to_string(row.status.process),
                   row.status.userName.empty() ? std::to_string(row.status.user) : row.status.userName,
                   row.status.program, printBytes(static_cast<double>(row.status.bytesBehind)),
                   std::to_string(row.relayed), missedCell(row.missed), missRate(model, row.missedPerSecond),
                   channels.empty() ? "-" : channels});
    }
    return table.print(layoutOf(settings));
}

} // namespace

TopRows rowsOf(const TopModel& model, const TopViewSettings& settings)
{
    return layOut(settings, channelsOf(model, settings).size(), clientsOf(model, settings).size());
}

std::string printTop(const TopModel& model, const TopViewSettings& settings, Nanoseconds moment)
{
    const auto channels = channelsOf(model, settings);
    const auto clients = clientsOf(model, settings);
    const TopRows rows = layOut(settings, channels.size(), clients.size());
    std::string head = settings.path + "  " + printMoment(moment).substr(11, 8) + " UTC  " +
                       std::to_string(model.channels(TopModel::Order::Name).size()) + " channels, " +
                       std::to_string(model.clients().size()) + " clients";
    if (model.hasRates()) {
        head += "  " + printCount(model.rate()) + " records/s, " + printBytes(model.bytesPerSecond()) + "/s";
    }
    head = cut(head, settings.width);
    const std::string page = (settings.colour ? kBold + head + kPlainStyle : head) + "\n\n" +
                             channelTable(model, channels, rows.channels, settings) + "\n" +
                             clientTable(model, clients, rows.clients, settings);
    return settings.keys ? page + cut(keyLine(settings, rows), settings.width) + "\n" : page;
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
        addNumber(item, "missedPerSecond", row.missedPerSecond);
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
        addNumber(item, "missedPerSecond", row.missedPerSecond);
        cJSON* const subscriptions = cJSON_AddArrayToObject(item, "subscriptions");
        for (const Telvane::EventServerSubscriptionStatus& subscription : row.status.subscriptions) {
            cJSON_AddItemToArray(subscriptions, cJSON_CreateString(subscription.channel.c_str()));
        }
    }
    return printJson(tree.get()) + "\n";
}

} // namespace TelvaneTool

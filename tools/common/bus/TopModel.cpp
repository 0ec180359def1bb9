#include "common/bus/TopModel.h"

#include "common/bus/RecordCheck.h"
#include "common/support/Json.h"

#include <algorithm>

namespace TelvaneTool
{

using Telvane::RecordCatalogue;
using Telvane::RecordClass;

std::string guessClass(const std::string& channel, const std::string& payload)
{
    if (const RecordClass* const found = RecordCatalogue::find(channel)) {
        return found->name;
    }
    std::string error;
    const JsonTree tree = parseJson(payload, error);
    const RecordClass* only = nullptr;
    for (const RecordClass& candidate : RecordCatalogue::classes()) {
        if (!cJSON_IsObject(tree.get()) || isTimeStamp(candidate.table()) ||
            !checkRecord(tree.get(), candidate.table(), Strictness::Sending).empty()) {
            continue;
        }
        if (only != nullptr) {
            return {}; // ambiguous
        }
        only = &candidate;
    }
    return only != nullptr ? only->name : "";
}

void TopModel::update(std::vector<ChannelStatus> channels, std::vector<ClientStatus> clients,
                      Nanoseconds time)
{
    const double seconds = inSeconds(time - m_time);
    const bool comparable = m_updates > 0 && seconds > 0.0;
    // After a restart the server counts from 0.
    const auto perSecond = [&](std::uint64_t current, std::uint64_t before) {
        return comparable ? static_cast<double>(current >= before ? current - before : current) / seconds
                          : 0.0;
    };
    std::map<std::pair<int, pid_t>, std::uint64_t> missedBefore;
    for (const ClientRow& row : m_clients) {
        missedBefore[{row.status.descriptor, row.status.process}] = row.missed;
    }
    m_clients.clear();
    std::map<std::string, std::size_t> observed; // subscriptions of the observer
    for (ClientStatus& client : clients) {
        if (client.process == m_observer) {
            for (const Telvane::EventServerSubscriptionStatus& subscription : client.subscriptions) {
                ++observed[subscription.channel];
            }
            continue;
        }
        ClientRow& row = m_clients.emplace_back();
        for (const Telvane::EventServerSubscriptionStatus& subscription : client.subscriptions) {
            row.relayed += subscription.relayed;
            row.missed += subscription.missed;
        }
        row.missedPerSecond = perSecond(row.missed, missedBefore[{client.descriptor, client.process}]);
        row.status = std::move(client);
    }
    std::map<std::string, ChannelRow> previous;
    previous.swap(m_channels);
    for (ChannelStatus& channel : channels) {
        if (isStatusChannel(channel.name)) {
            continue;
        }
        channel.subscribers -= std::min(channel.subscribers, observed[channel.name]);
        ChannelRow& row = m_channels[channel.name];
        if (const auto found = previous.find(channel.name); found != previous.end()) {
            row = std::move(found->second);
            previous.erase(found);
        }
        row.rate = perSecond(channel.publications, row.status.publications);
        row.bytesPerSecond = perSecond(channel.bytes, row.status.bytes);
        row.missedPerSecond = perSecond(channel.missed, row.status.missed);
        if (row.recordClass.empty()) {
            row.recordClass = guessClass(channel.name, row.value);
        }
        row.status = std::move(channel);
    }
    m_time = time;
    ++m_updates;
}

void TopModel::setValue(const std::string& channel, const std::string& payload)
{
    if (const auto found = m_channels.find(channel); found != m_channels.end()) {
        const bool first = found->second.value.empty();
        found->second.value = payload;
        if (first && found->second.recordClass.empty()) {
            found->second.recordClass = guessClass(channel, payload);
        }
    }
}

std::vector<TopModel::ChannelRow> TopModel::channels(Order order) const
{
    std::vector<ChannelRow> rows;
    for (const auto& [name, row] : m_channels) {
        rows.push_back(row);
    }
    if (order != Order::Name) {
        std::stable_sort(rows.begin(), rows.end(), [order](const ChannelRow& left, const ChannelRow& right) {
            return order == Order::Rate    ? left.rate > right.rate
                   : order == Order::Bytes ? left.bytesPerSecond > right.bytesPerSecond
                                           : left.status.missed > right.status.missed;
        });
    }
    return rows;
}

double TopModel::rate() const
{
    double sum = 0.0;
    for (const auto& [name, row] : m_channels) {
        sum += row.rate;
    }
    return sum;
}

double TopModel::bytesPerSecond() const
{
    double sum = 0.0;
    for (const auto& [name, row] : m_channels) {
        sum += row.bytesPerSecond;
    }
    return sum;
}

} // namespace TelvaneTool

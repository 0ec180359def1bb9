#include "recording/RecordingSummary.h"

#include "common/bus/SequenceNumbers.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Saturating.h"
#include "common/support/Table.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr int kMaxSkipped = 32768; ///< a larger step means that the server was restarted

double perSecond(double amount, Nanoseconds span)
{
    return span > 0 ? amount / inSeconds(span) : 0.0;
}

} // namespace

void RecordingSummary::count(Channel& channel, const RecordedMessage& message)
{
    if (message.missed != 0) {
        channel.missed = addSaturated(channel.missed, message.missed);
        return;
    }
    if (channel.count++ == 0) {
        channel.first = message.time;
    } else {
        channel.longestPause = std::max(channel.longestPause, subtractSaturated(message.time, channel.last));
    }
    channel.last = message.time;
    channel.bytes += message.payload.size();
}

double RecordingSummary::rate(const Channel& channel)
{
    // There is one interval less than messages.
    return channel.count > 1 ? perSecond(static_cast<double>(channel.count - 1),
                                         subtractSaturated(channel.last, channel.first))
                             : 0.0;
}

Nanoseconds RecordingSummary::span() const
{
    return subtractSaturated(m_total.last, m_total.first);
}

void RecordingSummary::countGaps(int sequence)
{
    const int step = sequenceStep(m_lastSequence, sequence);
    if (step == 0 || step > kMaxSkipped) {
        ++m_restarts;
    } else if (step > 1) {
        ++m_gaps;
        m_missing += static_cast<std::uint64_t>(step - 1);
    }
}

void RecordingSummary::add(const RecordedMessage& message)
{
    if (message.outage) {
        ++m_outages;
        m_outageTime = addSaturated(m_outageTime, subtractSaturated(message.missedTo, message.missedFrom));
        return;
    }
    if (message.missed == 0) {
        if (m_total.count != 0) {
            countGaps(message.sequence);
        }
        m_lastSequence = message.sequence;
    }
    count(m_total, message);
    const auto found = m_channels.find(message.channel);
    count(found != m_channels.end() ? found->second : m_channels[std::string(message.channel)], message);
}

std::string RecordingSummary::text(const File& file) const
{
    std::string text = "file      " + file.path + ", " + printBytes(static_cast<double>(file.bytes));
    if (file.header.part > 1) {
        text += ", part " + std::to_string(file.header.part);
    }
    text += "\nserver    " + file.header.server + "\n";
    if (m_total.count != 0) {
        text += "from      " + printMoment(addSaturated(file.header.started, m_total.first)) +
                "\nuntil     " + printMoment(addSaturated(file.header.started, m_total.last)) + " (" +
                printSpan(span()) + ")\n";
    }
    text += "records   " + std::to_string(m_total.count) + " on " +
            printNumber(m_channels.size(), "channel") + ", " + printCount(rate(m_total)) + "/s\n";
    if (m_total.missed != 0) {
        text += "missed    " + printNumber(m_total.missed, "record") + "\n";
    }
    if (m_outages != 0) {
        text += "outages   " + std::to_string(m_outages) + ", without a connection for " +
                printSpan(m_outageTime) + "\n";
    }
    text += "sequence  ";
    text += m_gaps == 0 ? "without gaps"
                        : printNumber(m_gaps, "gap") + ", " + printNumber(m_missing, "number") +
                              " of other channels, of subscriptions, or missed";
    if (m_restarts != 0) {
        text += "; restarted " + printNumber(m_restarts, "time");
    }
    text += "\n";
    if (file.tornBytes != 0) {
        text += "torn end  " + printNumber(file.tornBytes, "byte") + "\n";
    }
    if (file.damagedLines != 0) {
        text += "damaged   " + printNumber(file.damagedLines, "line") + "\n";
    }
    Table table({{"channel"},
                 {"records", true},
                 {"missed", true},
                 {"rate/s", true},
                 {"bytes", true},
                 {"longest pause", true}});
    for (const auto& [name, channel] : m_channels) {
        table.add({name, std::to_string(channel.count), std::to_string(channel.missed),
                   printCount(rate(channel)), printBytes(static_cast<double>(channel.bytes)),
                   channel.count > 1 ? printSpan(channel.longestPause) : "-"});
    }
    text += "\n" + table.print();
    return text;
}

JsonTree RecordingSummary::json(const File& file) const
{
    JsonTree tree(cJSON_CreateObject());
    addText(tree.get(), "file", file.path);
    addNumber(tree.get(), "bytes", file.bytes);
    addNumber(tree.get(), "part", file.header.part);
    addText(tree.get(), "server", file.header.server);
    addText(tree.get(), "started", printMoment(file.header.started));
    if (m_total.count != 0) {
        addText(tree.get(), "from", printMoment(addSaturated(file.header.started, m_total.first)));
        addText(tree.get(), "until", printMoment(addSaturated(file.header.started, m_total.last)));
    }
    addNumber(tree.get(), "seconds", inSeconds(span()));
    addNumber(tree.get(), "records", m_total.count);
    addNumber(tree.get(), "missed", m_total.missed);
    addNumber(tree.get(), "outages", m_outages);
    addNumber(tree.get(), "rate", rate(m_total));
    addNumber(tree.get(), "sequenceGaps", m_gaps);
    addNumber(tree.get(), "sequencesMissing", m_missing);
    addNumber(tree.get(), "sequenceRestarts", m_restarts);
    addNumber(tree.get(), "tornBytes", file.tornBytes);
    addNumber(tree.get(), "damagedLines", file.damagedLines);
    cJSON* const channels = cJSON_AddArrayToObject(tree.get(), "channels");
    for (const auto& [name, channel] : m_channels) {
        cJSON* const item = cJSON_CreateObject();
        addText(item, "channel", name);
        addNumber(item, "records", channel.count);
        addNumber(item, "missed", channel.missed);
        addNumber(item, "rate", rate(channel));
        addNumber(item, "bytes", channel.bytes);
        addNumber(item, "firstSeconds", inSeconds(subtractSaturated(channel.first, m_total.first)));
        addNumber(item, "lastSeconds", inSeconds(subtractSaturated(channel.last, m_total.first)));
        addNumber(item, "longestPauseSeconds", inSeconds(channel.longestPause));
        cJSON_AddItemToArray(channels, item);
    }
    return tree;
}

} // namespace TelvaneTool

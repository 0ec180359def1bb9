#include "recording/RecordingSummary.h"

#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Table.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

constexpr int kSequences = 65536;  ///< numbers of the server, which begin anew behind the last
constexpr int kMaxSkipped = 32768; ///< a longer step is one back: the server was started anew

double perSecond(double amount, Nanoseconds span)
{
    return span > 0 ? amount / inSeconds(span) : 0.0;
}

} // namespace

void RecordingSummary::count(Channel& channel, const RecordedMessage& message)
{
    if (channel.count++ == 0) {
        channel.first = message.time;
    } else {
        channel.longestPause = std::max(channel.longestPause, message.time - channel.last);
    }
    channel.last = message.time;
    channel.bytes += message.payload.size();
}

double RecordingSummary::rate(const Channel& channel)
{
    // So many messages have so many intervals less one.
    return channel.count > 1 ? perSecond(static_cast<double>(channel.count - 1), channel.last - channel.first)
                             : 0.0;
}

void RecordingSummary::add(const RecordedMessage& message)
{
    if (m_total.count != 0) {
        const int step = (message.sequence - m_lastSequence + kSequences) % kSequences;
        if (step == 0 || step > kMaxSkipped) {
            ++m_restarts;
        } else if (step > 1) {
            ++m_gaps;
            m_missing += static_cast<std::uint64_t>(step - 1);
        }
    }
    m_lastSequence = message.sequence;
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
        text += "from      " + printMoment(file.header.started + m_total.first) + "\n" + "until     " +
                printMoment(file.header.started + m_total.last) + " (" + printSpan(span()) + ")\n";
    }
    text += "records   " + std::to_string(m_total.count) + " on " + std::to_string(m_channels.size()) +
            " channels, " + printCount(rate(m_total)) + "/s\n";
    text += "sequence  ";
    if (m_gaps == 0) {
        text += "without gaps";
    } else {
        text += std::to_string(m_gaps) + " gaps, " + std::to_string(m_missing) +
                " numbers are not here: of other channels, of subscriptions, or lost";
    }
    if (m_restarts != 0) {
        text += "; begins anew " + std::to_string(m_restarts) + " times";
    }
    text += "\n";
    if (file.tornBytes != 0) {
        text += "torn end  " + std::to_string(file.tornBytes) + " bytes of a last line\n";
    }
    if (file.damagedLines != 0) {
        text += "damaged   " + std::to_string(file.damagedLines) + " lines are no records\n";
    }
    Table table({{"channel"}, {"records", true}, {"rate/s", true}, {"bytes", true}, {"longest pause", true}});
    for (const auto& [name, channel] : m_channels) {
        table.add({name, std::to_string(channel.count), printCount(rate(channel)),
                   printBytes(static_cast<double>(channel.bytes)),
                   channel.count > 1 ? printSpan(channel.longestPause) : "-"});
    }
    text += "\n" + table.print();
    return text;
}

std::string RecordingSummary::json(const File& file) const
{
    const JsonTree tree(cJSON_CreateObject());
    addText(tree.get(), "file", file.path);
    addNumber(tree.get(), "bytes", file.bytes);
    addNumber(tree.get(), "part", file.header.part);
    addText(tree.get(), "server", file.header.server);
    addText(tree.get(), "started", printMoment(file.header.started));
    if (m_total.count != 0) {
        const std::string first = printMoment(file.header.started + m_total.first);
        const std::string last = printMoment(file.header.started + m_total.last);
        addText(tree.get(), "from", first);
        addText(tree.get(), "until", last);
    }
    addNumber(tree.get(), "seconds", inSeconds(span()));
    addNumber(tree.get(), "records", m_total.count);
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
        addNumber(item, "rate", rate(channel));
        addNumber(item, "bytes", channel.bytes);
        addNumber(item, "firstSeconds", inSeconds(channel.first - m_total.first));
        addNumber(item, "lastSeconds", inSeconds(channel.last - m_total.first));
        addNumber(item, "longestPauseSeconds", inSeconds(channel.longestPause));
        cJSON_AddItemToArray(channels, item);
    }
    return printJson(tree.get()) + "\n";
}

} // namespace TelvaneTool

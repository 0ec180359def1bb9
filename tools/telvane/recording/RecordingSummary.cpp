#include "recording/RecordingSummary.h"

#include "common/support/HumanReadable.h"
#include "common/support/Json.h"

#include <algorithm>
#include <cstdio>

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
    std::size_t width = 8;
    for (const auto& [name, channel] : m_channels) {
        width = std::max(width, name.size());
    }
    char line[160];
    std::snprintf(line, sizeof line, "%10s %10s %10s %14s\n", "records", "rate/s", "bytes", "longest pause");
    text += "\nchannel " + std::string(width - 7, ' ') + line;
    for (const auto& [name, channel] : m_channels) {
        std::snprintf(line, sizeof line, "%11llu %10s %10s %14s\n",
                      static_cast<unsigned long long>(channel.count), printCount(rate(channel)).c_str(),
                      printBytes(static_cast<double>(channel.bytes)).c_str(),
                      channel.count > 1 ? printSpan(channel.longestPause).c_str() : "-");
        text += name + std::string(width - name.size(), ' ') + line;
    }
    return text;
}

std::string RecordingSummary::json(const File& file) const
{
    const JsonTree tree(cJSON_CreateObject());
    const auto number = [](cJSON* object, const char* key, auto value) {
        cJSON_AddNumberToObject(object, key, static_cast<double>(value));
    };
    cJSON_AddStringToObject(tree.get(), "file", file.path.c_str());
    number(tree.get(), "bytes", file.bytes);
    number(tree.get(), "part", file.header.part);
    cJSON_AddStringToObject(tree.get(), "server", file.header.server.c_str());
    cJSON_AddStringToObject(tree.get(), "started", printMoment(file.header.started).c_str());
    if (m_total.count != 0) {
        const std::string first = printMoment(file.header.started + m_total.first);
        const std::string last = printMoment(file.header.started + m_total.last);
        cJSON_AddStringToObject(tree.get(), "from", first.c_str());
        cJSON_AddStringToObject(tree.get(), "until", last.c_str());
    }
    cJSON_AddNumberToObject(tree.get(), "seconds", inSeconds(span()));
    number(tree.get(), "records", m_total.count);
    cJSON_AddNumberToObject(tree.get(), "rate", rate(m_total));
    number(tree.get(), "sequenceGaps", m_gaps);
    number(tree.get(), "sequencesMissing", m_missing);
    number(tree.get(), "sequenceRestarts", m_restarts);
    number(tree.get(), "tornBytes", file.tornBytes);
    number(tree.get(), "damagedLines", file.damagedLines);
    cJSON* const channels = cJSON_AddArrayToObject(tree.get(), "channels");
    for (const auto& [name, channel] : m_channels) {
        cJSON* const item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "channel", name.c_str());
        number(item, "records", channel.count);
        cJSON_AddNumberToObject(item, "rate", rate(channel));
        number(item, "bytes", channel.bytes);
        cJSON_AddNumberToObject(item, "firstSeconds", inSeconds(channel.first - m_total.first));
        cJSON_AddNumberToObject(item, "lastSeconds", inSeconds(channel.last - m_total.first));
        cJSON_AddNumberToObject(item, "longestPauseSeconds", inSeconds(channel.longestPause));
        cJSON_AddItemToArray(channels, item);
    }
    return printJson(tree.get()) + "\n";
}

} // namespace TelvaneTool

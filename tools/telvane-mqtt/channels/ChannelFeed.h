#pragma once

#include "telvane-mqtt/channels/ChannelRules.h"
#include "telvane-mqtt/channels/Payload.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace TelvaneTool::Mqtt
{

/// Turns the records of one channel into the bodies of messages, as its rule asks.
class ChannelFeed
{
public:
    /// Called with a body ("record":{...}) and the time of its first record.
    using Sink = std::function<void(std::string body, WallTime time)>;

    ChannelFeed(const OutRule& rule, Sink sink) : m_rule(rule), m_sink(std::move(sink)) {}

    /// Takes a record.
    /// \param text its JSON text on one line
    /// \param sizeLimit largest body, in bytes: a batch is closed before it exceeds this
    void add(std::string text, Nanoseconds now, std::size_t sizeLimit);

    /// Closes a batch or a summary whose interval has ended.
    void closeIfDue(Nanoseconds now);
    /// Closes it in any case.
    void close();

    /// \return when closeIfDue() has something to do; -1 for never
    Nanoseconds due() const { return m_count == 0 ? -1 : m_began + m_rule.interval; }

private:
    using Fields = std::vector<std::pair<std::string, std::string>>;
    struct Column
    {
        std::string path;
        std::string first; ///< the first value
        std::string values;
        bool constant = true;
    };
    struct Range
    {
        std::string path;
        double sum = 0;
        double min = 0;
        double max = 0;
        std::size_t count = 0;
    };

    void begin(Nanoseconds now);
    void addToBatch(const Fields& fields, Nanoseconds now, std::size_t sizeLimit);
    void addToSummary(const cJSON* record);
    void addChange(const std::string& text, Fields fields, Nanoseconds now);
    void addRange(const cJSON* value, const std::string& path, std::size_t& place);

    const OutRule m_rule;
    const Sink m_sink;
    std::size_t m_count = 0;
    std::size_t m_size = 0;
    Nanoseconds m_began = 0;
    WallTime m_time;
    std::string m_offsets;
    std::vector<Column> m_columns;
    std::vector<Range> m_ranges;
    Fields m_last;
    Nanoseconds m_lastFull = 0;
};

} // namespace TelvaneTool::Mqtt

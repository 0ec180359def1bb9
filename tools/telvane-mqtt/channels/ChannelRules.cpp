// Messages must not circle between the bus and the broker, not even through a second bridge. So each channel crosses
// in one direction only, and which one is decided before anything connects.

#include "telvane-mqtt/channels/ChannelRules.h"

#include "common/support/ChannelPattern.h"
#include "common/support/HumanReadable.h"

#include <Telvane/RequestType.h>

#include <algorithm>

namespace TelvaneTool::Mqtt
{

namespace
{

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts(1);
    for (const char character : text) {
        if (character == separator) {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

std::string findClass(const std::string& name, const Telvane::RecordClass*& recordClass)
{
    recordClass = Telvane::RecordCatalogue::find(name);
    return recordClass != nullptr ? "" : "unknown record class \"" + name + "\"; see telvane records";
}

/// Samples come by the thousand; all else is rare and matters.
bool carriesSamples(const Telvane::RecordClass* recordClass)
{
    return recordClass != nullptr && recordClass->name == std::string("WeldTraceData");
}

std::string applySetting(const std::string& setting, OutRule& rule, bool& qosGiven)
{
    const std::size_t equals = setting.find('=');
    const std::string key = setting.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : setting.substr(equals + 1);
    if (key == "class") {
        return findClass(value, rule.recordClass);
    }
    if (key == "qos" && (value == "0" || value == "1")) {
        rule.qos = value == "1" ? 1 : 0;
        qosGiven = true;
        return {};
    }
    if (setting == "retain") {
        rule.retain = true;
        return {};
    }
    if (setting == "changes" || setting == "each") {
        rule.mode = setting == "each" ? Mode::EachRecord : Mode::Changes;
        rule.interval = 0;
        return {};
    }
    if ((key == "batch" || key == "every") && parseDuration(value, rule.interval)) {
        rule.mode = key == "batch" ? Mode::Batch : Mode::Summary;
        return {};
    }
    return "unknown setting \"" + setting +
           "\"; expected class=CLASS, qos=0, qos=1, retain, each, batch=TIME, every=TIME or changes";
}

} // namespace

bool parseDuration(const std::string& text, Nanoseconds& duration)
{
    return readDuration(text, duration) && duration >= kMillisecond;
}

std::string ChannelRules::addOut(const std::string& text)
{
    const std::vector<std::string> parts = split(text, ':');
    const std::string& wanted = parts.front();
    const bool pattern = isPattern(wanted);
    std::string error = pattern ? checkChannelPattern(wanted) : checkChannel(wanted);
    if (!error.empty()) {
        return error;
    }
    std::vector<std::string> channels;
    if (pattern) {
        for (const Telvane::RecordClass& recordClass : Telvane::RecordCatalogue::classes()) {
            if (matchesPattern(wanted, recordClass.name)) {
                channels.emplace_back(recordClass.name);
            }
        }
        if (channels.empty()) {
            return "no record class matches " + wanted;
        }
    } else {
        channels.push_back(wanted);
    }
    for (const std::string& channel : channels) {
        const auto known = m_named.find(channel);
        if (known != m_named.end() && known->second) {
            if (pattern) {
                continue; // what is said by name counts
            }
            return "the channel " + channel + " is given twice";
        }
        OutRule rule;
        rule.recordClass = Telvane::RecordCatalogue::find(channel);
        bool qosGiven = false;
        const bool modeGiven = parts.size() > 1;
        for (std::size_t i = 1; i < parts.size(); ++i) {
            error = applySetting(parts[i], rule, qosGiven);
            if (!error.empty()) {
                return error.insert(0, channel + ": ");
            }
        }
        if (carriesSamples(rule.recordClass)) {
            if (!modeGiven) {
                rule.mode = Mode::Batch;
                rule.interval = 100 * kMillisecond;
            }
            rule.qos = qosGiven ? rule.qos : 0;
        }
        if (rule.mode != Mode::EachRecord && rule.recordClass == nullptr) {
            return channel + ": batch, every and changes need the class of the records: add :class=CLASS";
        }
        m_out[channel] = rule;
        m_named[channel] = !pattern;
    }
    return {};
}

std::string ChannelRules::addIncoming(const std::string& text, std::map<std::string, InRule>& rules)
{
    const std::vector<std::string> parts = split(text, ':');
    const std::string& channel = parts.front();
    if (isPattern(channel)) {
        return "\"" + channel + "\" is a pattern; list what comes in by name";
    }
    std::string error = checkChannel(channel);
    if (!error.empty()) {
        return error;
    }
    std::string className = channel;
    if (parts.size() == 2 && parts[1].compare(0, 6, "class=") == 0) {
        className = parts[1].substr(6);
    } else if (parts.size() > 1) {
        return channel + ": unknown setting; expected class=CLASS";
    }
    InRule rule;
    error = findClass(className, rule.recordClass);
    if (!error.empty()) {
        return channel + ": " + error;
    }
    return rules.emplace(channel, rule).second ? "" : "the channel " + channel + " is given twice";
}

std::string ChannelRules::addIn(const std::string& text)
{
    return addIncoming(text, m_in);
}

std::string ChannelRules::addRequest(const std::string& text)
{
    return addIncoming(text, m_requests);
}

std::string ChannelRules::findLoop() const
{
    for (const auto& [channel, rule] : m_in) {
        if (m_out.count(channel) != 0) {
            return "the channel " + channel + " goes out and comes in, so its records would circle";
        }
    }
    const auto bridged = std::find_if(m_requests.begin(), m_requests.end(), [this](const auto& request) {
        const std::string channel = Telvane::kRequestPrefix + request.first;
        return m_out.count(channel) != 0 || m_in.count(channel) != 0;
    });
    return bridged == m_requests.end()
               ? std::string()
               : "the channel " + (Telvane::kRequestPrefix + bridged->first) +
                     " is listed, but the bridge itself makes the requests for " + bridged->first;
}

std::string describeRule(const OutRule& rule)
{
    std::string text = rule.recordClass != nullptr ? rule.recordClass->name : "any JSON object";
    const std::string milliseconds = std::to_string(rule.interval / kMillisecond) + " ms";
    switch (rule.mode) {
    case Mode::EachRecord:
        break;
    case Mode::Batch:
        text += ", batches of " + milliseconds;
        break;
    case Mode::Summary:
        text += ", mean, minimum and maximum of " + milliseconds;
        break;
    case Mode::Changes:
        text += ", changes";
        break;
    }
    return text + ", QoS " + std::to_string(rule.qos) + (rule.retain ? ", retained" : "");
}

} // namespace TelvaneTool::Mqtt

#include "telvane-mqtt/channels/Topics.h"

#include "common/support/ChannelPattern.h"

#include <mosquitto.h>

namespace TelvaneTool::Mqtt
{

namespace
{

std::string checkLevel(const std::string& level, const char* what)
{
    if (level.empty()) {
        return std::string("the ") + what + " has an empty level";
    }
    for (const char character : level) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte <= 0x20 || byte == 0x7F || character == '+' || character == '#' || character == '/') {
            return std::string("the ") + what + " must not contain blanks, control characters, '+' or '#'";
        }
    }
    return level.front() == '$' ? std::string("no level of the ") + what + " may begin with '$'" : "";
}

} // namespace

std::string Topics::check(const std::string& prefix, const std::string& module)
{
    if (prefix.size() + module.size() > 400) {
        return "the prefix and the module's name are too long";
    }
    if (mosquitto_validate_utf8((prefix + module).c_str(), static_cast<int>(prefix.size() + module.size())) !=
        MOSQ_ERR_SUCCESS) {
        return "the prefix and the module's name must be UTF-8";
    }
    for (std::size_t begin = 0; begin <= prefix.size();) {
        const std::size_t end = std::min(prefix.find('/', begin), prefix.size());
        std::string error = checkLevel(prefix.substr(begin, end - begin), "prefix");
        if (!error.empty()) {
            return error;
        }
        begin = end + 1;
    }
    if (module.find('/') != std::string::npos) {
        return "the module's name is one level: it must not contain '/'";
    }
    return checkLevel(module, "module's name");
}

TopicKind Topics::parse(const std::string& topic, std::string& channel) const
{
    if (topic.compare(0, m_base.size(), m_base) != 0) {
        return TopicKind::None;
    }
    const std::string rest = topic.substr(m_base.size());
    if (rest == "state") {
        return TopicKind::State;
    }
    const bool write = rest.compare(0, 2, "W/") == 0;
    if (!write && rest.compare(0, 2, "R/") != 0) {
        return TopicKind::None;
    }
    channel = rest.substr(2);
    return !checkChannel(channel).empty() ? TopicKind::None : write ? TopicKind::Write : TopicKind::Request;
}

bool Topics::mayAnswerOn(const std::string& topic) const
{
    return !topic.empty() && topic.front() != '$' && topic.compare(0, m_base.size(), m_base) != 0 &&
           mosquitto_validate_utf8(topic.data(), static_cast<int>(topic.size())) == MOSQ_ERR_SUCCESS &&
           mosquitto_pub_topic_check2(topic.data(), topic.size()) == MOSQ_ERR_SUCCESS;
}

} // namespace TelvaneTool::Mqtt

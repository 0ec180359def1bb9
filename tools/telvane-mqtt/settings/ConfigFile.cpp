// The keys of the file are the options of the command line: there is one list of names to learn. An unknown key is an
// error, because a misspelled key would otherwise be a setting that is silently not made.

#include "common/support/HumanReadable.h"
#include "telvane-mqtt/settings/Settings.h"
#include "telvane-mqtt/settings/ValueChecks.h"

#include <toml++/toml.h>

#include <limits>

namespace TelvaneTool::Mqtt
{

namespace
{

std::string at(const toml::node& node)
{
    return "line " + std::to_string(node.source().begin.line) + ": ";
}

constexpr bool kIsSize = true;

/// Reads one key into its setting.
class KeyReader
{
public:
    KeyReader(std::string_view key, const toml::node& node) : m_key(key), m_node(node) {}

    bool is(const char* key) const { return m_key == key; }
    const std::string& error() const { return m_error; }

    bool text(const char* key, std::string& target)
    {
        if (!is(key)) {
            return false;
        }
        const auto value = m_node.value<std::string>();
        if (!m_node.is_string() || !value) {
            m_error = "expected a string";
        } else {
            m_error = valueError(m_key, *value);
            target = *value;
        }
        return true;
    }

    /// \param isSize  a text such as "64M" is a number as well
    template <class Number>
    bool number(const char* key, Number& target, bool isSize = false)
    {
        if (!is(key)) {
            return false;
        }
        auto value = m_node.value_exact<std::int64_t>();
        std::uint64_t bytes = 0;
        if (isSize && m_node.is_string() && readSize(*m_node.value<std::string>(), bytes)) {
            value = static_cast<std::int64_t>(bytes);
        }
        const auto max = static_cast<std::int64_t>(std::min<std::uint64_t>(
            std::numeric_limits<Number>::max(), std::numeric_limits<std::int64_t>::max()));
        if (!value) {
            m_error = isSize ? "expected a size such as \"64M\", or an integer" : "expected an integer";
            return true;
        }
        m_error = valueError(m_key, std::to_string(*value));
        if (m_error.empty() && *value > max) {
            m_error = "expected at most " + std::to_string(max) + ", got \"" + std::to_string(*value) + "\"";
        }
        target = m_error.empty() ? static_cast<Number>(*value) : target;
        return true;
    }

    bool flag(const char* key, bool& target)
    {
        if (!is(key)) {
            return false;
        }
        const auto value = m_node.value<bool>();
        if (!m_node.is_boolean() || !value) {
            m_error = "expected true or false";
        } else {
            target = *value;
        }
        return true;
    }

    bool list(const char* key, std::vector<std::string>& target)
    {
        if (!is(key)) {
            return false;
        }
        const toml::array* const values = m_node.as_array();
        if (values == nullptr) {
            m_error = "expected a list of strings";
            return true;
        }
        target.clear();
        for (const toml::node& value : *values) {
            if (!value.is_string()) {
                m_error = "expected a list of strings";
                return true;
            }
            target.push_back(*value.value<std::string>());
        }
        return true;
    }

private:
    const std::string m_key;
    const toml::node& m_node;
    std::string m_error;
};

bool readKey(KeyReader& key, Settings& settings)
{
    return key.text("bus", settings.bus) || key.text("broker", settings.broker) ||
           key.text("prefix", settings.prefix) || key.text("module", settings.module) ||
           key.text("protocol", settings.protocol) || key.list("out", settings.out) ||
           key.list("in", settings.in) || key.list("request", settings.requests) ||
           key.text("ca", settings.caFile) || key.text("cert", settings.certificateFile) ||
           key.text("key", settings.keyFile) || key.text("user-file", settings.userFile) ||
           key.text("password-file", settings.passwordFile) ||
           key.text("metrics-pipe", settings.metricsPipe) || key.text("queue-age", settings.queueAge) ||
           key.text("spool", settings.spool) || key.number("spool-bytes", settings.spoolBytes, kIsSize) ||
           key.text("ack-timeout", settings.ackTimeout) || key.text("first-pause", settings.firstPause) ||
           key.text("longest-pause", settings.longestPause) ||
           key.text("request-timeout", settings.requestTimeout) ||
           key.number("queue-messages", settings.queueMessages) ||
           key.number("queue-bytes", settings.queueBytes, kIsSize) ||
           key.number("packet-limit", settings.packetLimit, kIsSize) ||
           key.number("in-flight", settings.inFlight) || key.number("drain-rate", settings.drainRate) ||
           key.number("keep-alive", settings.keepAlive) || key.flag("bare", settings.bare);
}

} // namespace

std::string readConfigFile(const std::string& path, const std::function<bool(const char* option)>& given,
                           Settings& settings)
{
    toml::table table;
    try {
        table = toml::parse_file(path);
    } catch (const toml::parse_error& error) {
        const auto line = error.source().begin.line;
        return path + ": " + (line != 0 ? "line " + std::to_string(line) + ": " : "") +
               std::string(error.description());
    }
    const auto errorAt = [&path](const toml::node& node, const std::string& error) {
        return path + ": " + at(node) + error;
    };
    Settings fromFile = settings;
    for (const auto& [name, node] : table) {
        const std::string text(name.str());
        KeyReader key(text, node);
        Settings read = fromFile;
        if (!readKey(key, read)) {
            return errorAt(node, "unknown key \"" + text + "\"");
        }
        if (!key.error().empty()) {
            return errorAt(node, text + ": " + key.error());
        }
        if (!given(("--" + text).c_str())) {
            fromFile = read;
        }
    }
    settings = fromFile;
    return {};
}

} // namespace TelvaneTool::Mqtt

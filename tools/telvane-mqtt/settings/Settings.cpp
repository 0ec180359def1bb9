// Secrets come from files or from the credentials of a service manager, and never from the command line, which every
// user of the machine can read.

#include "telvane-mqtt/settings/Settings.h"

#include "telvane-mqtt/channels/Topics.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace TelvaneTool::Mqtt
{

namespace
{

std::string hostName()
{
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

std::string readBrokerUrl(const std::string& url, BrokerSettings& broker)
{
    std::string rest = url;
    const std::size_t scheme = url.find("://");
    if (scheme != std::string::npos) {
        const std::string name = url.substr(0, scheme);
        if (name != "mqtt" && name != "mqtts") {
            return "the broker's URL begins with mqtt:// or mqtts://";
        }
        broker.tls = name == "mqtts";
        rest = url.substr(scheme + 3);
    }
    if (rest.find('@') != std::string::npos) {
        return "the broker's URL must not contain a user or password; use --user-file and --password-file";
    }
    broker.port = broker.tls ? 8883 : 1883;
    const std::size_t bracket = rest.find(']');
    const std::size_t colon = rest.find(':', bracket == std::string::npos ? 0 : bracket);
    broker.host = rest.substr(0, colon);
    if (colon != std::string::npos) {
        char* end = nullptr;
        const long port = std::strtol(rest.c_str() + colon + 1, &end, 10);
        if (*end != '\0' || end == rest.c_str() + colon + 1 || port < 1 || port > 65535) {
            return "the broker's port is a number from 1 to 65535";
        }
        broker.port = static_cast<int>(port);
    }
    if (bracket != std::string::npos && rest.front() == '[') {
        broker.host = rest.substr(1, bracket - 1);
    }
    return broker.host.empty() ? "the broker's URL has no host" : "";
}

/// Reads the first line of a file with a secret.
std::string readSecret(const std::string& path, bool isSecret, std::string& secret)
{
    struct stat status = {};
    std::ifstream file(path);
    if (stat(path.c_str(), &status) != 0 || !file) {
        return "cannot read " + path + ": " + std::strerror(errno);
    }
    if (isSecret && (status.st_mode & S_IRWXO) != 0) {
        return path + " can be read by every user of this machine; run: chmod 600 " + path;
    }
    std::getline(file, secret);
    return secret.empty() ? path + " is empty" : "";
}

std::string readSecrets(const Settings& settings, BrokerSettings& broker)
{
    std::string userFile = settings.userFile;
    std::string passwordFile = settings.passwordFile;
    if (const char* const directory = getenv("CREDENTIALS_DIRECTORY"); directory != nullptr) {
        const auto credential = [directory](const char* name, std::string& file) {
            const std::string path = std::string(directory) + "/" + name;
            if (file.empty() && access(path.c_str(), R_OK) == 0) {
                file = path;
            }
        };
        credential("mqtt-user", userFile);
        credential("mqtt-password", passwordFile);
    }
    std::string error = userFile.empty() ? "" : readSecret(userFile, false, broker.user);
    if (error.empty() && !passwordFile.empty()) {
        error = broker.user.empty() ? "a password needs a user; use --user-file"
                                    : readSecret(passwordFile, true, broker.password);
    }
    return error;
}

std::string checkTls(const BrokerSettings& broker)
{
    if (!broker.tls) {
        return broker.caFile.empty() && broker.certificateFile.empty() && broker.keyFile.empty()
                   ? ""
                   : "certificates need TLS; write the broker as mqtts://HOST";
    }
    if (broker.certificateFile.empty() != broker.keyFile.empty()) {
        return "--cert and --key belong together";
    }
    for (const std::string& path : {broker.caFile, broker.certificateFile, broker.keyFile}) {
        if (!path.empty() && access(path.c_str(), R_OK) != 0) {
            return "cannot read " + path + ": " + std::strerror(errno);
        }
    }
    return {};
}

void readDurations(const Settings& settings, BridgeSettings& result)
{
    parseDuration(settings.queueAge, result.queue.age);
    parseDuration(settings.ackTimeout, result.broker.acknowledgement);
    parseDuration(settings.firstPause, result.broker.firstPause);
    parseDuration(settings.longestPause, result.broker.longestPause);
    parseDuration(settings.requestTimeout, result.requestTimeout);
    result.spoolLimits.age = result.queue.age;
}

std::string readRules(const Settings& settings, ChannelRules& rules)
{
    std::string error;
    for (const std::string& text : settings.out) {
        error = error.empty() ? rules.addOut(text) : error;
    }
    for (const std::string& text : settings.in) {
        error = error.empty() ? rules.addIn(text) : error;
    }
    for (const std::string& text : settings.requests) {
        error = error.empty() ? rules.addRequest(text) : error;
    }
    if (error.empty() && rules.out().empty() && rules.in().empty() && rules.requests().empty()) {
        error = "nothing would cross the bridge; use --out, --in or --request";
    }
    return error.empty() ? rules.findLoop() : error;
}

} // namespace

bool BridgeSettings::keepsInSpool(const std::string& channel) const
{
    const auto rule = rules.out().find(channel);
    return !spool.empty() && rule != rules.out().end() && rule->second.qos == 1;
}

std::string BridgeSettings::classOf(const std::string& channel) const
{
    const auto requested = rules.requests().find(channel);
    if (requested != rules.requests().end()) {
        return requested->second.recordClass->name;
    }
    const auto out = rules.out().find(channel);
    return out != rules.out().end() && out->second.recordClass != nullptr ? out->second.recordClass->name
                                                                          : "";
}

std::string checkSettings(const Settings& settings, BridgeSettings& result)
{
    result.bus = settings.bus;
    result.prefix = settings.prefix;
    result.module = settings.module.empty() ? hostName() : settings.module;
    result.metricsPipe = settings.metricsPipe;
    result.bare = settings.bare;
    result.drainRate = settings.drainRate;
    result.queue.messages = settings.queueMessages;
    result.queue.bytes = settings.queueBytes;
    result.spool = settings.spool;
    result.spoolLimits.bytes = settings.spoolBytes;
    BrokerSettings& broker = result.broker;
    broker.clientId = "telvane-" + result.module;
    broker.caFile = settings.caFile;
    broker.certificateFile = settings.certificateFile;
    broker.keyFile = settings.keyFile;
    broker.keepAlive = settings.keepAlive;
    broker.inFlight = settings.inFlight;
    broker.packetLimit = settings.packetLimit;
    broker.protocol = settings.protocol == "5"       ? Protocol::Version5
                      : settings.protocol == "3.1.1" ? Protocol::Version311
                                                     : Protocol::Automatic;
    readDurations(settings, result);
    if (settings.bus.empty()) {
        return "no bus given; use --bus PATH";
    }
    if (settings.broker.empty() && !settings.dryRun) {
        return "no broker given; use --broker mqtts://HOST";
    }
    std::string error = settings.broker.empty() ? "" : readBrokerUrl(settings.broker, broker);
    error = error.empty() ? Topics::check(result.prefix, result.module) : error;
    error = error.empty() ? checkTls(broker) : error;
    error = error.empty() ? readSecrets(settings, broker) : error;
    return error.empty() ? readRules(settings, result.rules) : error;
}

std::string describeSettings(const BridgeSettings& settings)
{
    const Topics topics(settings.prefix, settings.module);
    const BrokerSettings& broker = settings.broker;
    std::string text = "bus      " + settings.bus + "\nbroker   " + broker.host + ":" +
                       std::to_string(broker.port) + (broker.tls ? ", TLS" : ", not encrypted") +
                       (broker.user.empty() ? "" : ", user " + broker.user) +
                       (broker.password.empty() ? "" : " with password") + "\nclient   " + broker.clientId +
                       "\nstate    " + topics.state() + "\n";
    if (!settings.spool.empty()) {
        text += "spool    " + settings.spool + ", at most " + std::to_string(settings.spoolLimits.bytes) +
                " bytes\n";
    }
    for (const auto& [channel, rule] : settings.rules.out()) {
        text +=
            "out      " + channel + " -> " + topics.notification(channel) + " (" + describeRule(rule) + ")\n";
    }
    for (const auto& [channel, rule] : settings.rules.in()) {
        text +=
            "in       " + channel + " <- " + topics.write(channel) + " (" + rule.recordClass->name + ")\n";
    }
    for (const auto& [channel, rule] : settings.rules.requests()) {
        text +=
            "request  " + channel + " <- " + topics.request(channel) + " (" + rule.recordClass->name + ")\n";
    }
    return text;
}

} // namespace TelvaneTool::Mqtt

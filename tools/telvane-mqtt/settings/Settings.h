#pragma once

#include "telvane-mqtt/channels/ChannelRules.h"
#include "telvane-mqtt/queue/OutgoingQueue.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace TelvaneTool::Mqtt
{

/// Which version of MQTT to speak.
enum class Protocol
{
    Automatic, ///< 5, and 3.1.1 if the broker does not speak it
    Version5,
    Version311,
};

/// How to reach the broker.
struct BrokerSettings
{
    std::string host;
    int port = 0;
    bool tls = false;
    Protocol protocol = Protocol::Automatic;
    std::string clientId;
    std::string caFile; ///< empty for the authorities of the system
    std::string certificateFile;
    std::string keyFile;
    std::string user;
    std::string password;
    int keepAlive = 15;                             ///< seconds
    Nanoseconds acknowledgement = 20 * kSecond;     ///< longest wait for an answer of the broker
    Nanoseconds firstPause = 1 * kSecond;           ///< between the first attempts
    Nanoseconds longestPause = 60 * kSecond;        ///< between later ones
    unsigned inFlight = 20;                         ///< messages without acknowledgement
    std::size_t packetLimit = std::size_t{1} << 20; ///< bytes; the broker may lower it
};

/// All settings, as they are on the command line and in the configuration file.
struct Settings
{
    std::string configFile;
    std::string bus;
    std::string broker; ///< URL
    std::string prefix = "telvane";
    std::string module;
    std::string protocol = "auto";
    std::vector<std::string> out;
    std::vector<std::string> in;
    std::vector<std::string> requests;
    std::string caFile;
    std::string certificateFile;
    std::string keyFile;
    std::string userFile;
    std::string passwordFile;
    std::string metricsPipe;
    std::string spool;
    std::string queueAge = "24h";
    std::string ackTimeout = "20s";
    std::string firstPause = "1s";
    std::string longestPause = "60s";
    std::string requestTimeout = "2s";
    unsigned long queueMessages = 20'000;
    unsigned long queueBytes = 16UL * 1024 * 1024;
    std::uint64_t spoolBytes = std::uint64_t{64} * 1024 * 1024;
    unsigned long packetLimit = 1UL << 20;
    unsigned inFlight = 20;
    unsigned drainRate = 500;
    int keepAlive = 15;
    bool bare = false;
    bool check = false;
    bool dryRun = false;
};

/// Settings that have been checked.
struct BridgeSettings
{
    std::string bus;
    std::string prefix;
    std::string module;
    std::string metricsPipe;
    BrokerSettings broker;
    ChannelRules rules;
    QueueLimits queue;
    std::string spool; ///< path of the file; empty for none
    SpoolLimits spoolLimits;
    Nanoseconds requestTimeout = 2 * kSecond;
    unsigned drainRate = 500; ///< messages a second; 0 for no limit
    bool bare = false;

    /// \return whether messages of a channel can be asked for again
    bool keepsInSpool(const std::string& channel) const;
    /// \return the name of the class of a channel that goes out or can be requested; empty for any JSON object
    std::string classOf(const std::string& channel) const;
};

/// Checks settings whose values have been checked one by one, and reads the files with the user's name and the password.
/// \return an error message, or an empty text
std::string checkSettings(const Settings& settings, BridgeSettings& result);

/// \return what would go where, for --check; without any secret
std::string describeSettings(const BridgeSettings& settings);

/// Reads a configuration file in TOML: its keys are the options without dashes, and lists for repeated options.
/// \param given whether an option was on the command line, which takes precedence
/// \return an error message with the line, or an empty text
std::string readConfigFile(const std::string& path, const std::function<bool(const char* option)>& given,
                           Settings& settings);

} // namespace TelvaneTool::Mqtt

#include "catalogue/CompletionValues.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "telvane-mqtt/Bridge.h"
#include "telvane-mqtt/settings/ValueChecks.h"

#include <mosquitto.h>

namespace
{

using namespace TelvaneTool;

int runProgram(const Command& command, Mqtt::Settings& settings)
{
    if (!settings.configFile.empty()) {
        const std::string error = Mqtt::readConfigFile(
            settings.configFile, [&command](const char* option) { return command.given(option); }, settings);
        if (!error.empty()) {
            printError(error);
            return kWrongUsage;
        }
    }
    Mqtt::BridgeSettings bridge;
    const std::string error = Mqtt::checkSettings(settings, bridge);
    if (!error.empty()) {
        printError(error);
        return kWrongUsage;
    }
    if (settings.check) {
        return writeResult(Mqtt::describeSettings(bridge));
    }
    return settings.dryRun ? Mqtt::runDry(bridge) : Mqtt::runBridge(bridge);
}

std::function<std::string(const std::string& text)> checkOf(const char* key)
{
    return [key](const std::string& text) {
        return Mqtt::valueError(key, text);
    };
}

void addChannelOptions(Command& command, Mqtt::Settings& settings)
{
    command
        .option("--out", settings.out,
                "Send the records of CHANNEL. Settings follow after colons: class=CLASS, qos=0, qos=1, "
                "retain, each, batch=TIME, "
                "every=TIME, "
                "changes. A pattern such as Weld* stands for the record classes that it matches")
        .typeName("CHANNEL")
        .repeatable()
        .group("Channels");
    command
        .option("--in", settings.in,
                "Publish on CHANNEL what arrives for it, after checking it against the class of that name or "
                "of :class=CLASS")
        .typeName("CHANNEL")
        .repeatable()
        .group("Channels");
    command.option("--request", settings.requests, "Make requests that arrive for CHANNEL, and answer them")
        .typeName("CHANNEL")
        .repeatable()
        .group("Channels");
    command.flag("--bare", settings.bare, "Send records alone, without number, time, class and session")
        .group("Channels");
}

void addBrokerOptions(Command& command, Mqtt::Settings& settings)
{
    const char* const group = "Broker";
    command
        .option("--broker", settings.broker,
                "Connect to this broker: mqtts://HOST[:PORT] with TLS, or mqtt://")
        .typeName("URL")
        .group(group);
    command.option("--protocol", settings.protocol, "Speak MQTT 5, or 3.1.1, or what the broker can")
        .check(checkOf("protocol"))
        .typeName("5|3.1.1|auto")
        .showDefault()
        .group(group);
    command.option("--ca", settings.caFile, "Trust the authorities in FILE instead of those of the system")
        .typeName("FILE")
        .group(group);
    command.option("--cert", settings.certificateFile, "Present the certificate in FILE")
        .typeName("FILE")
        .group(group);
    command.option("--key", settings.keyFile, "Use the private key in FILE").typeName("FILE").group(group);
    command.option("--user-file", settings.userFile, "Read the user's name from FILE")
        .typeName("FILE")
        .group(group);
    command.option("--password-file", settings.passwordFile, "Read the password from FILE")
        .typeName("FILE")
        .group(group);
    command.option("--keep-alive", settings.keepAlive, "Check an idle connection after this time, in seconds")
        .check(checkOf("keep-alive"))
        .showDefault()
        .group(group);
    command.option("--ack-timeout", settings.ackTimeout, "Reconnect if an acknowledgement takes longer")
        .check(checkOf("ack-timeout"))
        .typeName("TIME")
        .showDefault()
        .group(group);
    command
        .option("--first-pause", settings.firstPause,
                "Wait this long before the first new attempt, shortened at random")
        .check(checkOf("first-pause"))
        .typeName("TIME")
        .showDefault()
        .group(group);
    command.option("--longest-pause", settings.longestPause, "Wait at most this long between attempts")
        .check(checkOf("longest-pause"))
        .typeName("TIME")
        .showDefault()
        .group(group);
    command.option("--in-flight", settings.inFlight, "Send this many messages before their acknowledgements")
        .check(checkOf("in-flight"))
        .showDefault()
        .group(group);
    command
        .option("--packet-limit", settings.packetLimit,
                "Send no packet above this size, in bytes; the broker may lower the limit")
        .check(checkOf("packet-limit"))
        .size()
        .showDefault()
        .group(group);
}

void addQueueOptions(Command& command, Mqtt::Settings& settings)
{
    const char* const group = "Queue";
    command.option("--queue-messages", settings.queueMessages, "Keep this many messages for the broker")
        .check(checkOf("queue-messages"))
        .showDefault()
        .group(group);
    command.option("--queue-bytes", settings.queueBytes, "Keep this many bytes of messages")
        .check(checkOf("queue-bytes"))
        .size()
        .showDefault()
        .group(group);
    command.option("--queue-age", settings.queueAge, "Drop messages that have waited longer")
        .check(checkOf("queue-age"))
        .typeName("TIME")
        .showDefault()
        .group(group);
    command
        .option("--spool", settings.spool,
                "Keep messages of QoS 1 in FILE as well, also when the bridge or the machine stops")
        .typeName("FILE")
        .group(group);
    command
        .option("--spool-bytes", settings.spoolBytes,
                "Limit the file of --spool to this size, in bytes; its log may add 4 MB")
        .check(checkOf("spool-bytes"))
        .size()
        .showDefault()
        .group(group);
    command
        .option("--drain-rate", settings.drainRate,
                "Send this many messages a second that waited for the broker; 0 for no limit")
        .check(checkOf("drain-rate"))
        .showDefault()
        .group(group);
}

} // namespace

int main(int argc, char** argv)
{
    CommandLine line("Connect a bus to an MQTT broker", TELVANE_VERSION, kExitCodeHelp, "telvane-mqtt");
    Mqtt::Settings settings;
    Command command(line);
    command
        .option("--config", settings.configFile,
                "Read options from a TOML file; the command line takes precedence")
        .typeName("FILE");
    command.option("--bus", settings.bus, "Connect to the server at PATH").typeName("PATH");
    command.option("--prefix", settings.prefix, "Begin all topics with this prefix")
        .typeName("TOPIC")
        .showDefault();
    command
        .option("--module", settings.module, "Call the module NAME in topics (default: the name of the host)")
        .typeName("NAME");
    command
        .option("--metrics-pipe", settings.metricsPipe,
                "Create a named pipe at PATH that serves OpenMetrics text")
        .typeName("PATH");
    command.option("--request-timeout", settings.requestTimeout, "Wait this long for the answer to a request")
        .check(checkOf("request-timeout"))
        .typeName("TIME")
        .showDefault();
    command.flag("--check", settings.check, "Check the options, print what would go where, and exit");
    command.flag("--dry-run", settings.dryRun, "Print topics and payloads instead of connecting to a broker");
    addChannelOptions(command, settings);
    addBrokerOptions(command, settings);
    addQueueOptions(command, settings);
    command.examples("# send all welds of a module\n"
                     "telvane-mqtt --bus /run/telvane/bus --broker mqtts://broker.example \\\n"
                     "    --out 'WeldTrigger*' --out HALInfo:retain\n"
                     "# accept log entries of the plant\n"
                     "telvane-mqtt --bus /run/telvane/bus --broker mqtts://broker.example --in LogData\n"
                     "# see what would be sent\n"
                     "telvane-mqtt --bus /run/telvane/bus --out WeldTraceData:batch=100ms --dry-run\n");
    line.completeWith(completionValues([](const std::string&) { return std::vector<std::string>(); }));
    command.run([&command, &settings] { return runProgram(command, settings); });

    openStandardDescriptors();
    blockTerminationSignals();
    mosquitto_lib_init();
    const int result = line.run(argc, argv);
    mosquitto_lib_cleanup();
    return result;
}

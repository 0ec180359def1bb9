#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/bus/RecordBuilder.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"
#include "common/support/TextLines.h"

#include <cstring>
#include <memory>

namespace TelvaneTool
{

namespace
{

using Telvane::TelvaneDataTypeBase;

struct Options
{
    BusOptions bus;
    std::string channel;
    std::string json;
    RecordRequest record;
};

class Publisher
{
public:
    explicit Publisher(const Options& options) : m_channel(options.channel), m_request(options.record) {}

    /// Builds and checks a record. Prints an error on failure.
    std::unique_ptr<TelvaneDataTypeBase> build(const std::string* json, const std::string& place) const
    {
        std::string error;
        auto record = buildRecord(m_request, json, error);
        if (record != nullptr) {
            error = checkPublicationSize(publicationSize(m_channel, *record));
        }
        if (!error.empty()) {
            printError(place + error);
            record.reset();
        }
        return record;
    }

    /// Publishes one record for each line of standard input.
    int publishLines(BusConnection& bus) const
    {
        TextLines lines;
        lines.open("-", [&bus](int fd) { return bus.awaitInput(fd); });
        std::string_view line;
        while (!bus.stopping() && lines.next(line)) {
            if (line.find_first_not_of(" \t") == std::string_view::npos) {
                continue;
            }
            const std::string json(line);
            const auto record = build(&json, "line " + std::to_string(lines.number()) + ": ");
            if (record == nullptr) {
                return kWrongInput; // do not send the following records
            }
            if (!bus.publish(m_channel, *record)) {
                return kBusFailure;
            }
        }
        if (lines.error() != 0) {
            printError(std::string("cannot read standard input: ") + std::strerror(lines.error()));
            return kWrongInput;
        }
        return kSuccess;
    }

private:
    const std::string& m_channel;
    const RecordRequest& m_request;
};

int publish(const Options& options)
{
    const Publisher publisher(options);
    const bool fromInput = options.json == "-";
    std::unique_ptr<TelvaneDataTypeBase> record;
    if (!fromInput) {
        record = publisher.build(options.json.empty() ? nullptr : &options.json, "");
        if (record == nullptr) {
            return kWrongInput;
        }
    }
    BusConnection bus(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess && fromInput) {
        result = publisher.publishLines(bus);
    } else if (result == kSuccess) {
        result = bus.publish(options.channel, *record) ? kSuccess : kBusFailure;
    }
    return bus.finish(result);
}

} // namespace

void addPublishCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "publish", "Publish records on a channel");
    addBusOptions(command, options->bus);
    command.option("CHANNEL", options->channel, "Channel to publish on").required().check(&checkChannel);
    command.option(
        "JSON", options->json,
        "The record, or - to read one record per line from standard input (default: the default record "
        "of --as)");
    addClass(command, "--as", options->record.recordClass,
             "Check the record against this class before sending");
    command
        .option("--set", options->record.settings,
                "Set a field of the record, for example settings.CommandWFS.Value=210, mModes[0].Label=3 or "
                "timestamp=now")
        .typeName("KEY=VALUE")
        .needs("--as")
        .repeatable();
    command.examples("# a record as JSON\n"
                     "telvane publish /tmp/bus LogData '{\"log\":\"hello\"}'\n"
                     "# the defaults of a class, with one field set\n"
                     "telvane publish /tmp/bus HALInfo --as HALInfo --set serialNumber=0042\n"
                     "# one record per line\n"
                     "telvane publish /tmp/bus LogData - < records.jsonl\n");
    command.run([options] { return publish(*options); });
}

} // namespace TelvaneTool

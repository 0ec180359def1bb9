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
#include <vector>

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
    std::string className;
    std::vector<std::string> settings;
};

class Publisher
{
public:
    Publisher(const Options& options, RecordRequest request)
        : m_channel(options.channel), m_request(std::move(request))
    {}

    /// Builds and checks a record, or complains.
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
    int publishLines(BusConnection& session) const
    {
        TextLines lines;
        lines.open("-", [&session](int fd) { return session.awaitInput(fd); });
        std::string_view line;
        while (!session.stopping() && lines.next(line)) {
            if (line.find_first_not_of(" \t") == std::string_view::npos) {
                continue;
            }
            const std::string json(line);
            const auto record = build(&json, "line " + std::to_string(lines.number()) + ": ");
            if (record == nullptr) {
                return kWrongInput; // what comes behind a mistake is better not sent unseen
            }
            if (!session.publish(m_channel, *record)) {
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
    std::string m_channel;
    RecordRequest m_request;
};

int publish(const Options& options)
{
    RecordRequest request;
    request.settings = options.settings;
    if ((!options.className.empty() && !findClass(options.className, request.recordClass))) {
        return kWrongUsage;
    }
    const Publisher publisher(options, std::move(request));
    const bool fromInput = options.json == "-";
    std::unique_ptr<TelvaneDataTypeBase> record;
    if (!fromInput) {
        record = publisher.build(options.json.empty() ? nullptr : &options.json, "");
        if (record == nullptr) {
            return kWrongInput;
        }
    }
    BusConnection session(BusConnection::Output::Unused, BusConnection::Interruption::Aborts);
    int result = session.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess && fromInput) {
        result = publisher.publishLines(session);
    } else if (result == kSuccess) {
        result = session.publish(options.channel, *record) ? kSuccess : kBusFailure;
    }
    return session.finish(result);
}

} // namespace

void addPublishCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "publish", "Publish records on a channel");
    addBusOptions(command, options->bus);
    command.option("CHANNEL", options->channel, "Channel to publish on").required().check(&checkChannel);
    command.option("JSON", options->json,
                   "The record, or - for one record a line from standard input; without it, the "
                   "defaults of the class");
    command.option("--as", options->className, "Check the record as this class before it is sent")
        .typeName("CLASS");
    command
        .option("--set", options->settings,
                "key=value over the record or the class's defaults, as in settings.CommandWFS.Value=210 "
                "or mModes[0].Label=3 or timestamp=now")
        .needs("--as")
        .repeatable();
    command.examples("# a record as it stands\n"
                     "telvane publish /tmp/bus LogData '{\"log\":\"hello\"}'\n"
                     "# the defaults of a class, but for one field\n"
                     "telvane publish /tmp/bus HALInfo --as HALInfo --set serialNumber=0042\n"
                     "# one record a line\n"
                     "telvane publish /tmp/bus LogData - < records.jsonl\n");
    command.run([options] { return publish(*options); });
}

} // namespace TelvaneTool

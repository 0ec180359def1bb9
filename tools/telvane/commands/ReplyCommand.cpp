#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/bus/RecordBuilder.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"
#include "common/support/TextLines.h"

#include <Telvane/RequestType.h>

#include <atomic>
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
    std::uint64_t count = 0;
    bool verbose = false;
};

std::string readInput(const BusConnection& bus)
{
    TextLines lines;
    lines.open("-", [&bus](int fd) { return bus.awaitInput(fd); });
    std::string text;
    std::string_view line;
    while (lines.next(line)) {
        text.append(line).append("\n");
    }
    return text;
}

std::unique_ptr<TelvaneDataTypeBase> buildResponse(const BusConnection& bus, const Options& options)
{
    const std::string json = options.json == "-" ? readInput(bus) : options.json;
    std::string error;
    auto record = buildRecord(options.record, options.json.empty() ? nullptr : &json, error);
    if (record != nullptr) {
        error = checkPublicationSize(publicationSize(options.channel, *record));
    }
    if (!error.empty()) {
        if (!bus.stopping()) {
            printError(error);
        }
        record.reset();
    }
    return record;
}

int respond(BusConnection& bus, const std::atomic<std::uint64_t>& requests, const Options& options,
            TelvaneDataTypeBase& response)
{
    std::uint64_t responses = 0;
    while (options.count == 0 || responses < options.count) {
        if (!bus.waitFor([&] { return requests > responses; }, BusConnection::kNoDeadline) ||
            bus.stopping() || !bus.publish(options.channel, response)) {
            return kBusFailure; // the connection is stopping; finish() sets the exit code
        }
        ++responses;
    }
    return kSuccess;
}

int reply(const Options& options)
{
    // The callback only counts: publishing from it would block the receiver thread while the server is busy.
    std::atomic<std::uint64_t> requests{0};
    BusConnection bus(BusConnection::Output::Unused, options.count == 0
                                                         ? BusConnection::Interruption::ExpectedExit
                                                         : BusConnection::Interruption::Aborts);
    const auto response = buildResponse(bus, options);
    if (response == nullptr) {
        return bus.finish(kWrongInput);
    }
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        result = bus.subscribe(Telvane::kRequestPrefix + options.channel, Telvane::RequestType(),
                               [&](void*, TelvaneDataTypeBase*, int, void*) {
                                   ++requests;
                                   bus.wake();
                               });
    }
    if (options.verbose && result == kSuccess) {
        printStatus("listening");
    }
    if (result == kSuccess) {
        result = respond(bus, requests, options, *response);
    }
    return bus.finish(result);
}

} // namespace

void addReplyCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "reply", "Respond to requests for a channel with a record");
    addBusOptions(command, options->bus);
    command.option("CHANNEL", options->channel, "Channel of the response; requests arrive on req_CHANNEL")
        .required()
        .check(&checkChannel);
    command.option("JSON", options->json,
                   "The response, or - to read it from standard input (default: the default record of --as)");
    addClass(command, "--as", options->record.recordClass, "Check the response against this class");
    command.option("--set", options->record.settings, "Set a field of the record, see telvane publish --help")
        .typeName("KEY=VALUE")
        .needs("--as")
        .repeatable();
    command.option("--count", options->count, "Exit after this many responses").positive();
    command.flag("--verbose", options->verbose,
                 "Print \"listening\" to standard error when the subscription is active");
    command.examples("# respond as a module does\n"
                     "telvane reply /tmp/bus HALInfo --as HALInfo --set serialNumber=0042\n");
    command.run([options] { return reply(*options); });
}

} // namespace TelvaneTool

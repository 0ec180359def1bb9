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
    std::uint64_t count = 0;
    bool verbose = false;
};

std::string readInput(const BusConnection& session)
{
    TextLines lines;
    lines.open("-", [&session](int fd) { return session.awaitInput(fd); });
    std::string text;
    std::string_view line;
    while (lines.next(line)) {
        text.append(line).append("\n");
    }
    return text;
}

std::unique_ptr<TelvaneDataTypeBase> buildAnswer(const BusConnection& session, const Options& options,
                                                 const RecordRequest& request)
{
    const std::string json = options.json == "-" ? readInput(session) : options.json;
    std::string error;
    auto record = buildRecord(request, options.json.empty() ? nullptr : &json, error);
    if (record != nullptr) {
        error = checkPublicationSize(publicationSize(options.channel, *record));
    }
    if (!error.empty()) {
        if (!session.stopping()) {
            printError(error);
        }
        record.reset();
    }
    return record;
}

int answerRequests(BusConnection& session, const std::atomic<std::uint64_t>& requests, const Options& options,
                   TelvaneDataTypeBase& answer)
{
    std::uint64_t answered = 0;
    while (options.count == 0 || answered < options.count) {
        if (!session.waitFor([&] { return requests > answered; }, BusConnection::kNoDeadline) ||
            session.stopping() || !session.publish(options.channel, answer)) {
            return kBusFailure; // only when the session is stopping, which decides on the exit code
        }
        ++answered;
    }
    return kSuccess;
}

int reply(const Options& options)
{
    RecordRequest recordRequest;
    recordRequest.settings = options.settings;
    if ((!options.className.empty() && !findClass(options.className, recordRequest.recordClass))) {
        return kWrongUsage;
    }
    // A callback that published by itself would keep the receiver thread from reading while the server is
    // busy; so it only counts.
    std::atomic<std::uint64_t> requests{0};
    BusConnection session(BusConnection::Output::Unused, options.count == 0
                                                             ? BusConnection::Interruption::ExpectedExit
                                                             : BusConnection::Interruption::Aborts);
    const auto answer = buildAnswer(session, options, recordRequest);
    if (answer == nullptr) {
        return session.finish(kWrongInput);
    }
    int result = session.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        result = session.subscribe(Telvane::kRequestPrefix + options.channel, Telvane::RequestType(),
                                   [&](void*, TelvaneDataTypeBase*, int, void*) {
                                       ++requests;
                                       session.wake();
                                   });
    }
    if (options.verbose && result == kSuccess) {
        printError("listening");
    }
    if (result == kSuccess) {
        result = answerRequests(session, requests, options, *answer);
    }
    return session.finish(result);
}

} // namespace

void addReplyCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "reply", "Answer every request for a channel with a record, until interrupted");
    addBusOptions(command, options->bus);
    command.option("CHANNEL", options->channel, "Channel of the answer; requests come on req_CHANNEL")
        .required()
        .check(&checkChannel);
    command.option("JSON", options->json,
                   "The answer, or - to read it from standard input; without it, the defaults of the "
                   "class");
    command.option("--as", options->className, "Check the answer as this class").typeName("CLASS");
    command.option("--set", options->settings, "key=value over the record or the class's defaults")
        .needs("--as")
        .repeatable();
    command.option("--count", options->count, "End after this many answers").positive();
    command.flag("--verbose", options->verbose,
                 "Say on standard error when no request from then on will be missed");
    command.examples("# answer as a module would\n"
                     "telvane reply /tmp/bus HALInfo --as HALInfo --set serialNumber=0042\n");
    command.run([options] { return reply(*options); });
}

} // namespace TelvaneTool

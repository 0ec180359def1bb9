#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/ChannelPattern.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"
#include "listen/FormatOptions.h"
#include "recording/RecordingInput.h"

#include <Telvane/RecordCatalogue.h>

#include <memory>
#include <vector>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxPending = 65536;

struct Options
{
    std::vector<std::string> files;
    std::vector<std::string> only;
    RecordingRange range;
    FormatOptions format;
};

void reportMissed(const RecordedMessage& message, Nanoseconds started)
{
    if (message.outage) {
        printError("there was no connection between " +
                   printMoment(addSaturated(started, message.missedFrom)) + " and " +
                   printMoment(addSaturated(started, message.missedTo)));
        return;
    }
    printError("missed " + printNumber(message.missed, "record") + " on " + std::string(message.channel) +
               " between " + printMoment(addSaturated(started, message.missedFrom)) + " and " +
               printMoment(addSaturated(started, message.missedTo)));
}

int show(Options& options)
{
    const TerminationSignals end(TerminationSignals::Effect::End);
    if (!readFilters(options.format) || !checkFields(options.format, options.only, nullptr)) {
        return kWrongUsage;
    }
    RecordingInput input(options.files, options.range);
    if (!input.open()) {
        return kWrongInput;
    }
    RecordFormatter formatter(options.format.settings);
    std::string output = formatter.heading();
    RecordedMessage message;
    while (input.next(message)) {
        if (!message.outage && !matchesAnyPattern(options.only, message.channel)) {
            continue;
        }
        if (message.isNote()) {
            reportMissed(message, input.header().started);
            continue;
        }
        const std::string channel(message.channel);
        output += formatter.print({channel, message.sequence, std::string(message.payload),
                                   Telvane::RecordCatalogue::find(channel),
                                   addSaturated(input.header().started, message.time), message.time});
        if (output.size() >= kMaxPending) {
            if (const int result = writeResult(output); result != kSuccess) {
                return result;
            }
            output.clear();
        }
    }
    const int result = input.finish();
    const int written = writeResult(output);
    return written != kSuccess ? written : result;
}

} // namespace

void addShowCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "show", "Print the records of a recording");
    command.option("FILE", options->files, "Recordings, in order; - is standard input").required();
    command.option("--only", options->only, "Print only channels that match PATTERN")
        .typeName("PATTERN")
        .repeatable();
    addRangeOptions(command, options->range);
    addFormatOptions(command, options->format);
    command.examples("# print the records of a second, indented\n"
                     "telvane show weld.jsonl --from 12s --to 13s --pretty\n"
                     "# extract current and voltage for a spreadsheet\n"
                     "telvane show weld.jsonl --only WeldTraceData --csv data.amps,data.volts >weld.csv\n"
                     "# print where the current is high\n"
                     "telvane show weld.jsonl.zst --where 'data.amps>250' -F '%t %{data.amps}'\n");
    command.run([options] { return show(*options); });
}

} // namespace TelvaneTool

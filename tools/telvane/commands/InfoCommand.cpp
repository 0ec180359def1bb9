#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "recording/RecordingReader.h"
#include "recording/RecordingSummary.h"

#include <memory>

namespace TelvaneTool
{

namespace
{

struct Options
{
    std::string file;
    bool json = false;
};

int describe(const Options& options)
{
    RecordingReader reader;
    if (!reader.open(options.file)) {
        return kWrongInput;
    }
    RecordingSummary summary;
    RecordedMessage message;
    while (reader.next(message)) {
        summary.add(message);
    }
    const int result = reader.finish();
    const RecordingSummary::File file = {options.file, reader.header(), reader.bytes(), reader.tornBytes(),
                                         reader.damagedLines()};
    const int written = writeResult(options.json ? summary.json(file) : summary.text(file));
    return written != kSuccess ? written : result;
}

} // namespace

void addInfoCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "info", "Summarize a recording: time span, channels, counts, rates, gaps");
    command.option("FILE", options->file, "Recording, or - for standard input").required();
    command.flag("--json", options->json, "Print JSON");
    command.examples("# summary\n"
                     "telvane info weld.jsonl\n"
                     "# the rate of each channel\n"
                     "telvane info weld.jsonl --json | jq '.channels[] | {channel, rate}'\n");
    command.run([options] { return describe(*options); });
}

} // namespace TelvaneTool

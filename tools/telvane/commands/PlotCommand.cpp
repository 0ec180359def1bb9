#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/OutputFile.h"
#include "plot/Gnuplot.h"
#include "plot/WeldPlot.h"
#include "recording/RecordingInput.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxWelds = 40; ///< in one picture

struct Options
{
    std::vector<std::string> files;
    RecordingRange range;
    std::string output;
    std::vector<std::string> welds;
};

/// Keeps the requested welds. Prints the reason if there are none.
bool choose(std::vector<RecordedWeld>& welds, const std::vector<std::string>& wanted)
{
    for (const std::string& tag : wanted) {
        if (std::none_of(welds.begin(), welds.end(),
                         [&tag](const RecordedWeld& weld) { return weld.tag() == tag; })) {
            printError("the recording has no weld " + tag);
            return false;
        }
    }
    if (!wanted.empty()) {
        welds.erase(std::remove_if(welds.begin(), welds.end(),
                                   [&wanted](const RecordedWeld& weld) {
                                       return std::find(wanted.begin(), wanted.end(), weld.tag()) ==
                                              wanted.end();
                                   }),
                    welds.end());
    }
    if (welds.empty()) {
        printError("the recording has no weld: no record on WeldTriggerStart");
        return false;
    }
    if (welds.size() > kMaxWelds) {
        printError("the recording has " + std::to_string(welds.size()) + " welds, a picture can show " +
                   std::to_string(kMaxWelds) + "; select some with --weld");
        return false;
    }
    return true;
}

int reportWriteError(const std::string& path, int error)
{
    printError("cannot write " + path + ": " + std::strerror(error));
    return kOutputFailure;
}

std::string titleOf(const std::vector<std::string>& files)
{
    return files.size() == 1 ? files.front() : files.front() + " to " + files.back();
}

int draw(const std::vector<RecordedWeld>& welds, const Options& options)
{
    OutputFile file;
    int error = file.open(options.output);
    if (error != 0) {
        return reportWriteError(options.output, error);
    }
    std::string picture;
    const int result =
        runGnuplot(printPlot(welds, plotTerminal(options.output), titleOf(options.files)), picture);
    if (result != kSuccess) {
        return result;
    }
    error = file.write(picture);
    error = error == 0 ? file.commit() : error;
    return error == 0 ? static_cast<int>(kSuccess) : reportWriteError(options.output, error);
}

/// Reports what could not be drawn.
/// \return an exit code
int reportMissing(const WeldTraces& traces)
{
    if (traces.missed() != 0) {
        printError("records of welds that the recorder missed: " + std::to_string(traces.missed()));
    }
    if (traces.strays() != 0) {
        printError("samples that belong to no weld in the recording: " + std::to_string(traces.strays()));
    }
    for (const RecordedWeld& weld : traces.welds()) {
        if (!weld.started) {
            printError("the recording has no start of " + (weld.ended ? "weld " + weld.tag() : "a weld") +
                       ", which is drawn from its sample " + std::to_string(weld.samples.front().number) +
                       " on");
        }
    }
    for (const int tag : traces.strayEnds()) {
        printError("the recording has no start of weld " + std::to_string(tag));
    }
    if (traces.undecodable() != 0) {
        printError("undecodable records of welds: " + std::to_string(traces.undecodable()));
        return kWrongInput;
    }
    return kSuccess;
}

constexpr int kUnreadable = -1;

/// \return an exit code, or kUnreadable
int read(const Options& options, WeldTraces& traces)
{
    const TerminationSignals end(TerminationSignals::Effect::End);
    RecordingInput input(options.files, options.range);
    if (!input.open()) {
        return kUnreadable;
    }
    RecordedMessage message;
    while (input.next(message)) {
        traces.add(message);
    }
    traces.finish();
    return input.finish();
}

int plot(const Options& options)
{
    for (const std::string& file : options.files) {
        if (isSameFile(file, options.output)) {
            printError("FILE and --output are the same file");
            return kWrongUsage;
        }
    }
    WeldTraces traces;
    const int readResult = read(options, traces);
    if (readResult == kUnreadable) {
        return kWrongInput;
    }
    const int result = std::max(reportMissing(traces), readResult);
    std::vector<RecordedWeld> welds = traces.welds();
    if (!choose(welds, options.welds)) {
        return kWrongInput;
    }
    const int drawn = draw(welds, options);
    return drawn != kSuccess ? drawn : result;
}

} // namespace

void addPlotCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "plot", "Draw the welds of a recording with gnuplot");
    command.option("FILE", options->files, "Recordings, in order; - is standard input").required();
    addRangeOptions(command, options->range);
    command
        .option("-o,--output", options->output,
                "Write the picture to FILE, whose name ends with .svg or .png")
        .required()
        .check([](const std::string& text) {
            return plotTerminal(text).empty() ? "the name must end with .svg or .png" : std::string();
        })
        .typeName("FILE");
    command.option("--weld", options->welds, "Draw only the weld with this tag").repeatable().typeName("TAG");
    command.examples("# all welds, one below the other\n"
                     "telvane plot weld.jsonl -o weld.svg\n"
                     "# one weld, enlarged\n"
                     "telvane plot weld.jsonl -o weld.png --weld 3\n");
    command.run([options] { return plot(*options); });
}

} // namespace TelvaneTool

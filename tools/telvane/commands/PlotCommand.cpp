#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "plot/Gnuplot.h"
#include "plot/WeldPlot.h"
#include "recording/RecordingReader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kMaxWelds = 40; ///< rows of one picture

struct Options
{
    std::string file;
    std::string output;
    std::vector<std::string> welds;
};

/// Leaves those welds that are wanted, or complains.
bool choose(std::vector<RecordedWeld>& welds, const std::vector<std::string>& wanted)
{
    for (const std::string& tag : wanted) {
        if (std::none_of(welds.begin(), welds.end(), [&tag](const RecordedWeld& weld) {
                return std::to_string(weld.start.tag) == tag;
            })) {
            printError("there is no weld " + tag + " in the recording");
            return false;
        }
    }
    if (!wanted.empty()) {
        welds.erase(std::remove_if(welds.begin(), welds.end(),
                                   [&wanted](const RecordedWeld& weld) {
                                       return std::find(wanted.begin(), wanted.end(),
                                                        std::to_string(weld.start.tag)) == wanted.end();
                                   }),
                    welds.end());
    }
    if (welds.empty()) {
        printError("there is no weld in the recording: no record on WeldTriggerStart");
        return false;
    }
    if (welds.size() > kMaxWelds) {
        printError("there are " + std::to_string(welds.size()) + " welds, and a picture takes " +
                   std::to_string(kMaxWelds) + "; --weld chooses some");
        return false;
    }
    return true;
}

/// Draws beside the place of the picture first: what is there is either whole or the one from before.
int draw(const std::vector<RecordedWeld>& welds, const Options& options)
{
    const std::size_t dot = options.output.rfind('.');
    const std::string unfinished =
        options.output.substr(0, dot) + "." + std::to_string(getpid()) + options.output.substr(dot);
    int result = runGnuplot(printPlot(welds, unfinished, options.file));
    if (result == kSuccess && std::rename(unfinished.c_str(), options.output.c_str()) != 0) {
        printError("cannot write " + options.output + ": " + std::strerror(errno));
        result = kOutputFailure;
    }
    if (result != kSuccess) {
        std::remove(unfinished.c_str());
    }
    return result;
}

int plot(const Options& options)
{
    RecordingReader reader;
    if (!reader.open(options.file)) {
        return kWrongInput;
    }
    WeldTraces traces;
    RecordedMessage message;
    while (reader.next(message)) {
        traces.add(message);
    }
    int result = reader.finish();
    if (traces.unreadable() != 0) {
        printError("records that are no parts of welds and were left out: " +
                   std::to_string(traces.unreadable()));
        result = kWrongInput;
    }
    if (traces.strays() != 0) {
        printError("samples from before the first start, left out: " + std::to_string(traces.strays()));
    }
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
    Command command(line, "plot", "Draw the welds of a recording, with gnuplot");
    command.option("FILE", options->file, "Recording, or - for standard input").required();
    command.option("-o,--output", options->output, "Picture to write: .svg or .png")
        .required()
        .check([](const std::string& text) {
            return plotTerminal(text).empty() ? "a picture's name ends with .svg or .png" : std::string();
        })
        .typeName("FILE");
    command.option("--weld", options->welds, "Draw only the weld of this tag; may be given again")
        .repeatable()
        .typeName("TAG");
    command.examples("# all welds below each other\n"
                     "telvane plot weld.jsonl -o weld.svg\n"
                     "# one of them, larger\n"
                     "telvane plot weld.jsonl -o weld.png --weld 3\n");
    command.run([options] { return plot(*options); });
}

} // namespace TelvaneTool

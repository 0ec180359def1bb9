// Recordings as the tool reads them: any bytes as the lines after the first. Whatever they contain, the summary is
// valid JSON, every sample belongs to a weld or is counted as a stray, and the script for the diagram has a panel
// for each weld. A line that is read can be written and read again without a change.

#include "FuzzSupport.h"

#include "common/support/Json.h"
#include "plot/WeldPlot.h"
#include "plot/WeldTraces.h"
#include "recording/RecordingLine.h"
#include "recording/RecordingSummary.h"

#include <algorithm>
#include <cstdint>

using Telvane::require;

namespace TelvaneTool
{
namespace
{

constexpr Nanoseconds kStarted = 1'704'164'645 * kSecond;

/// \return whether it is valid UTF-8 without a null; otherwise it is repaired when it is written
bool isText(std::string_view text)
{
    std::uint64_t replaced = 0;
    printJson(JsonTree(cJSON_CreateString(std::string(text).c_str())).get(), false, &replaced);
    return replaced == 0 && text.find('\0') == std::string_view::npos;
}

/// \return whether it is written with codes: then the JSON library reads the line, whose payload need not be JSON
bool hasCodes(std::string_view text)
{
    const JsonTree tree(cJSON_CreateString(std::string(text).c_str()));
    return printJson(tree.get()).find('\\') != std::string::npos;
}

void checkAgain(const RecordedMessage& message)
{
    if (message.channel.find_first_of("\"\\") != std::string_view::npos || hasCodes(message.group)) {
        return; // no server relays such a channel
    }
    std::string text;
    appendMessage(text, message);
    RecordingLineReader reader;
    RecordedMessage again;
    require(!text.empty() && text.back() == '\n', "a line ends with a newline");
    text.pop_back();
    require(reader.read(text, again), "what has been written can be read");
    require(again.time == message.time && again.channel == message.channel && again.missed == message.missed,
            "a line keeps its time, channel and kind");
    if (message.missed == 0) {
        require(again.sequence == message.sequence, "a line keeps its sequence number");
        require(again.group == message.group || !isText(message.group), "a line keeps its group");
    } else {
        require(again.missedFrom == message.missedFrom && again.missedTo == message.missedTo,
                "a note keeps its times");
    }
}

/// \return how many samples were recorded
std::uint64_t samplesOf(const WeldTraces& traces)
{
    std::uint64_t samples = traces.strays();
    for (const RecordedWeld& weld : traces.welds()) {
        samples += weld.sampleCount;
    }
    return samples;
}

void check(std::string_view content)
{
    RecordingSummary summary;
    WeldTraces traces;
    WeldTraces counted(false);
    RecordingLineReader reader;
    RecordedMessage message;
    while (!content.empty()) {
        const std::string_view line = content.substr(0, content.find('\n'));
        content.remove_prefix(std::min(line.size() + 1, content.size()));
        if (reader.read(line, message)) {
            summary.add(message);
            traces.add(message);
            counted.add(message);
            checkAgain(message);
        }
    }
    RecordingSummary::File file;
    file.header.started = kStarted;
    std::string error;
    require(parseJson(printJson(summary.json(file).get()), error) != nullptr, "the summary is JSON");
    require(!summary.text(file).empty(), "a summary has text");
    require(traces.welds().size() == counted.welds().size() && samplesOf(traces) == samplesOf(counted) &&
                traces.strays() == counted.strays(),
            "samples belong to the same welds or are strays, kept or not");
    for (const RecordedWeld& weld : traces.welds()) {
        require(weld.samples.size() == weld.sampleCount, "samples are counted");
        for (std::size_t i = 0; i < weld.samples.size(); ++i) {
            require(weld.samples[i].time >= 0, "samples are not before the start");
            require(i == 0 || weld.samples[i].number > weld.samples[i - 1].number, "samples are in order");
        }
    }
    require(!printPlot(traces.welds(), "svg", "x").empty(), "welds can be drawn");
}

} // namespace
} // namespace TelvaneTool

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    TelvaneTool::check(Telvane::textOf(data, size));
    return 0;
}

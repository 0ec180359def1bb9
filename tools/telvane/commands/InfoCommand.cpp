#include "commands/Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"
#include "common/support/Table.h"
#include "plot/WeldTraces.h"
#include "recording/RecordingRange.h"
#include "recording/RecordingReader.h"
#include "recording/RecordingSummary.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace TelvaneTool
{

namespace
{

struct Options
{
    std::vector<std::string> files;
    RecordingRange range;
    bool json = false;
};

std::string arcTimeOf(const RecordedWeld& weld)
{
    if (!weld.ended) {
        return "no end";
    }
    const auto& duration = weld.metrics.ArcDuration;
    return duration.Unit.empty() ? "-" : formatted("%.3f ", duration.Value) + duration.Unit;
}

/// \return the start of a weld; of one that is in progress when the recording begins, its first sample
std::string startOf(const RecordedWeld& weld)
{
    return (weld.started ? "" : "before ") + printMoment(stampOf(weld.start.timestamp));
}

std::string printWelds(const WeldTraces& traces)
{
    if (traces.welds().empty()) {
        return {};
    }
    const bool hasGroups = std::any_of(traces.welds().begin(), traces.welds().end(),
                                       [](const RecordedWeld& weld) { return !weld.group.empty(); });
    std::vector<Table::Column> columns = {
        {"weld", true}, {"start"}, {"samples", true}, {"missing", true}, {"arc time", true}};
    if (hasGroups) {
        columns.push_back({"group"});
    }
    Table table(columns);
    for (const RecordedWeld& weld : traces.welds()) {
        std::vector<Table::Cell> row = {weld.tag(), startOf(weld), std::to_string(weld.sampleCount),
                                        std::to_string(weld.missing), arcTimeOf(weld)};
        if (hasGroups) {
            row.emplace_back(weld.group);
        }
        table.add(std::move(row));
    }
    return "\n" + table.print();
}

void addWelds(cJSON* object, const WeldTraces& traces)
{
    cJSON* const welds = cJSON_AddArrayToObject(object, "welds");
    for (const RecordedWeld& weld : traces.welds()) {
        cJSON* const item = cJSON_CreateObject();
        if (weld.hasTag()) {
            addNumber(item, "tag", weld.start.tag);
        } else {
            cJSON_AddNullToObject(item, "tag");
        }
        if (weld.started) {
            addText(item, "start", printMoment(stampOf(weld.start.timestamp)));
        } else {
            cJSON_AddNullToObject(item, "start");
        }
        addNumber(item, "samples", weld.sampleCount);
        addNumber(item, "missing", weld.missing);
        cJSON_AddBoolToObject(item, "ended", weld.ended ? 1 : 0);
        if (!weld.group.empty()) {
            addText(item, "group", weld.group);
        }
        cJSON_AddItemToArray(welds, item);
    }
}

/// \return whether the message is before (-1), in (0) or after (1) the range
int compare(const RecordedMessage& message, const RecordingRange& range, Nanoseconds started,
            Nanoseconds origin)
{
    const Nanoseconds moment = addSaturated(started, message.time);
    const Nanoseconds first = addSaturated(started, origin);
    if (range.to.has_value() && moment >= range.to->moment(first)) {
        return 1;
    }
    return range.from.has_value() && moment < range.from->moment(first) ? -1 : 0;
}

int describe(const std::string& path, const Options& options, std::string& text)
{
    RecordingReader reader;
    if (!reader.open(path)) {
        return kWrongInput;
    }
    RecordingSummary summary;
    WeldTraces traces(false);
    RecordedMessage message;
    bool begun = false;
    Nanoseconds origin = 0;
    while (reader.next(message)) {
        origin = begun ? origin : message.time;
        begun = true;
        const int place = compare(message, options.range, reader.header().started, origin);
        if (place > 0) {
            break;
        }
        if (place == 0) {
            summary.add(message);
            traces.add(message);
        }
    }
    const int result = reader.finish();
    const RecordingSummary::File file = {path, reader.header(), reader.bytes(), reader.tornBytes(),
                                         reader.damagedLines()};
    if (options.json) {
        const JsonTree tree = summary.json(file);
        addWelds(tree.get(), traces);
        text += printJson(tree.get()) + "\n";
    } else {
        text += (text.empty() ? "" : "\n") + summary.text(file) + printWelds(traces);
    }
    return result;
}

int describeAll(const Options& options)
{
    const TerminationSignals end(TerminationSignals::Effect::End);
    int result = kSuccess;
    std::string text;
    for (const std::string& path : options.files) {
        result = std::max(result, describe(path, options, text));
    }
    const int written = text.empty() ? static_cast<int>(kSuccess) : writeResult(text);
    return written != kSuccess ? written : result;
}

} // namespace

void addInfoCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "info", "Summarize recordings: time span, channels, rates, gaps, welds");
    command.option("FILE", options->files, "Recordings, also .gz and .zst; - is standard input").required();
    addRangeOptions(command, options->range);
    command.flag("--json", options->json, "Print JSON, one line for each recording");
    command.examples("# summary\n"
                     "telvane info weld.jsonl\n"
                     "# the rate of each channel\n"
                     "telvane info weld.jsonl --json | jq '.channels[] | {channel, rate}'\n");
    command.run([options] { return describeAll(*options); });
}

} // namespace TelvaneTool

#include "Commands.h"
#include "OverlayPlot.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Table.h"
#include "plot/WeldPlot.h"

#include <memory>

namespace TelvaneArchive
{

namespace
{

struct Options
{
    std::string database;
    std::int64_t first = 0;
    std::int64_t second = 0;
    bool json = false;
    std::string output;
    std::string like;
};

std::string differenceOf(double first, double second)
{
    return first != 0.0 ? TelvaneTool::formatted("%+.1f %%", (second - first) / first * 100.0)
                        : std::string("-");
}

int compare(const Options& options)
{
    if (!options.output.empty() && TelvaneTool::plotTerminal(options.output).empty()) {
        TelvaneTool::printError("--output: the file's name must end with .svg or .png");
        return TelvaneTool::kWrongUsage;
    }
    const auto reader = openArchive(options.database);
    if (!reader) {
        return TelvaneTool::kWrongInput;
    }
    const std::optional<Weld> first = readWeld(*reader, options.first);
    const std::optional<Weld> second = first ? readWeld(*reader, options.second) : std::nullopt;
    if (!second) {
        return TelvaneTool::kWrongInput;
    }
    if (!options.output.empty()) {
        const int drawn = drawOverlay(*reader, {*first, *second}, options.like, options.output);
        if (drawn != TelvaneTool::kSuccess) {
            return drawn;
        }
    }
    const std::string titles[] = {std::to_string(options.first), std::to_string(options.second)};
    TelvaneTool::Table table(
        {{"METRIC"}, {titles[0].c_str(), true}, {titles[1].c_str(), true}, {"DIFFERENCE", true}, {"UNIT"}});
    const TelvaneTool::JsonTree object(cJSON_CreateObject());
    for (const Column column : allColumns()) {
        const bool setting = infoOf(column).use == ColumnUse::Setting;
        if ((!isMetric(column) && !setting) || !first->has(column) || !second->has(column)) {
            continue;
        }
        const bool text = infoOf(column).type == ColumnType::Text;
        if (setting && (*first)[column] == (*second)[column]) {
            continue; // only settings that differ are shown
        }
        table.add({infoOf(column).name, printValue((*first)[column]), printValue((*second)[column]),
                   text ? "" : differenceOf(first->number(column), second->number(column)),
                   infoOf(column).unit});
        if (!text) {
            cJSON* const pair = cJSON_AddArrayToObject(object.get(), infoOf(column).name);
            cJSON_AddItemToArray(pair, cJSON_CreateNumber(first->number(column)));
            cJSON_AddItemToArray(pair, cJSON_CreateNumber(second->number(column)));
        }
    }
    return TelvaneTool::writeResult(options.json ? TelvaneTool::printJson(object.get()) + "\n"
                                                 : table.print());
}

} // namespace

void addCompareCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "compare",
                                 "Compare the metrics of two welds, and the settings that differ");
    addDatabase(command, options->database);
    command.option("ID", options->first, "Weld").required();
    command.option("OTHER", options->second, "Another weld").required();
    command.flag("--json", options->json, "Print a JSON object with both values of each metric");
    command
        .option(
            "-o,--output", options->output,
            "Also draw both over each other in FILE, .svg or .png, with the range of welds like the first")
        .typeName("FILE");
    addLike(command, options->like).needs("--output");
    command.examples("telvane welds compare welds.db 16 17 -o difference.svg\n");
    command.run([options] { return compare(*options); });
}

} // namespace TelvaneArchive

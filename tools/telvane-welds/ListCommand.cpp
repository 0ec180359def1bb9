#include "Commands.h"
#include "archive/reader/WeldText.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"
#include "common/support/Table.h"

#include <memory>

namespace TelvaneArchive
{

namespace
{

struct Options
{
    std::string database;
    FilterOptions filter;
    std::string order;
    bool ascending = false;
    unsigned limit = 100;
    bool json = false;
};

std::string printTable(const std::vector<Weld>& welds)
{
    TelvaneTool::Table table({{"ID", true},
                              {"START"},
                              {"PART"},
                              {"PROGRAM", true},
                              {"ARC s", true},
                              {"A", true},
                              {"V", true},
                              {"kJ", true},
                              {"SAMPLES", true},
                              {"MISSED", true},
                              {"ENDING"},
                              {"VERDICT"}});
    const auto number = [](const Weld& weld, Column column, const char* format, double scale = 1.0) {
        return weld.has(column) ? TelvaneTool::formatted(format, weld.number(column) * scale)
                                : std::string("-");
    };
    for (const Weld& weld : welds) {
        table.add({std::to_string(weld.id), printLocal(weld.whole(Column::StartNs)),
                   printValue(weld[Column::PartNumber]), printValue(weld[Column::Program]),
                   number(weld, Column::ArcTime, "%.2f"), number(weld, Column::MeanAmps, "%.0f"),
                   number(weld, Column::MeanVolts, "%.1f"), number(weld, Column::Energy, "%.1f", 1e-3),
                   printValue(weld[Column::Samples]), printValue(weld[Column::Missed]),
                   printValue(weld[Column::Ending]), printValue(weld[Column::Verdict])});
    }
    return table.print();
}

int list(const Options& options)
{
    ArchiveReader::Query query;
    if (!options.filter.read(query.filter)) {
        return TelvaneTool::kWrongUsage;
    }
    if (!options.order.empty()) {
        query.order = findColumn(options.order);
        if (!query.order) {
            TelvaneTool::printError("--order: \"" + options.order + "\" is not a column");
            return TelvaneTool::kWrongUsage;
        }
    }
    query.ascending = options.ascending;
    query.limit = options.limit;
    const auto reader = openArchive(options.database);
    if (!reader) {
        return TelvaneTool::kWrongInput;
    }
    std::vector<Weld> welds;
    if (const Status status = reader->list(query, welds); !status) {
        return reportFailure(status);
    }
    std::string text;
    if (options.json) {
        for (const Weld& weld : welds) {
            text += jsonLine(weld);
        }
    } else {
        text = printTable(welds);
    }
    return TelvaneTool::writeResult(text);
}

} // namespace

void addListCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "list", "List welds, newest first");
    addDatabase(command, options->database);
    addFilterOptions(command, options->filter);
    command.option("--order", options->order, "Order by COLUMN, largest first").typeName("COLUMN");
    command.flag("--ascending", options->ascending, "Print the oldest or smallest first");
    command.option("--limit", options->limit, "Print at most this many welds").within(1, 10000).showDefault();
    command.flag("--json", options->json, "Print all columns, one JSON object per line");
    command.examples("# the last welds above 180 A\n"
                     "telvane welds welds.db --where \"mean_amps > 180\" --limit 20\n");
    command.run([options] { return list(*options); });
}

} // namespace TelvaneArchive

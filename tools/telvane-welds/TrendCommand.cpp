#include "Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Table.h"
#include "plot/Gnuplot.h"
#include "plot/WeldPlot.h"

#include <memory>

namespace TelvaneArchive
{

namespace
{

struct Options
{
    std::string database;
    std::string metric;
    FilterOptions filter;
    bool byPart = false;
    bool json = false;
    std::string output;
};

using Points = std::vector<ArchiveReader::TrendPoint>;

std::string printTable(const Points& points, const ColumnInfo& metric, bool byPart)
{
    TelvaneTool::Table table({{byPart ? "PART" : "DAY"},
                              {"WELDS", true},
                              {"MEAN", true},
                              {"MIN", true},
                              {"MAX", true},
                              {"DEVIATION", true},
                              {"UNIT"}});
    for (const auto& point : points) {
        table.add({point.group.empty() ? "-" : point.group, std::to_string(point.welds),
                   printValue(point.mean), printValue(point.min), printValue(point.max),
                   printValue(point.deviation), metric.unit});
    }
    return table.print();
}

std::string printLines(const Points& points)
{
    std::string text;
    for (const auto& point : points) {
        const TelvaneTool::JsonTree object(cJSON_CreateObject());
        TelvaneTool::addText(object.get(), "group", point.group);
        TelvaneTool::addNumber(object.get(), "welds", point.welds);
        TelvaneTool::addNumber(object.get(), "mean", point.mean);
        TelvaneTool::addNumber(object.get(), "min", point.min);
        TelvaneTool::addNumber(object.get(), "max", point.max);
        TelvaneTool::addNumber(object.get(), "deviation", point.deviation);
        text += TelvaneTool::printJson(object.get()) + "\n";
    }
    return text;
}

/// Groups are numbered, and labelled only by the days of the file: a part number may contain anything.
std::string printScript(const Points& points, const ColumnInfo& metric, const std::string& terminal,
                        bool byPart)
{
    std::string script = "set terminal " + terminal + "\nset title \"" + metric.meaning +
                         "\"\nset ylabel \"" + metric.name + " (" + metric.unit + ")\"\nset xlabel \"" +
                         (byPart ? "part, in the order of the table" : "day (UTC)") +
                         "\"\nset grid\nset offsets 0.5, 0.5, 0, 0\n";
    if (!byPart) {
        script +=
            "set xdata time\nset timefmt \"%Y-%m-%d\"\nset format x \"%Y-%m-%d\"\nset xtics rotate by -30\n";
    }
    script += "$welds << END\n";
    for (std::size_t i = 0; i < points.size(); ++i) {
        script += (byPart ? std::to_string(i + 1) : points[i].group) +
                  TelvaneTool::formatted(" %.9g %.9g %.9g\n", points[i].mean, points[i].min, points[i].max);
    }
    return script + "END\nplot $welds using 1:2:3:4 with yerrorbars title \"least, mean, most\", "
                    "$welds using 1:2 with lines title \"mean\"\n";
}

int trend(const Options& options)
{
    const auto metric = findColumn(options.metric);
    if (!metric || infoOf(*metric).type == ColumnType::Text) {
        TelvaneTool::printError("\"" + options.metric + "\" is not a column with numbers");
        return TelvaneTool::kWrongUsage;
    }
    if (!options.output.empty() && TelvaneTool::plotTerminal(options.output).empty()) {
        TelvaneTool::printError("--output: the file's name must end with .svg or .png");
        return TelvaneTool::kWrongUsage;
    }
    WeldFilter filter;
    if (!options.filter.read(filter)) {
        return TelvaneTool::kWrongUsage;
    }
    const auto reader = openArchive(options.database);
    if (!reader) {
        return TelvaneTool::kWrongInput;
    }
    Points points;
    if (const Status status = reader->trend(*metric, filter, options.byPart, points); !status) {
        return reportFailure(status);
    }
    if (!options.output.empty() && !points.empty()) {
        std::string picture;
        int result = TelvaneTool::runGnuplot(
            printScript(points, infoOf(*metric), TelvaneTool::plotTerminal(options.output), options.byPart),
            picture);
        result = result == TelvaneTool::kSuccess ? writeFile(options.output, picture) : result;
        if (result != TelvaneTool::kSuccess) {
            return result;
        }
    }
    return TelvaneTool::writeResult(options.json ? printLines(points)
                                                 : printTable(points, infoOf(*metric), options.byPart));
}

} // namespace

void addTrendCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "trend",
                                 "Show how a metric changes from day to day, or from part to part");
    addDatabase(command, options->database);
    command.option("METRIC", options->metric, "Column with numbers, such as mean_amps").required();
    addFilterOptions(command, options->filter);
    command.flag("--by-part", options->byPart, "Print one line for each part number, not for each day");
    command.flag("--json", options->json, "Print one JSON object per line");
    command.option("-o,--output", options->output, "Also draw a picture in FILE, .svg or .png")
        .typeName("FILE");
    command.examples("# the last 30 days\n"
                     "telvane welds trend welds.db mean_volts --from 720h\n");
    command.run([options] { return trend(*options); });
}

} // namespace TelvaneArchive

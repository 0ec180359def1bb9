#include "Commands.h"
#include "SampleExport.h"
#include "archive/reader/WeldText.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"

#include <algorithm>
#include <filesystem>
#include <memory>

namespace TelvaneArchive
{

namespace
{

struct Options
{
    std::string database;
    FilterOptions filter;
    std::string format = "csv";
    std::string samples;
    bool comma = false;

    bool isSheet() const { return format == "spreadsheet"; }
};

/// A spreadsheet has 15 digits, no time zones, and takes what begins with = for a formula. Lines end without \r, which
/// writeResult() replaces as it does all control characters.
class SheetFormat
{
public:
    explicit SheetFormat(bool comma) : m_comma(comma), m_separator(comma ? ";" : ",") {}

    std::string heading() const
    {
        std::string line = "\xef\xbb\xbf"
                           "id"; // with the mark of UTF-8
        for (const Column column : allColumns()) {
            const ColumnInfo& info = infoOf(column);
            const std::string name = isMoment(column) ? momentName(column) : info.name;
            const std::string unit = isMoment(column) ? "" : info.unit;
            line += m_separator + name + (unit.empty() ? "" : " (" + unit + ")");
        }
        return line + "\n";
    }

    std::string line(const Weld& weld) const
    {
        std::string line = std::to_string(weld.id);
        for (const Column column : allColumns()) {
            line += m_separator + field(weld, column);
        }
        return line + "\n";
    }

private:
    static bool isMoment(Column column) { return column == Column::StartNs || column == Column::EndNs; }
    static std::string momentName(Column column) { return column == Column::StartNs ? "start" : "end"; }

    std::string field(const Weld& weld, Column column) const
    {
        const Value& value = weld[column];
        if (isNull(value)) {
            return {};
        }
        if (isMoment(column)) {
            return printLocal(wholeOf(value));
        }
        if (std::holds_alternative<double>(value)) {
            std::string text = TelvaneTool::formatted("%.15g", numberOf(value));
            std::replace(text.begin(), text.end(), '.', m_comma ? ',' : '.');
            return text;
        }
        const std::string text = printValue(value);
        return std::holds_alternative<std::string>(value) ? csvQuoted(text, CsvTexts::NoFormulas) : text;
    }

    bool m_comma;
    std::string m_separator;
};

int exportWelds(const Options& options)
{
    if (options.comma && !options.isSheet()) {
        TelvaneTool::printError("--comma needs --format spreadsheet");
        return TelvaneTool::kWrongUsage;
    }
    ArchiveReader::Query query;
    if (!options.filter.read(query.filter)) {
        return TelvaneTool::kWrongUsage;
    }
    const auto reader = openArchive(options.database);
    if (!reader) {
        return TelvaneTool::kWrongInput;
    }
    if (!options.samples.empty()) {
        std::error_code error;
        std::filesystem::create_directories(options.samples, error);
    }
    const SheetFormat sheet(options.comma);
    int result = options.format == "csv" ? TelvaneTool::writeResult(csvHeading())
                 : options.isSheet()     ? TelvaneTool::writeResult(sheet.heading())
                                         : TelvaneTool::kSuccess;
    query.afterId = 0;
    query.limit = 1000;
    std::vector<Weld> welds;
    do {
        welds.clear();
        if (const Status status = reader->list(query, welds); !status) {
            return reportFailure(status);
        }
        std::string text;
        for (const Weld& weld : welds) {
            text += options.format == "csv" ? csvLine(weld, CsvTexts::Exact)
                    : options.isSheet()     ? sheet.line(weld)
                                            : jsonLine(weld);
            query.afterId = weld.id;
            if (!options.samples.empty() && result == TelvaneTool::kSuccess) {
                result = writeSamples(*reader, weld,
                                      options.samples + "/weld-" + std::to_string(weld.id) + ".csv");
            }
        }
        result = result == TelvaneTool::kSuccess ? TelvaneTool::writeResult(text) : result;
    } while (result == TelvaneTool::kSuccess && welds.size() == query.limit);
    return result;
}

} // namespace

void addExportCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "export", "Print all columns of welds as CSV or JSON lines");
    addDatabase(command, options->database);
    addFilterOptions(command, options->filter);
    command
        .option("--format", options->format,
                "Print csv, jsonl, or spreadsheet: CSV with local dates and times, and texts that are not "
                "formulas")
        .typeName("FORMAT")
        .check([](const std::string& text) {
            return text == "csv" || text == "jsonl" || text == "spreadsheet"
                       ? std::string()
                       : "\"" + text + "\" is neither csv, jsonl nor spreadsheet";
        })
        .showDefault();
    command.flag("--comma", options->comma,
                 "Write decimal commas, and semicolons between fields, with --format spreadsheet");
    command
        .option("--samples", options->samples, "Also write the samples of each weld to DIRECTORY/weld-ID.csv")
        .typeName("DIRECTORY");
    command.examples("# the welds of a part, for a program\n"
                     "telvane welds export welds.db --part A-17 >a-17.csv\n"
                     "# for a spreadsheet with decimal commas\n"
                     "telvane welds export welds.db --part A-17 --format spreadsheet --comma >a-17.csv\n");
    command.run([options] { return exportWelds(*options); });
}

} // namespace TelvaneArchive

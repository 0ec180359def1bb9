#include "Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"

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
};

/// \return a field of CSV, in quotes if it needs them
std::string csvField(const Value& value)
{
    if (isNull(value)) {
        return {};
    }
    if (std::holds_alternative<double>(value)) {
        return TelvaneTool::formatted("%.17g", numberOf(value));
    }
    std::string text = printValue(value);
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char letter : text) {
        quoted += letter == '"' ? std::string("\"\"") : std::string(1, letter);
    }
    return quoted + "\"";
}

std::string csvHeading()
{
    std::string line = "id";
    for (const Column column : allColumns()) {
        line += std::string(",") + infoOf(column).name;
    }
    return line + "\n";
}

std::string csvLine(const Weld& weld)
{
    std::string line = std::to_string(weld.id);
    for (const Value& value : weld.values) {
        line += "," + csvField(value);
    }
    return line + "\n";
}

/// Writes the samples of a weld as DIRECTORY/weld-ID.csv.
int writeSamples(ArchiveReader& reader, const Weld& weld, const std::string& directory)
{
    constexpr std::int64_t kForever = std::int64_t{1} << 62;
    constexpr std::size_t kPage = 100'000;
    std::string text = "time_s,number";
    for (const char* const name : kChannelNames) {
        text += std::string(",") + name;
    }
    text += "\n";
    std::vector<Sample> samples;
    std::int64_t from = 0;
    do {
        samples.clear();
        if (const Status status = reader.samples(weld.id, from, kForever, kPage, samples); !status) {
            return reportFailure(status);
        }
        for (const Sample& sample : samples) {
            text += TelvaneTool::formatted("%.9f,%d", TelvaneTool::inSeconds(sample.time), sample.number);
            for (const double value : sample.values) {
                text += TelvaneTool::formatted(",%.17g", value);
            }
            text += "\n";
        }
        from = samples.empty() ? kForever : samples.back().time + 1;
    } while (samples.size() == kPage);
    return writeFile(directory + "/weld-" + std::to_string(weld.id) + ".csv", text);
}

int exportWelds(const Options& options)
{
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
    int result = options.format == "csv" ? TelvaneTool::writeResult(csvHeading()) : TelvaneTool::kSuccess;
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
            text += options.format == "csv" ? csvLine(weld) : printJson(weld) + "\n";
            query.afterId = weld.id;
            if (!options.samples.empty() && result == TelvaneTool::kSuccess) {
                result = writeSamples(*reader, weld, options.samples);
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
    command.option("--format", options->format, "csv or jsonl")
        .check([](const std::string& text) {
            return text == "csv" || text == "jsonl" ? std::string()
                                                    : "\"" + text + "\" is neither csv nor jsonl";
        })
        .showDefault();
    command
        .option("--samples", options->samples, "Also write the samples of each weld to DIRECTORY/weld-ID.csv")
        .typeName("DIRECTORY");
    command.examples("# the welds of a part, for a spreadsheet\n"
                     "telvane welds export welds.db --part A-17 >a-17.csv\n");
    command.run([options] { return exportWelds(*options); });
}

} // namespace TelvaneArchive

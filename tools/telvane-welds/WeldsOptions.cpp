#include "Commands.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/Clock.h"
#include "common/support/HumanReadable.h"
#include "common/support/OutputFile.h"
#include "common/support/TimestampParser.h"

#include <cstring>
#include <ctime>

namespace TelvaneArchive
{

using Comparison = Condition::Comparison;

void addDatabase(TelvaneTool::Command& command, std::string& database)
{
    command.option("DB", database, "SQLite file, or postgresql://user@host/name").required();
}

TelvaneTool::Option addLike(TelvaneTool::Command& command, std::string& like)
{
    TelvaneTool::Option option =
        command.option("--like", like,
                       "Draw the range of the welds that match CONDITION (default: complete welds of the "
                       "same program and part, without those that are not_ok)");
    option.typeName("CONDITION");
    return option;
}

void addFilterOptions(TelvaneTool::Command& command, FilterOptions& options)
{
    const char* const group = "Which welds";
    const auto add = [&](const char* name, std::string& target, const char* type, const char* what) {
        command.option(name, target, what).group(group).typeName(type);
    };
    add("--where", options.where, "CONDITION",
        "Select the welds whose columns match CONDITION, such as \"mean_amps > 180 and part_number = "
        "'A-17'\"");
    add("--part", options.part, "NAME", "Select the welds of this part number; * and ? are wildcards");
    add("--program", options.program, "NUMBER", "Select the welds of this weld program");
    add("--verdict", options.verdict, "VERDICT", "Select the welds with this verdict: ok, warning or not_ok");
    add("--from", options.from, "TIME",
        "Select the welds that started at TIME or later: \"2026-11-22\", \"2026-11-22 08:00\", \"30m\", "
        "\"2h\"");
    add("--to", options.to, "TIME", "Select the welds that started before TIME");
}

namespace
{

/// Reads a date, a date and time, or a time ago.
bool readMoment(const std::string& text, std::int64_t& moment)
{
    TelvaneTool::Nanoseconds ago = 0;
    if (TelvaneTool::readDuration(text, ago)) {
        moment = TelvaneTool::realTimeNow() - ago;
        return true;
    }
    TelvaneTool::TimestampParser parser;
    return parser.read(text, moment) || parser.read(text, "00:00:00", moment) ||
           parser.read(text + ":00", moment);
}

} // namespace

bool FilterOptions::read(WeldFilter& filter) const
{
    std::string error;
    if (!where.empty() && !readWhere(where, filter, error)) {
        TelvaneTool::printError("--where: " + error);
        return false;
    }
    if (!part.empty()) {
        const bool pattern = part.find_first_of("*?") != std::string::npos;
        filter.add(Column::PartNumber, pattern ? Comparison::Like : Comparison::Equal, part);
    }
    if (!program.empty() && !readWhere("program = " + program, filter, error)) {
        TelvaneTool::printError("--program: " + error);
        return false;
    }
    if (!verdict.empty()) {
        filter.add(Column::Verdict, Comparison::Equal, verdict);
    }
    for (const auto& [option, text, comparison] :
         {std::tuple("--from", from, Comparison::GreaterOrEqual), std::tuple("--to", to, Comparison::Less)}) {
        std::int64_t moment = 0;
        if (text.empty()) {
            continue;
        }
        if (!readMoment(text, moment)) {
            TelvaneTool::printError(std::string(option) + ": \"" + text + "\" is not a time");
            return false;
        }
        filter.add(Column::StartNs, comparison, moment);
    }
    return true;
}

std::unique_ptr<ArchiveReader> openArchive(const std::string& database)
{
    Status status;
    std::unique_ptr<ArchiveReader> reader = ArchiveReader::open(database, status);
    if (!reader) {
        TelvaneTool::printError((isPostgresLocation(database) ? std::string("the database") : database) +
                                ": " + status.text);
    }
    return reader;
}

std::optional<Weld> readWeld(ArchiveReader& reader, std::int64_t id)
{
    std::optional<Weld> weld;
    if (const Status status = reader.weld(id, weld); !status) {
        reportFailure(status);
    } else if (!weld) {
        TelvaneTool::printError("there is no weld " + std::to_string(id));
    }
    return weld;
}

int writeFile(const std::string& path, const std::string& data)
{
    TelvaneTool::OutputFile file;
    int error = file.open(path);
    error = error == 0 ? file.write(data) : error;
    error = error == 0 ? file.commit() : error;
    if (error != 0) {
        TelvaneTool::printError("cannot write " + path + ": " + std::strerror(error));
        return TelvaneTool::kOutputFailure;
    }
    return TelvaneTool::kSuccess;
}

int reportFailure(const Status& status)
{
    TelvaneTool::printError("the archive: " + status.text);
    return TelvaneTool::kWrongInput;
}

std::string printValue(const Value& value)
{
    if (isNull(value)) {
        return "-";
    }
    if (std::holds_alternative<double>(value)) {
        return TelvaneTool::formatted("%.6g", numberOf(value));
    }
    return std::holds_alternative<std::int64_t>(value) ? std::to_string(wholeOf(value)) : textOf(value);
}

std::string printLocal(std::int64_t nanoseconds)
{
    const auto seconds = static_cast<time_t>(nanoseconds / TelvaneTool::kSecond);
    std::tm parts = {};
    localtime_r(&seconds, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

} // namespace TelvaneArchive

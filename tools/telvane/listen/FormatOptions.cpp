#include "listen/FormatOptions.h"

#include "common/cli/CommandLine.h"
#include "common/cli/Messages.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

/// \return an error message; empty if the list is valid
std::string readFields(const std::string& text, std::vector<std::string>& fields)
{
    fields.clear();
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        fields.push_back(text.substr(begin, end - begin));
        if (fields.back().empty()) {
            return "expected field names separated by commas, such as data.amps,data.volts";
        }
        begin = end + 1;
    }
    return {};
}

} // namespace

void addFormatOptions(Command& command, FormatOptions& options)
{
    RecordFormatter::Settings& settings = options.settings;
    command
        .option(
            "--where", options.conditions,
            "Print only records that match CONDITION: amps>100, settings.CommandWFS.Unit=in/min or log~arc, "
            "with =, !=, <, <=, >, >= or ~ (contains). If repeated, all conditions must match")
        .repeatable()
        .typeName("CONDITION");
    command.option("-F,--format", settings.format, std::string("Print records in FORMAT: ") + kFormatHelp)
        .typeName("FORMAT")
        .check(&checkFormat);
    command
        .optionReadBy([&settings](const std::string& text) { return readFields(text, settings.csvFields); },
                      "--csv",
                      "Print time, channel, sequence number and these fields as CSV, such as "
                      "data.amps,data.volts")
        .typeName("FIELDS")
        .excludes("--format");
    command.flag("--delta", settings.delta, "Add the seconds since the previous record").excludes("--csv");
    command.flag("--pretty", settings.pretty, "Print indented JSON on several lines")
        .excludes("--format")
        .excludes("--csv");
    command.flag("--names", settings.names, "Add the names of consumable codes: processName after process")
        .excludes("--csv");
}

bool readFilters(FormatOptions& options)
{
    for (const std::string& condition : options.conditions) {
        const std::string error = options.settings.filters.emplace_back().read(condition);
        if (!error.empty()) {
            printError("--where: " + error);
            return false;
        }
    }
    return true;
}

} // namespace TelvaneTool

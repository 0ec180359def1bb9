#include "listen/FormatOptions.h"

#include "common/bus/RecordCheck.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/Messages.h"
#include "common/support/JsonPath.h"

#include <algorithm>
#include <strings.h>

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

/// \return whether a record of the class can have the field
bool hasField(const Telvane::RecordTable& table, const std::vector<std::string>& steps, std::size_t at = 0)
{
    using Telvane::FieldKind;
    if (at == steps.size()) {
        return true;
    }
    const auto is = [&](const char* key) {
        return strcasecmp(steps[at].c_str(), key) == 0;
    };
    if (is("_id") || is("_sequence_tag")) {
        return at + 1 == steps.size();
    }
    for (const Telvane::RecordField& field : table.fields()) {
        if (!is(field.key)) {
            continue;
        }
        const bool isArray = field.kind != FieldKind::Integer && field.kind != FieldKind::Number &&
                             field.kind != FieldKind::Flag && field.kind != FieldKind::Text &&
                             field.kind != FieldKind::Record;
        const std::size_t next = at + (isArray && at + 1 < steps.size() ? 2 : 1);
        if (isArray && at + 1 < steps.size() && readIndex(steps[at + 1]) < 0) {
            return false;
        }
        const bool isLeaf = field.nested == nullptr || isTimeStamp(field.nested->table());
        return isLeaf ? next == steps.size() : hasField(field.nested->table(), steps, next);
    }
    return false;
}

} // namespace

bool checkFields(const FormatOptions& options, const std::vector<std::string>& channels,
                 const Telvane::RecordClass* recordClass)
{
    std::vector<const Telvane::RecordClass*> classes;
    for (const std::string& channel : channels) {
        classes.push_back(classOfChannel(recordClass, channel));
        if (classes.back() == nullptr) {
            return true;
        }
    }
    std::vector<std::string> paths = options.settings.csvFields;
    for (const std::string& path : fieldsOfFormat(options.settings.format)) {
        paths.push_back(path);
    }
    for (const FieldFilter& filter : options.settings.filters) {
        paths.push_back(filter.path());
    }
    if (classes.empty() || options.settings.names) {
        return true; // --names adds fields
    }
    for (const std::string& path : paths) {
        const std::vector<std::string> steps = splitPath(path);
        if (std::none_of(classes.begin(), classes.end(), [&steps](const Telvane::RecordClass* candidate) {
                return hasField(candidate->table(), steps);
            })) {
            printError(std::string(classes.front()->name) + " has no field \"" + path +
                       "\"; see telvane records " + classes.front()->name);
            return false;
        }
    }
    return true;
}

void addFormatOptions(Command& command, FormatOptions& options)
{
    RecordFormatter::Settings& settings = options.settings;
    command
        .option(
            "--where", options.conditions,
            "Print only records that match CONDITION: amps>100, settings.CommandWFS.Unit=in/min or log~arc, "
            "with =, !=, <, <=, >, >= or ~ (contains). Several conditions must all match")
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
    command.flag("--delta", settings.delta, "Add the seconds since the previous record; in --format, use %d")
        .excludes("--csv")
        .excludes("--format");
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

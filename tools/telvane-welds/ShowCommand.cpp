#include "Commands.h"
#include "archive/reader/WeldText.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/Table.h"

#include <memory>

namespace TelvaneArchive
{

namespace
{

struct Options
{
    std::string database;
    std::int64_t id = 0;
    bool json = false;
};

std::string printText(const Weld& weld)
{
    TelvaneTool::Table table({{""}, {""}, {""}, {""}});
    for (const Column column : allColumns()) {
        const ColumnInfo& info = infoOf(column);
        if (weld.has(column) && column != Column::StartRecord && column != Column::EndRecord) {
            const bool moment = column == Column::StartNs || column == Column::EndNs;
            table.add({info.name, moment ? printLocal(weld.whole(column)) : printValue(weld[column]),
                       moment ? "" : info.unit, info.meaning});
        }
    }
    return "weld " + std::to_string(weld.id) + "\n" + table.print({2, std::string::npos, nullptr});
}

int show(const Options& options)
{
    const auto reader = openArchive(options.database);
    if (!reader) {
        return TelvaneTool::kWrongInput;
    }
    const std::optional<Weld> weld = readWeld(*reader, options.id);
    if (!weld) {
        return TelvaneTool::kWrongInput;
    }
    std::vector<ArchiveReader::Event> events;
    std::vector<Finding> findings;
    Status status = reader->events(options.id, events);
    status = status ? reader->findings(options.id, findings) : status;
    if (!status) {
        return reportFailure(status);
    }
    if (options.json) {
        return TelvaneTool::writeResult(jsonLine(*weld));
    }
    std::string text = printText(*weld);
    for (const ArchiveReader::Event& event : events) {
        text += "  at " + printLocal(event.time) + " " + event.channel + ": " + event.record + "\n";
    }
    return TelvaneTool::writeResult(text + printFindings(findings));
}

} // namespace

void addShowCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "show", "Show everything about a weld");
    addDatabase(command, options->database);
    command.option("ID", options->id, "Weld").required();
    command.flag("--json", options->json, "Print a JSON object");
    command.run([options] { return show(*options); });
}

} // namespace TelvaneArchive

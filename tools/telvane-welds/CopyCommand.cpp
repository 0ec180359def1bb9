#include "Commands.h"
#include "archive/reader/ArchiveCopy.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"

#include <memory>

namespace TelvaneArchive
{

namespace
{

struct Options
{
    std::string database;
    std::string file;
    bool rowsOnly = false;
};

int copy(const Options& options)
{
    if (isPostgresLocation(options.database)) {
        TelvaneTool::printError("only an SQLite archive can be copied; pg_dump copies a PostgreSQL database");
        return TelvaneTool::kWrongUsage;
    }
    const auto reader = openArchive(options.database);
    if (!reader) {
        return TelvaneTool::kWrongInput;
    }
    if (const Status status = copyArchive(*reader, options.database, options.file, !options.rowsOnly);
        !status) {
        TelvaneTool::printError("cannot copy to " + options.file + ": " + status.text);
        return TelvaneTool::kOutputFailure;
    }
    return TelvaneTool::kSuccess;
}

} // namespace

void addCopyCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "copy",
                                 "Copy an archive, which may be in use, for a backup or for analysts");
    command.option("DB", options->database, "SQLite file").required();
    command
        .option(
            "FILE", options->file,
            "Database of the copy, which must not exist; samples go to FILE.samples. Verdicts that wait for "
            "the bus are left out: the archive publishes them")
        .required();
    command.flag("--rows-only", options->rowsOnly, "Leave the samples out; envelopes are copied");
    command.examples("telvane welds copy /var/lib/telvane-archive/welds.db backup/2026-11-22.db\n");
    command.run([options] { return copy(*options); });
}

} // namespace TelvaneArchive

#include "Commands.h"
#include "archive/reader/RetentionPlan.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/HumanReadable.h"
#include "common/support/Json.h"
#include "common/support/Table.h"

#include <memory>

namespace TelvaneArchive
{

namespace
{

struct Options
{
    std::string database;
    RetentionOptions retention;
    bool plan = false;
    bool json = false;
};

int printPlan(const Options& options)
{
    Status status;
    const auto reader = ArchiveReader::open(options.database, status);
    const ArchiveStore::Retention retention = options.retention.read();
    std::vector<RetentionMonth> months;
    status = reader ? planRetention(*reader,
                                    {retention.samplesAge, retention.samplesBytes, retention.rowsAge}, months)
                    : status;
    if (!status) {
        return reportStatus(options.database, status);
    }
    TelvaneTool::Table table({{"MONTH"},
                              {"WELDS", true},
                              {"SAMPLES", true},
                              {"SAMPLES GONE BY"},
                              {"ROWS GONE BY"},
                              {"ROWS THAT STAY", true}});
    std::string lines;
    for (const RetentionMonth& month : months) {
        const auto dayOf = [](const std::string& day) {
            return day.empty() ? "never" : day;
        };
        const bool stay = month.rowsGoneBy.empty();
        table.add({month.month, std::to_string(month.welds),
                   TelvaneTool::printBytes(static_cast<double>(month.bytes)),
                   month.bytes == 0 ? "-" : dayOf(month.samplesGoneBy), dayOf(month.rowsGoneBy),
                   std::to_string(stay ? month.welds : month.notOk)});
        const TelvaneTool::JsonTree object(cJSON_CreateObject());
        TelvaneTool::addText(object.get(), "month", month.month);
        TelvaneTool::addNumber(object.get(), "welds", month.welds);
        TelvaneTool::addNumber(object.get(), "notOk", month.notOk);
        TelvaneTool::addNumber(object.get(), "bytes", month.bytes);
        TelvaneTool::addText(object.get(), "samplesGoneBy", month.samplesGoneBy);
        TelvaneTool::addText(object.get(), "rowsGoneBy", month.rowsGoneBy);
        lines += TelvaneTool::printJson(object.get()) + "\n";
    }
    return TelvaneTool::writeResult(options.json ? lines : table.print());
}

int retain(const Options& options)
{
    if (options.plan) {
        return printPlan(options);
    }
    // The archive survives it at any point.
    const TelvaneTool::TerminationSignals end(TelvaneTool::TerminationSignals::Effect::End);
    Status status;
    const auto store = ArchiveStore::open(options.database, {}, status);
    if (!store) {
        return reportStatus(options.database, status);
    }
    ArchiveStore::Retained retained;
    status = store->retain(options.retention.read(), TelvaneTool::realTimeNow(), retained);
    if (!status) {
        return reportStatus(options.database, status);
    }
    static_cast<void>(store->makeBlocks()); // without them, a trend reads the rows
    TelvaneTool::printStatus(
        "deleted the samples of " +
        TelvaneTool::printNumber(static_cast<std::uint64_t>(retained.sampleWelds), "weld") + ", " +
        TelvaneTool::printBytes(static_cast<double>(retained.bytes)) + ", and " +
        TelvaneTool::printNumber(static_cast<std::uint64_t>(retained.rows), "row"));
    return TelvaneTool::kSuccess;
}

} // namespace

ArchiveStore::Retention RetentionOptions::read() const
{
    constexpr double kDay = 86'400e9;
    ArchiveStore::Retention retention;
    retention.samplesAge = static_cast<std::int64_t>(samplesDays * kDay);
    retention.samplesBytes = static_cast<std::int64_t>(samplesBytes);
    retention.rowsAge = static_cast<std::int64_t>(rowsDays * kDay);
    return retention;
}

void addRetentionOptions(TelvaneTool::Command& command, RetentionOptions& options)
{
    constexpr double kLongest = 36'500.0; // days: 100 years
    const char* const group = "Retention (default: keep everything)";
    command.option("--keep-samples", options.samplesDays, "Delete samples after so many days")
        .group(group)
        .within(0.0, kLongest)
        .typeName("DAYS");
    addSize(command, "--max-samples", options.samplesBytes, "Delete the oldest samples above this size")
        .group(group);
    command
        .option("--keep-rows", options.rowsDays,
                "Delete welds after so many days, except those whose verdict is not_ok")
        .group(group)
        .within(0.0, kLongest)
        .typeName("DAYS");
}

void addRetainCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "retain", "Delete what is too old or too much, once");
    command.option("--database", options->database, "Delete from the archive in FILE, an SQLite file")
        .required()
        .typeName("FILE");
    addRetentionOptions(command, options->retention);
    command.flag("--plan", options->plan, "Print what is deleted when, by month, and delete nothing");
    command.flag("--json", options->json, "Print one JSON object per month").needs("--plan");
    command.examples(
        "# samples for a year, rows for 15 years\n"
        "telvane archive retain --database welds.db --keep-samples 365 --keep-rows 5479\n"
        "# what would that delete, and when?\n"
        "telvane archive retain --database welds.db --keep-samples 365 --keep-rows 5479 --plan\n");
    command.run([options] { return retain(*options); });
}

} // namespace TelvaneArchive

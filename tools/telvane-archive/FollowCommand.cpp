#include "Commands.h"
#include "archive/follow/WeldFollower.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/HumanReadable.h"

#include <algorithm>
#include <memory>
#include <poll.h>

namespace TelvaneArchive
{

namespace
{

using TelvaneTool::Nanoseconds;

struct Options
{
    std::string bus;
    WriterOptions writer;
    Nanoseconds interval = TelvaneTool::kSecond;
    Nanoseconds silence = 10 * TelvaneTool::kSecond;
    bool verbose = false;
};

int timeoutUntil(Nanoseconds due)
{
    constexpr Nanoseconds kLongest = 60 * TelvaneTool::kSecond;
    if (due < 0) {
        return -1;
    }
    const Nanoseconds left = std::clamp<Nanoseconds>(due - TelvaneTool::monotonicNow(), 0, kLongest);
    return static_cast<int>((left + TelvaneTool::kMillisecond - 1) / TelvaneTool::kMillisecond);
}

/// Prints a line for each weld that was closed.
void printClosed(WeldFollower& follower, ArchiveStore& store, bool verbose)
{
    for (const std::int64_t id : follower.takeClosed()) {
        std::vector<Row> rows;
        store.database().run(
            "SELECT ending, samples, missed + unstored, bytes_stored FROM weld WHERE id = $1", {id}, &rows);
        if (verbose && !rows.empty()) {
            TelvaneTool::printStatus("weld " + std::to_string(id) + ": " + textOf(rows[0][0]) + ", " +
                                     std::to_string(wholeOf(rows[0][1])) + " samples, " +
                                     std::to_string(wholeOf(rows[0][2])) + " missing, " +
                                     TelvaneTool::printBytes(numberOf(rows[0][3])));
        }
    }
}

int follow(const Options& options)
{
    WeldFollower::Settings settings;
    settings.bus = options.bus;
    settings.module = options.writer.module;
    settings.interval = options.interval;
    settings.silence = options.silence;
    if (const std::string error = options.writer.makeContext(settings.context); !error.empty()) {
        TelvaneTool::printError(error);
        return TelvaneTool::kWrongUsage;
    }
    Status status;
    const auto store = ArchiveStore::open(options.writer.database, {}, status);
    if (!store) {
        return reportStatus(options.writer.database, status);
    }
    if (const auto& counters = store->counters(); counters.recovered != 0) {
        TelvaneTool::printStatus(TelvaneTool::printNumber(counters.recovered, "weld") +
                                 " of an earlier run closed");
    }
    const TelvaneTool::FileDescriptor signals = TelvaneTool::openSignals();
    WeldFollower follower(*store, settings, [](const std::string& text) { TelvaneTool::printError(text); });
    if (options.verbose) {
        while (!follower.waitConnected(std::chrono::milliseconds(100)) &&
               TelvaneTool::readSignal(signals.get()) == 0) {
        }
        TelvaneTool::printStatus("following");
    }
    pollfd polled[] = {{signals.get(), POLLIN, 0}, {follower.descriptor(), POLLIN, 0}};
    for (;;) {
        poll(polled, 2, timeoutUntil(follower.nextWork()));
        if (polled[0].revents != 0) {
            break;
        }
        follower.work();
        printClosed(follower, *store, options.verbose);
    }
    follower.stop();
    printClosed(follower, *store, options.verbose);
    return TelvaneTool::kSuccess;
}

} // namespace

void addFollowCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "follow", "Keep the welds on a bus, until a signal ends it");
    command.option("PATH", options->bus, "Path of the bus").required();
    command.option("--database", options->writer.database, "SQLite file of the archive; created if missing")
        .required()
        .typeName("FILE");
    addWriterOptions(command, options->writer);
    addDuration(command, "--interval", options->interval,
                "Time between commits while an arc burns; a longer one spares flash memory and risks more")
        .showDefault("1s");
    addDuration(command, "--silence", options->silence, "End a weld after this time without a sample")
        .showDefault("10s");
    command.flag("--verbose", options->verbose,
                 "Print \"following\" when connected, and a line for each weld");
    command.examples("# keep every weld\n"
                     "telvane archive /run/telvane/bus --database /var/lib/telvane/welds.db\n");
    command.run([options] { return follow(*options); });
}

} // namespace TelvaneArchive

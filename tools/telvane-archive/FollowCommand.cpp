#include "Commands.h"
#include "LiveJudging.h"
#include "archive/follow/WeldFollower.h"
#include "archive/forward/Forwarder.h"
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
    std::string spool;
    RetentionOptions retention;
    LiveJudging::Options judging;
};

/// Passes the welds of the spool on, and deletes those that have arrived.
class Forwarding
{
public:
    Forwarding(ArchiveStore& store, const Options& options) : m_store(store)
    {
        if (isPostgresLocation(options.writer.database)) {
            Forwarder::Settings settings;
            settings.spool = options.spool;
            settings.location = options.writer.database;
            m_forwarder = std::make_unique<Forwarder>(settings, [](const std::string& text) {
                TelvaneTool::printStatus(text.empty() ? "the database answers" : "the database: " + text);
            });
        }
    }

    /// \return when to call it again, on the monotonic clock; -1 for never
    Nanoseconds work()
    {
        if (!m_forwarder) {
            return -1;
        }
        const std::vector<std::int64_t> sent = m_forwarder->takeSent();
        if (const Status status = m_store.deleteWelds(sent); !status) {
            TelvaneTool::printError("the spool: " + status.text);
        }
        m_forwarder->forget(sent);
        return TelvaneTool::monotonicNow() + TelvaneTool::kSecond;
    }

private:
    ArchiveStore& m_store;
    std::unique_ptr<Forwarder> m_forwarder;
};

/// Deletes what is too old or too much, once an hour.
class Retaining
{
public:
    Retaining(ArchiveStore& store, const ArchiveStore::Retention& retention)
        : m_store(store), m_retention(retention)
    {}

    Nanoseconds work()
    {
        constexpr Nanoseconds kHour = 3600 * TelvaneTool::kSecond;
        if (m_retention.samplesAge == 0 && m_retention.samplesBytes == 0 && m_retention.rowsAge == 0) {
            return -1;
        }
        const Nanoseconds now = TelvaneTool::monotonicNow();
        if (now >= m_next) {
            m_next = now + kHour;
            ArchiveStore::Retained retained;
            if (const Status status = m_store.retain(m_retention, TelvaneTool::realTimeNow(), retained);
                !status) {
                TelvaneTool::printError("retention: " + status.text);
            }
        }
        return m_next;
    }

private:
    ArchiveStore& m_store;
    const ArchiveStore::Retention m_retention;
    Nanoseconds m_next = 0;
};

/// Makes the blocks that trends and lists are read from, one a second while no weld is under way, and looks once a day for more.
class BlockMaking
{
public:
    BlockMaking(ArchiveStore& store, bool needed) : m_store(store), m_needed(needed) {}

    Nanoseconds work()
    {
        constexpr Nanoseconds kDay = 86'400 * TelvaneTool::kSecond;
        if (!m_needed) {
            return -1;
        }
        const Nanoseconds now = TelvaneTool::monotonicNow();
        if (now < m_next) {
            return m_next;
        }
        m_next = now + TelvaneTool::kSecond;
        if (m_store.isIdle() && !m_store.isFull()) {
            bool made = false;
            if (const Status status = m_store.makeBlock(made); !status) {
                TelvaneTool::printError("the blocks for trends and lists: " + status.text);
            }
            m_next = made ? m_next : now + kDay;
        }
        return m_next;
    }

private:
    ArchiveStore& m_store;
    const bool m_needed;
    Nanoseconds m_next = 0;
};

/// \return the earlier of two moments, of which -1 is never
Nanoseconds earlier(Nanoseconds a, Nanoseconds b)
{
    return a < 0 || b < 0 ? std::max(a, b) : std::min(a, b);
}

int timeoutUntil(Nanoseconds due)
{
    constexpr Nanoseconds kLongest = 60 * TelvaneTool::kSecond;
    if (due < 0) {
        return -1;
    }
    const Nanoseconds left = std::clamp<Nanoseconds>(due - TelvaneTool::monotonicNow(), 0, kLongest);
    return static_cast<int>((left + TelvaneTool::kMillisecond - 1) / TelvaneTool::kMillisecond);
}

/// Prints a line for a weld that was closed.
void printClosed(std::int64_t id, ArchiveStore& store)
{
    std::vector<Row> rows;
    store.database().run(
        "SELECT ending, samples, missed + unstored, bytes_stored, verdict FROM weld WHERE id = $1", {id},
        &rows);
    if (rows.empty()) {
        return;
    }
    const std::string& verdict = textOf(rows[0][4]);
    TelvaneTool::printStatus("weld " + std::to_string(id) + ": " + textOf(rows[0][0]) + ", " +
                             std::to_string(wholeOf(rows[0][1])) + " samples, " +
                             std::to_string(wholeOf(rows[0][2])) + " missing, " +
                             TelvaneTool::printBytes(numberOf(rows[0][3])) +
                             (verdict.empty() ? "" : ", " + verdict));
}

/// Opens the archive. Waits for room on a full disk, until a signal.
std::unique_ptr<ArchiveStore> openStore(const std::string& path, int signals, Status& status,
                                        const ArchiveStore::SetUp& setUp)
{
    for (bool reported = false;; reported = true) {
        auto store = ArchiveStore::open(path, {}, status, setUp);
        if (store || status.code != Status::Code::Full) {
            return store;
        }
        if (!reported) {
            TelvaneTool::printError(path + ": " + status.text + "; waiting for room");
        }
        constexpr int kSecondInMilliseconds = 1000;
        pollfd polled = {signals, POLLIN, 0};
        if (poll(&polled, 1, kSecondInMilliseconds) > 0) {
            return nullptr;
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
    const bool remote = isPostgresLocation(options.writer.database);
    if (remote == options.spool.empty()) {
        TelvaneTool::printError(
            remote ? "a PostgreSQL database needs --spool FILE, which keeps the welds until they "
                     "have arrived"
                   : "--spool is only for a PostgreSQL database");
        return TelvaneTool::kWrongUsage;
    }
    const std::string& local = remote ? options.spool : options.writer.database;
    const TelvaneTool::FileDescriptor signals = TelvaneTool::openSignals();
    Status status;
    std::unique_ptr<ArchiveStore> store; // closes after the reader of the judge: the last one empties the log
    LiveJudging judging;
    int judged = TelvaneTool::kSuccess;
    store = openStore(local, signals.get(), status, [&](ArchiveStore& opened) {
        judged = judging.start(options.judging, opened, !remote);
        return judged == TelvaneTool::kSuccess ? Status() : Status{Status::Code::Failed, ""};
    });
    if (judged != TelvaneTool::kSuccess) {
        return judged;
    }
    if (!store) {
        return reportStatus(local, status);
    }
    if (const auto& counters = store->counters(); counters.recovered != 0) {
        TelvaneTool::printStatus(TelvaneTool::printNumber(counters.recovered, "weld") +
                                 " of an earlier run closed");
    }
    WeldFollower follower(*store, settings, [](const std::string& text) { TelvaneTool::printError(text); });
    if (options.verbose) {
        while (!follower.waitConnected(std::chrono::milliseconds(100)) &&
               TelvaneTool::readSignal(signals.get()) == 0) {
        }
        TelvaneTool::printStatus("following");
    }
    Forwarding forwarding(*store, options);
    Retaining retaining(*store, options.retention.read());
    BlockMaking blocks(*store, !remote);
    const auto reportClosed = [&] {
        judging.publish(*store, follower);
        for (const std::int64_t id : follower.takeClosed()) {
            if (options.verbose) {
                printClosed(id, *store);
            }
        }
    };
    pollfd polled[] = {{signals.get(), POLLIN, 0}, {follower.descriptor(), POLLIN, 0}};
    for (;;) {
        const Nanoseconds other = earlier(earlier(forwarding.work(), retaining.work()),
                                          earlier(blocks.work(), judging.publish(*store, follower)));
        poll(polled, 2, timeoutUntil(earlier(follower.nextWork(), other)));
        if (polled[0].revents != 0) {
            break;
        }
        follower.work();
        reportClosed();
    }
    follower.stop();
    reportClosed();
    return TelvaneTool::kSuccess;
}

} // namespace

void addFollowCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "follow", "Keep the welds on a bus, until a signal ends it");
    command.option("PATH", options->bus, "Socket of the server").required();
    command
        .option("--database", options->writer.database,
                "Keep the welds in DB: an SQLite file, created if missing, or postgresql://user@host/name")
        .required()
        .typeName("DB");
    command
        .option("--spool", options->spool,
                "Keep the welds in FILE, an SQLite file, until a PostgreSQL database has them")
        .typeName("FILE");
    addWriterOptions(command, options->writer);
    addRetentionOptions(command, options->retention);
    addLiveJudgingOptions(command, options->judging);
    addDuration(command, "--interval", options->interval,
                "Commit at this interval while an arc burns; a longer one spares flash memory and risks more")
        .showDefault("1s");
    addDuration(command, "--silence", options->silence, "End a weld after this time without a sample")
        .showDefault("10s");
    command.flag("--verbose", options->verbose,
                 "Print \"following\" when connected, and a line for each weld");
    command.examples(
        "# keep every weld\n"
        "telvane archive /run/telvane/bus --database /var/lib/telvane-archive/welds.db\n"
        "# send them to the database of the plant; outages are bridged\n"
        "telvane archive /run/telvane/bus --database postgresql://telvane@plant/welds --spool spool.db\n"
        "# samples for a year but at most 20 GB, rows for 15 years\n"
        "telvane archive /run/telvane/bus --database welds.db --keep-samples 365 --max-samples 20G \\\n"
        "    --keep-rows 5479\n"
        "# judge each weld when it ends, and publish the verdict\n"
        "telvane archive /run/telvane/bus --database welds.db --rules rules --verdict-channel "
        "WeldVerdicts\n");
    command.run([options] { return follow(*options); });
}

} // namespace TelvaneArchive

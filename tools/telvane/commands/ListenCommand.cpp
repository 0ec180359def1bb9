// Records are turned to text on the client's receiver thread and written by the main thread. A reader that is
// slow for a moment therefore costs memory here and no records at the server, which drops what a subscriber
// does not fetch.

#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/bus/DecodedRecord.h"
#include "common/bus/PatternSubscriber.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"
#include "listen/RecordFormatter.h"
#include "listen/SequenceGaps.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace TelvaneTool
{

namespace
{

using Telvane::RecordClass;
using Telvane::TelvaneDataTypeBase;

struct Options
{
    BusOptions bus;
    std::vector<std::string> channels;
    std::string className;
    std::uint64_t count = 0;
    double timeout = 0.0;
    bool all = false;
    RecordFormatter::Settings lines;
    std::vector<std::string> conditions;
    bool verbose = false;
};

/// What has arrived and is not yet written.
class Arrivals
{
public:
    explicit Arrivals(const Options& options) : m_options(options), m_lines(options.lines) {}

    /// Called on the receiver thread.
    void take(const std::string& channel, const DecodedRecord& record, const RecordClass* recordClass,
              int sequence)
    {
        m_missed.take(sequence);
        if (!record.fault().empty()) {
            m_missed.takeUnreadable();
            printError(channel + " " + std::to_string(sequence) + ": " + record.fault());
            return;
        }
        const std::string line =
            m_lines.print({channel, sequence, record, recordClass, realTimeNow(), monotonicNow()});
        if (line.empty()) {
            return;
        }
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_options.count == 0 || m_taken < m_options.count) {
            ++m_taken;
            m_output += line;
        }
    }

    const SequenceGaps& missed() const { return m_missed; }

    /// Writes what has arrived until there is an end to it.
    int writeTo(BusConnection& session, PatternSubscriber& channels, Nanoseconds deadline)
    {
        for (;;) {
            session.waitFor([this] { return hasOutput(); }, channels.nextWake(deadline));
            if (const int result = channels.follow(); result != kSuccess) {
                return result;
            }
            const bool expired = deadline >= 0 && monotonicNow() >= deadline;
            if (const std::string output = takeOutput(); !output.empty() && !session.write(output)) {
                return kOutputFailure;
            }
            if (session.stopping() || (m_options.count != 0 && m_written == m_options.count)) {
                return kSuccess;
            }
            if (expired) {
                return reportTimeout();
            }
        }
    }

private:
    bool hasOutput()
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        return !m_output.empty();
    }

    std::string takeOutput()
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        std::string output;
        output.swap(m_output);
        m_written = m_taken;
        return output;
    }

    int reportTimeout() const
    {
        if (m_options.count == 0) {
            return kSuccess;
        }
        printError("only " + std::to_string(m_written) + " of " + std::to_string(m_options.count) +
                   " records came in time");
        return kTimeRanOut;
    }

    const Options& m_options;
    SequenceGaps m_missed;
    RecordFormatter m_lines; ///< used by the receiver thread only
    std::mutex m_lock;
    std::string m_output;
    std::uint64_t m_taken = 0;
    std::uint64_t m_written = 0; ///< used by the main thread only
};

/// Reads what the options say as text, or complains.
bool readOptions(Options& options)
{
    for (const std::string& condition : options.conditions) {
        const std::string error = options.lines.filters.emplace_back().read(condition);
        if (!error.empty()) {
            printError("--where: " + error);
            return false;
        }
    }
    if (options.channels.empty() && !options.all) {
        printError("CHANNEL is required; --all listens on every channel");
        return false;
    }
    const Telvane::RecordClass* ignored = nullptr;
    return (options.className.empty() || findClass(options.className, ignored));
}

int listen(Options& options)
{
    if (!readOptions(options)) {
        return kWrongUsage;
    }
    const Nanoseconds deadline =
        options.timeout > 0.0 ? monotonicNow() + nanoseconds(options.timeout) : BusConnection::kNoDeadline;
    Arrivals arrivals(options);
    BusConnection session(BusConnection::Output::Data, options.count == 0
                                                           ? BusConnection::Interruption::ExpectedExit
                                                           : BusConnection::Interruption::Aborts);
    int result = session.connect(options.bus.path, options.bus.wait);
    const auto subscribe = [&](const std::string& channel) {
        const RecordClass* recordClass = nullptr;
        classOfChannel(options.className, channel, recordClass);
        return session.subscribe(
            channel, DecodedRecord(recordClass),
            [&, channel, recordClass](void*, TelvaneDataTypeBase* record, int sequence, void*) {
                arrivals.take(channel, static_cast<DecodedRecord&>(*record), recordClass, sequence);
                session.wake();
            });
    };
    PatternSubscriber channels(session, options.channels, options.all, subscribe);
    if (result == kSuccess) {
        result = channels.start();
    }
    if (options.verbose && result == kSuccess) {
        printError("listening");
    }
    if (result == kSuccess) {
        result = arrivals.writeTo(session, channels, deadline);
    }
    if (!channels.asks()) {
        // Asking has taken numbers, too.
        for (const std::string& line : arrivals.missed().describe(options.verbose)) {
            printError(line);
        }
    }
    const std::uint64_t broken = session.brokenMessages() + session.undecodableRecords();
    if (broken != 0) {
        printError(std::to_string(broken) + " messages were not whole and could not be read");
    }
    return session.finish(result);
}

} // namespace

void addListenCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "listen", "Print each record of some channels as a line of JSON");
    addBusOptions(command, options->bus);
    command
        .option("CHANNEL", options->channels,
                "Channels to listen on; 'PS*' listens on all that are like this, also on those to come")
        .check(&checkChannelPattern);
    command.flag("--all", options->all,
                 "Listen on every channel that the server knows, which is what somebody has subscribed to, "
                 "and on new ones");
    command
        .option("--as", options->className,
                "Decode and check payloads as this class (default: the class named like the "
                "channel; without one, payloads are printed as they come)")
        .typeName("CLASS");
    command.option("--count", options->count, "End after this many records").positive();
    command
        .option("--timeout", options->timeout,
                "End after this many seconds; with --count, an error if not all have come")
        .positive()
        .within(0.0, kMaxSeconds)
        .typeName("SECONDS");
    RecordFormatter::Settings& lines = options->lines;
    command
        .option("--where", options->conditions,
                "Print only records whose field is so: amps>100, settings.CommandWFS.Unit=in/min, log~arc; "
                "with =, !=, <, <=, >, >=, or ~ for a text that contains this; several have all to hold")
        .repeatable()
        .typeName("CONDITION");
    command
        .option("-F,--format", lines.format,
                std::string("Print each record in a form of one's own: ") + kFormatHelp)
        .typeName("FORMAT")
        .check(&checkFormat);
    command.flag("--delta", lines.delta, "Print the seconds since the record before, too");
    command.flag("--pretty", lines.pretty, "Print over several lines, indented").excludes("--format");
    command.flag("--names", lines.names,
                 "Show the names of consumable codes beside the numbers: processName behind process");
    command.flag("--verbose", options->verbose,
                 "Say on standard error when nothing that is published from then on will be missed");
    command.examples("# everything that there is, until Ctrl-C\n"
                     "telvane listen /tmp/bus --all\n"
                     "# the next start of a weld, with names beside the codes\n"
                     "telvane listen /tmp/bus WeldTriggerStart --count 1 --names --pretty\n"
                     "# only where the current is high, and how long after each other\n"
                     "telvane listen /tmp/bus WeldTraceData --where 'data.amps>250' --delta\n"
                     "# the current alone, for another program\n"
                     "telvane listen /tmp/bus WeldTraceData -F '%u %{data.amps}'\n");
    command.run([options] { return listen(*options); });
}

} // namespace TelvaneTool

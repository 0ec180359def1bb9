// Records are turned to text on the client's receiver thread and written by the main thread. A reader that is
// slow for a moment therefore costs memory here and no records at the server, which drops what a subscriber
// does not fetch.

#include "CommandLine.h"
#include "CommandOptions.h"
#include "Commands.h"
#include "ConsumableNames.h"
#include "ExitCodes.h"
#include "IncomingRecord.h"
#include "Json.h"
#include "Messages.h"
#include "MissedRecords.h"
#include "Session.h"

#include <cstdint>
#include <ctime>
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
    bool pretty = false;
    bool verbose = false;
    bool names = false;
};

/// \return the time now as "2024-01-02T03:04:05.678901Z"
std::string arrivalTime()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts = {};
    gmtime_r(&now.tv_sec, &parts);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%06ldZ", now.tv_nsec / 1000);
    return text;
}

/// What has arrived and is not yet written.
class Arrivals
{
public:
    explicit Arrivals(const Options& options) : m_options(options) {}

    /// Called on the receiver thread.
    void take(const std::string& channel, const IncomingRecord& record, const RecordClass* recordClass,
              int sequence)
    {
        m_missed.take(sequence);
        if (!record.fault().empty()) {
            m_missed.takeUnreadable();
            complain(channel + " " + std::to_string(sequence) + ": " + record.fault());
            return;
        }
        std::string line = R"({"time":")" + arrivalTime() + R"(","channel":")" + channel +
                           R"(","sequence":)" + std::to_string(sequence) + R"(,"payload":)" +
                           payloadText(record, recordClass) + "}";
        if (m_options.pretty) {
            std::string error;
            line = printJson(parseJson(line, error).get(), true);
        }
        line += '\n';
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_options.count == 0 || m_taken < m_options.count) {
            ++m_taken;
            m_output += line;
        }
    }

    const MissedRecords& missed() const { return m_missed; }

    /// Writes what has arrived until there is an end to it.
    int writeTo(Session& session, Nanoseconds deadline)
    {
        for (;;) {
            session.waitFor([this] { return hasOutput(); }, deadline);
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
    std::string payloadText(const IncomingRecord& record, const RecordClass* recordClass) const
    {
        if (!m_options.names || recordClass == nullptr) {
            return record.text();
        }
        std::string error;
        const JsonTree payload = parseJson(record.text(), error);
        addConsumableNames(payload.get(), recordClass->table());
        return printJson(payload.get());
    }

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
        complain("only " + std::to_string(m_written) + " of " + std::to_string(m_options.count) +
                 " records came in time");
        return kTimeRanOut;
    }

    const Options& m_options;
    MissedRecords m_missed;
    std::mutex m_lock;
    std::string m_output;
    std::uint64_t m_taken = 0;
    std::uint64_t m_written = 0; ///< used by the main thread only
};

int listen(const Options& options)
{
    std::vector<const RecordClass*> classes(options.channels.size());
    for (std::size_t i = 0; i < classes.size(); ++i) {
        if (!checkChannel(options.channels[i]) ||
            !classOfChannel(options.className, options.channels[i], classes[i])) {
            return kWrongUsage;
        }
    }
    const Nanoseconds deadline =
        options.timeout > 0.0 ? monotonicNow() + nanoseconds(options.timeout) : Session::kNoDeadline;
    Arrivals arrivals(options);
    Session session(Session::Output::Data, options.count == 0 ? Session::Interruption::IsTheWayToEnd
                                                              : Session::Interruption::CutsShort);
    int result = session.connect(options.bus.path, options.bus.wait);
    for (std::size_t i = 0; i < classes.size() && result == kSuccess; ++i) {
        const std::string channel = options.channels[i];
        const RecordClass* const recordClass = classes[i];
        result = session.subscribe(
            channel, IncomingRecord(classes[i]),
            [&, channel, recordClass](void*, TelvaneDataTypeBase* record, int sequence, void*) {
                arrivals.take(channel, static_cast<IncomingRecord&>(*record), recordClass, sequence);
                session.wake();
            });
    }
    if (options.verbose && result == kSuccess) {
        complain("listening");
    }
    if (result == kSuccess) {
        result = arrivals.writeTo(session, deadline);
    }
    for (const std::string& line : arrivals.missed().describe(options.verbose)) {
        complain(line);
    }
    const std::uint64_t broken = session.brokenMessages() + session.undecodableRecords();
    if (broken != 0) {
        complain(std::to_string(broken) + " messages were not whole and could not be read");
    }
    return session.finish(result);
}

} // namespace

void addListenCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "listen", "Print each record of some channels as a line of JSON");
    addBusOptions(command, options->bus);
    command.option("CHANNEL", options->channels, "Channels to listen on").required();
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
        .within(0.0, kMostSeconds)
        .typeName("SECONDS");
    command.flag("--pretty", options->pretty, "Print over several lines, indented");
    command.flag("--names", options->names,
                 "Show the names of consumable codes beside the numbers: processName behind process");
    command.flag("--verbose", options->verbose,
                 "Say on standard error when nothing that is published from then on will be missed");
    command.examples("# everything on two channels, until Ctrl-C\n"
                     "telvane listen /tmp/bus WeldTraceDataPoint WeldMetrics\n"
                     "# the next weld, with names beside the codes\n"
                     "telvane listen /tmp/bus WeldMetrics --count 1 --names --pretty\n"
                     "# the current alone, for another program\n"
                     "telvane listen /tmp/bus WeldTraceDataPoint | jq .payload.amps\n");
    command.run([options] { return listen(*options); });
}

} // namespace TelvaneTool

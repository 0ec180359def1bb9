// The receiver thread formats records and the main thread writes them. A reader that is slow for a moment thus costs
// memory here, and no records at the server, which drops what a subscriber does not read in time.

#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/bus/DecodedRecord.h"
#include "common/bus/PatternSubscriber.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"
#include "common/support/HumanReadable.h"
#include "listen/FormatOptions.h"
#include "listen/SampleRecord.h"
#include "listen/SequenceGaps.h"

#include <Telvane/RequestType.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>
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
    const RecordClass* recordClass = nullptr;
    std::uint64_t count = 0;
    double timeout = 0.0;
    bool all = false;
    bool last = false;
    FormatOptions format;
    bool verbose = false;
};

/// Buffers the output until the main thread writes it.
class Arrivals
{
public:
    explicit Arrivals(const Options& options)
        : m_options(options), m_lines(options.format.settings), m_output(m_lines.heading())
    {}

    /// Called on the receiver thread.
    void take(const std::string& channel, const DecodedRecord& record, const RecordClass* recordClass,
              int sequence)
    {
        m_missed.take(sequence);
        if (m_options.last && isRepeated(channel, sequence)) {
            return;
        }
        if (record.hadInvalidText()) {
            m_missed.takeInvalidText();
        }
        if (!record.decodeError().empty()) {
            m_missed.takeUnreadable();
            printError(channel + " " + std::to_string(sequence) + ": " + record.decodeError());
            return;
        }
        append(m_lines.print({channel, sequence, record.text(), recordClass, realTimeNow(), monotonicNow()}));
    }

    /// Called on the receiver thread, for samples if printsSamples() and without --last.
    void take(const std::string& channel, SampleRecord& sample, const RecordClass* recordClass, int sequence)
    {
        std::string line;
        if (!sample.isRead() || !m_lines.printSample(sample, channel, sequence, realTimeNow(), line)) {
            take(channel, sample.decoded(), recordClass, sequence);
            return;
        }
        m_missed.take(sequence);
        append(line);
    }

    bool printsSamples() const { return m_lines.printsSamples(); }

    const SequenceGaps& missed() const { return m_missed; }

    /// Writes the output until the command ends.
    int writeTo(BusConnection& bus, PatternSubscriber& channels, Nanoseconds deadline)
    {
        for (;;) {
            bus.waitFor([this] { return hasOutput(); }, channels.nextWake(deadline));
            if (const int result = channels.follow(); result != kSuccess) {
                return result;
            }
            const bool expired = deadline >= 0 && monotonicNow() >= deadline;
            if (const std::string output = takeOutput(); !output.empty() && !bus.write(output)) {
                return kOutputFailure;
            }
            if (bus.stopping() || (m_options.count != 0 && m_written == m_options.count)) {
                return kSuccess;
            }
            if (expired) {
                return reportTimeout();
            }
        }
    }

private:
    void append(const std::string& line)
    {
        if (line.empty()) {
            return;
        }
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_options.count == 0 || m_taken < m_options.count) {
            ++m_taken;
            m_output += line;
        }
    }

    /// \return whether the record that was requested has also arrived by itself
    bool isRepeated(const std::string& channel, int sequence)
    {
        const auto [entry, isFirst] = m_sequences.try_emplace(channel, sequence);
        return !isFirst && std::exchange(entry->second, sequence) == sequence;
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
        printError("only " + std::to_string(m_written) + " of " + std::to_string(m_options.count) +
                   " records arrived in time");
        return kTimedOut;
    }

    const Options& m_options;
    SequenceGaps m_missed;
    RecordFormatter m_lines; ///< used by the receiver thread only
    std::map<std::string, int>
        m_sequences; ///< of the last record of each channel; by the receiver thread only
    std::mutex m_lock;
    std::string m_output;
    std::uint64_t m_taken = 0;
    std::uint64_t m_written = 0; ///< used by the main thread only
};

/// Parses the conditions. Prints an error on failure.
bool readOptions(Options& options)
{
    if (!readFilters(options.format)) {
        return false;
    }
    if (options.channels.empty() && !options.all) {
        printError("CHANNEL is required; --all listens on every channel");
        return false;
    }
    return options.all || checkFields(options.format, options.channels, options.recordClass);
}

int listen(Options& options)
{
    if (!readOptions(options)) {
        return kWrongUsage;
    }
    const Nanoseconds deadline =
        options.timeout > 0.0 ? monotonicNow() + nanoseconds(options.timeout) : BusConnection::kNoDeadline;
    Arrivals arrivals(options);
    BusConnection bus(BusConnection::Output::Data, options.count == 0
                                                       ? BusConnection::Interruption::ExpectedExit
                                                       : BusConnection::Interruption::Aborts);
    if (options.bus.reconnect) {
        bus.reconnect(true);
    }
    int result = bus.connect(options.bus.path, options.bus.wait);
    const auto subscribe = [&](const std::string& channel) {
        const RecordClass* const recordClass = classOfChannel(options.recordClass, channel);
        const auto subscribeTo = [&](const auto& prototype) {
            using Record = std::decay_t<decltype(prototype)>;
            return bus.subscribe(
                channel, prototype,
                [&, channel, recordClass](void*, TelvaneDataTypeBase* record, int sequence, void*) {
                    arrivals.take(channel, static_cast<Record&>(*record), recordClass, sequence);
                    bus.wake();
                });
        };
        const bool asSample = arrivals.printsSamples() && !options.last && recordClass != nullptr &&
                              &recordClass->table() == &Telvane::WeldTraceData::recordTable();
        const int subscribed =
            asSample ? subscribeTo(SampleRecord()) : subscribeTo(DecodedRecord(recordClass));
        if (subscribed == kSuccess && options.last) {
            Telvane::RequestType request;
            bus.publish(Telvane::kRequestPrefix + channel, request);
        }
        return subscribed;
    };
    PatternSubscriber channels(bus, options.channels, options.all, subscribe);
    if (result == kSuccess) {
        result = channels.start();
    }
    if (options.verbose && result == kSuccess) {
        printStatus("listening");
    }
    if (result == kSuccess) {
        result = arrivals.writeTo(bus, channels, deadline);
    }
    if (bus.losses() != 0) {
        printStatus("the connection was lost " + printNumber(bus.losses(), "time") +
                    "; records that were published meanwhile are missing");
    } else if (!channels.polls() && !options.last) {
        // Polling and requests use sequence numbers, so gaps would mean nothing.
        for (const std::string& line : arrivals.missed().describe(options.verbose)) {
            printStatus(line);
        }
    }
    const std::uint64_t broken = bus.brokenMessages() + bus.undecodableRecords();
    if (broken != 0) {
        printError(std::to_string(broken) + " messages could not be read");
    }
    return bus.finish(result);
}

} // namespace

void addListenCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "listen", "Print the records of channels as lines of JSON");
    addBusOptions(command, options->bus);
    addReconnectOption(command, options->bus);
    command
        .option("CHANNEL", options->channels, "Channels to listen on, or patterns such as 'PS*' (see --all)")
        .check(&checkChannelPattern);
    command.flag(
        "--all", options->all,
        "Listen on every channel that is named like a record class, and on every other channel that has a "
        "subscriber, now or later");
    command.flag(
        "--last", options->last,
        "First print the last record of each channel, if a server with --remember or a responder has "
        "one");
    addClass(command, "--as", options->recordClass,
             "Decode payloads as this class (default: the class with the channel's name; if there is none, "
             "payloads are printed as received)");
    command.option("--count", options->count, "Exit after this many records").positive();
    command.option("--timeout", options->timeout, "Exit after SECONDS; an error if --count is not reached")
        .positive()
        .within(0.0, kMaxSeconds)
        .typeName("SECONDS");
    addFormatOptions(command, options->format);
    command.flag("--verbose", options->verbose,
                 "Print \"listening\" to standard error when all subscriptions are active");
    command.examples("# all channels, until Ctrl-C\n"
                     "telvane listen /tmp/bus --all\n"
                     "# the next start of a weld, with the names of codes\n"
                     "telvane listen /tmp/bus WeldTriggerStart --count 1 --names --pretty\n"
                     "# samples with a high current, and the time between them\n"
                     "telvane listen /tmp/bus WeldTraceData --where 'data.amps>250' --delta\n"
                     "# time and current only, for another program\n"
                     "telvane listen /tmp/bus WeldTraceData -F '%u %{data.amps}'\n");
    command.run([options] { return listen(*options); });
}

} // namespace TelvaneTool

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
#include "common/support/Saturating.h"
#include "recording/MissTracker.h"
#include "recording/Recorder.h"

#include <atomic>
#include <csignal>
#include <memory>
#include <mutex>
#include <numeric>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace TelvaneTool
{

namespace
{

using Telvane::TelvaneDataTypeBase;

constexpr Nanoseconds kWritePeriod = kSecond / 10; ///< data that a crash may lose

struct Options
{
    BusOptions bus;
    std::vector<std::string> channels;
    bool all = false;
    Recorder::Settings recorder;
    Nanoseconds duration = 0;
    bool triggerOnly = false;
    bool verbose = false;
};

/// Blocks SIGUSR1 in this thread and all threads that it starts, and reads it.
class WriteSignal
{
public:
    WriteSignal()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        m_fd = FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    }

    /// \return whether the signal has arrived since the last call
    bool take() const
    {
        signalfd_siginfo info = {};
        return read(m_fd.get(), &info, sizeof info) == sizeof info;
    }

private:
    FileDescriptor m_fd;
};

std::string readCompression(const std::string& text, Options& options)
{
    if (text == "gzip") {
        options.recorder.output.compression = Compression::Gzip;
    } else if (text == "zstd") {
        options.recorder.output.compression = Compression::Zstd;
    } else {
        return "expected gzip or zstd";
    }
    return {};
}

/// Makes the name of the file and the compression agree.
void completeCompression(RecordingWriter::Settings& output)
{
    const Compression byName = compressionOfPath(output.path);
    if (output.compression == Compression::None) {
        output.compression = byName;
    } else if (output.compression != byName && output.path != "-") {
        output.path += output.compression == Compression::Gzip ? ".gz" : ".zst";
    }
}

bool checkOptions(const Options& options)
{
    const Recorder::Settings& recorder = options.recorder;
    if (options.channels.empty() && !options.all) {
        printError("CHANNEL is required; --all records every channel");
        return false;
    }
    if (recorder.keep > 0 && recorder.output.path == "-") {
        printError("--keep cannot write to standard output; use -o FILE");
        return false;
    }
    return true;
}

using Missed = std::map<std::string, std::uint64_t>;

std::uint64_t totalOf(const Missed& missed)
{
    return std::accumulate(missed.begin(), missed.end(), std::uint64_t(0),
                           [](std::uint64_t sum, const auto& entry) { return sum + entry.second; });
}

void reportMissed(const Missed& missed)
{
    std::string text = "missed " + printNumber(totalOf(missed), "record") + " so far";
    const char* separator = ": ";
    for (const auto& [channel, count] : missed) {
        text += separator + channel + " " + std::to_string(count);
        separator = ", ";
    }
    printStatus(text);
}

void reportResult(Recorder& recorder)
{
    const RecordingWriter& writer = recorder.writer();
    std::string text = printNumber(writer.records(), "record");
    if (writer.files() != 0) {
        text += ", " + printBytes(static_cast<double>(writer.bytes())) + " in " +
                printNumber(static_cast<std::uint64_t>(writer.files()), "file");
    }
    printStatus(text);
}

/// Notes in the recording when there was no connection. take() is for the connection's thread.
class Outages
{
public:
    /// Begins to note. What was lost before is not part of the recording.
    void begin(Recorder& recorder, MissTracker& misses)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_recorder = &recorder;
        m_misses = &misses;
    }

    void take(bool connected)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_recorder == nullptr) {
            return;
        }
        if (connected) {
            note();
        } else {
            m_misses->restart();
            m_from = monotonicNow();
            ++m_number;
        }
    }

    /// Notes the outage that lasts until the end.
    /// \return how many there were
    std::uint64_t end()
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        note();
        return m_number;
    }

private:
    void note()
    {
        if (m_from != 0) {
            m_recorder->addOutage(std::exchange(m_from, 0), monotonicNow());
        }
    }

    std::mutex m_lock;
    Recorder* m_recorder = nullptr;
    MissTracker* m_misses = nullptr;
    Nanoseconds m_from = 0; ///< begin of the present outage, or 0
    std::uint64_t m_number = 0;
};

/// Writes what arrives, until there is a reason to end.
class RecordLoop
{
public:
    RecordLoop(BusConnection& bus, Recorder& recorder, PatternSubscriber& channels, MissTracker& misses)
        : m_bus(bus), m_recorder(recorder), m_channels(channels), m_misses(misses)
    {}

    /// \return an exit code
    int run(const WriteSignal& signal, Nanoseconds duration)
    {
        const Nanoseconds deadline =
            duration > 0 ? addSaturated(monotonicNow(), duration) : BusConnection::kNoDeadline;
        for (;;) {
            const Nanoseconds next = monotonicNow() + kWritePeriod;
            const bool complete = m_bus.waitFor([this] { return m_recorder.complete(); },
                                                deadline >= 0 ? std::min(deadline, next) : next);
            if (!m_recorder.write(signal.take() ? "SIGUSR1" : "")) {
                return kOutputFailure;
            }
            if (const int result = m_channels.follow(); result != kSuccess) {
                return result;
            }
            m_misses.follow();
            reportNewMisses();
            if (complete || m_bus.stopping() || (deadline >= 0 && monotonicNow() >= deadline)) {
                return kSuccess;
            }
        }
    }

    /// Reports misses while they happen, but at most once a second.
    void reportNewMisses(bool last = false)
    {
        const Nanoseconds now = monotonicNow();
        if (now < m_nextReport && !last) {
            return;
        }
        const Missed missed = m_recorder.missed();
        if (const std::uint64_t total = totalOf(missed); total > m_reported) {
            reportMissed(missed);
            m_reported = total;
            m_nextReport = now + kSecond;
        }
    }

private:
    BusConnection& m_bus;
    Recorder& m_recorder;
    PatternSubscriber& m_channels;
    MissTracker& m_misses;
    std::uint64_t m_reported = 0;
    Nanoseconds m_nextReport = 0;
};

/// \return why the buffered records are saved at the end; empty if they are not
std::string finalTrigger(const BusConnection& bus, const Options& options)
{
    if (options.triggerOnly) {
        return {};
    }
    if (bus.connectionLost()) {
        return "the connection was lost";
    }
    return bus.signal() == SIGTERM ? "SIGTERM" : "";
}

int record(Options& options)
{
    Recorder::Settings& settings = options.recorder;
    settings.output.numbered =
        settings.keep > 0 || settings.output.splitSize != 0 || settings.output.splitAfter != 0;
    if (!checkOptions(options)) {
        return kWrongUsage;
    }
    completeCompression(settings.output);
    const WriteSignal signal;
    const bool toStandardOutput = settings.output.path == "-";
    BusConnection bus(toStandardOutput ? BusConnection::Output::Data : BusConnection::Output::Unused,
                      settings.count == 0 ? BusConnection::Interruption::ExpectedExit
                                          : BusConnection::Interruption::Aborts);
    Outages outages;
    if (options.bus.reconnect) {
        bus.reconnect(true, [&outages](bool connected) { outages.take(connected); });
    }
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result != kSuccess) {
        return bus.finish(result);
    }
    Recorder recorder(settings, {realTimeNow(), options.bus.path, options.channels, 1});
    if (!recorder.open()) {
        return bus.finish(kOutputFailure);
    }
    MissTracker misses(bus, [&recorder](const std::string& channel, std::uint64_t count, Nanoseconds from,
                                        Nanoseconds to) { recorder.addMissed(channel, count, from, to); });
    outages.begin(recorder, misses);
    result = misses.start();
    std::atomic<std::uint64_t> invalidTexts{0};
    const auto subscribe = [&](const std::string& channel) {
        misses.subscribes(channel);
        return bus.subscribe(channel, DecodedRecord(nullptr),
                             [&, channel](void*, TelvaneDataTypeBase* incoming, int sequence, void*) {
                                 const auto& record = static_cast<DecodedRecord&>(*incoming);
                                 const std::string& text = record.text();
                                 invalidTexts += record.hadInvalidText() ? 1 : 0;
                                 recorder.take(channel, sequence, text);
                                 if (channel == kClientsStatus) { // in place of the tracker's subscription
                                     misses.takeAnswer(text, sequence);
                                 } else {
                                     misses.arrived(channel, sequence);
                                 }
                                 if (recorder.complete()) {
                                     bus.wake();
                                 }
                             });
    };
    std::vector<std::string> wanted = options.channels;
    if (!settings.trigger.empty()) {
        wanted.push_back(settings.trigger);
    }
    PatternSubscriber channels(bus, wanted, options.all, subscribe);
    RecordLoop loop(bus, recorder, channels, misses);
    result = result == kSuccess ? channels.start() : result;
    if (result == kSuccess) {
        if (options.verbose) {
            printStatus("recording");
        }
        result = loop.run(signal, options.duration);
    }
    if (!bus.connectionLost()) {
        misses.finish();
    }
    result = bus.finish(result); // from here on nothing arrives
    const std::uint64_t lost = outages.end();
    if (!recorder.finish(finalTrigger(bus, options)) && result == kSuccess) {
        result = kOutputFailure;
    }
    loop.reportNewMisses(true);
    if (invalidTexts != 0) {
        printError(printNumber(invalidTexts, "record") + " had bytes that are not UTF-8, recorded as U+FFFD");
    }
    if (misses.uncertain() && totalOf(recorder.missed()) == 0) {
        printError(std::string("the sequence numbers have gaps, and the server ") +
                   (bus.connectionLost() ? "has gone away before it could report" : "does not report") +
                   " whether records were missed");
    }
    if (options.verbose || (isatty(STDERR_FILENO) != 0 && !toStandardOutput)) {
        reportResult(recorder);
    }
    if (lost != 0) {
        printStatus("the connection was lost " + printNumber(lost, "time"));
    }
    return result == kSuccess && (recorder.writer().missed() != 0 || lost != 0)
               ? static_cast<int>(kRecordsMissed)
               : result;
}

} // namespace

void addRecordCommand(CommandLine& line)
{
    constexpr std::uint64_t kMaxKept = 256ULL * 1024 * 1024;
    auto options = std::make_shared<Options>();
    Recorder::Settings& recorder = options->recorder;
    recorder.maxKept = kMaxKept;
    recorder.after = 5 * kSecond;
    Command command(line, "record", "Record channels to a file");
    addBusOptions(command, options->bus);
    addReconnectOption(command, options->bus);
    command.option("CHANNEL", options->channels, "Channels to record, or patterns such as 'PS*' (see --all)")
        .check(&checkChannelPattern);
    command.flag("--all", options->all,
                 "Record every channel that is named like a record class, and every other channel that has a "
                 "subscriber, now or later");
    command
        .option("-o,--output", recorder.output.path,
                "Write to FILE; - is standard output. If records are missed, FILE notes it, and the exit "
                "code is 1")
        .required()
        .typeName("FILE");
    command.flag("--force", recorder.output.replace, "Overwrite an existing file");
    addSize(command, "--split-size", recorder.output.splitSize,
            "Start a new file at this size; -o weld.jsonl then writes weld-0001.jsonl, weld-0002.jsonl and "
            "so on");
    addDuration(command, "--split-after", recorder.output.splitAfter, "Start a new file after this time");
    command
        .optionReadBy(
            [options](const std::string& text) { return readCompression(text, *options); }, "--compress",
            "Compress with gzip or zstd, and add .gz or .zst to the name (default: according to the name)")
        .typeName("METHOD");
    addDuration(command, "--keep", recorder.keep,
                "Buffer the latest records in memory, and save them to a numbered file only on SIGUSR1, on "
                "--trigger, on SIGTERM or if the connection is lost");
    addSize(command, "--keep-size", recorder.maxKept, "Limit the buffer of --keep to this size")
        .showDefault("256M")
        .needs("--keep");
    command
        .option("--trigger", recorder.trigger,
                "Save the buffered records when a record arrives on CHANNEL, which is recorded as well")
        .check(&checkChannel)
        .typeName("CHANNEL")
        .check(&checkChannel)
        .needs("--keep");
    addDuration(command, "--after", recorder.after, "Continue to record for this time after a trigger", true)
        .showDefault("5s")
        .needs("--keep");
    command
        .flag("--trigger-only", options->triggerOnly, "Do not save on SIGTERM or if the connection is lost")
        .needs("--keep");
    addDuration(command, "--duration", options->duration, "Exit after this time");
    command.option("--count", recorder.count, "Exit after this many records").positive();
    addSize(command, "--queue-size", recorder.maxQueued,
            "Limit the memory for records that wait for a slow disk; records beyond it are missed")
        .showDefault("64M");
    command.flag(
        "--verbose", options->verbose,
        "Print \"recording\" to standard error when all subscriptions are active, and a summary at the end");
    command.examples("# the welds of a power source\n"
                     "telvane record /tmp/bus -o weld.jsonl WeldTriggerStart WeldTraceData WeldTriggerEnd\n"
                     "# all channels, in compressed files of 100 MB\n"
                     "telvane record /tmp/bus -o bus.jsonl.zst --all --split-size 100M\n"
                     "# from 30 seconds before an error to 5 seconds after it, even if the server dies\n"
                     "telvane record /tmp/bus -o fault.jsonl --all --keep 30s --trigger TelvaneError\n");
    command.run([options] { return record(*options); });
}

} // namespace TelvaneTool

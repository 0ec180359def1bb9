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
#include "recording/Recorder.h"

#include <csignal>
#include <memory>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vector>

namespace TelvaneTool
{

namespace
{

using Telvane::TelvaneDataTypeBase;

constexpr Nanoseconds kWritePeriod = kSecond / 10; ///< what a sudden end may cost

struct Options
{
    BusOptions bus;
    std::vector<std::string> channels;
    bool all = false;
    Recorder::Settings recorder;
    Nanoseconds duration = 0;
    bool verbose = false;
};

/// SIGUSR1, taken out of its normal course for all threads that are started after it.
class WriteSignal
{
public:
    WriteSignal()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        m_fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    ~WriteSignal() { close(m_fd); }
    WriteSignal(const WriteSignal&) = delete;
    WriteSignal& operator=(const WriteSignal&) = delete;

    /// \return true when it has come since the last call
    bool take() const
    {
        signalfd_siginfo info = {};
        return read(m_fd, &info, sizeof info) == sizeof info;
    }

private:
    int m_fd = -1;
};

bool checkOptions(const Options& options)
{
    const Recorder::Settings& recorder = options.recorder;
    if (options.channels.empty() && !options.all) {
        printError("CHANNEL is required; --all records every channel");
        return false;
    }
    if (recorder.keep > 0 && recorder.output.path == "-") {
        printError("what is kept until something happens needs a file of its own, not standard output");
        return false;
    }
    return true;
}

void tellResult(const Recorder& recorder)
{
    const RecordingWriter& writer = recorder.writer();
    std::string text = std::to_string(recorder.records()) + " records";
    if (writer.files() != 0) {
        text += ", " + printBytes(static_cast<double>(writer.bytes())) + " in " +
                std::to_string(writer.files()) + (writer.files() == 1 ? " file" : " files");
    }
    printError(text);
}

/// \return an exit code
int write(BusConnection& session, Recorder& recorder, PatternSubscriber& channels, const WriteSignal& signal,
          Nanoseconds duration)
{
    const Nanoseconds deadline = duration > 0 ? monotonicNow() + duration : BusConnection::kNoDeadline;
    for (;;) {
        const Nanoseconds next = monotonicNow() + kWritePeriod;
        const bool complete = session.waitFor([&recorder] { return recorder.complete(); },
                                              deadline >= 0 ? std::min(deadline, next) : next);
        if (!recorder.write(signal.take())) {
            return kOutputFailure;
        }
        if (const int result = channels.follow(); result != kSuccess) {
            return result;
        }
        if (complete || session.stopping() || (deadline >= 0 && monotonicNow() >= deadline)) {
            return kSuccess;
        }
    }
}

int record(Options& options)
{
    Recorder::Settings& settings = options.recorder;
    settings.output.numbered =
        settings.keep > 0 || settings.output.splitSize != 0 || settings.output.splitAfter != 0;
    if (!checkOptions(options)) {
        return kWrongUsage;
    }
    const WriteSignal signal;
    const bool toStandardOutput = settings.output.path == "-";
    BusConnection session(toStandardOutput ? BusConnection::Output::Data : BusConnection::Output::Unused,
                          settings.count == 0 ? BusConnection::Interruption::ExpectedExit
                                              : BusConnection::Interruption::Aborts);
    int result = session.connect(options.bus.path, options.bus.wait);
    if (result != kSuccess) {
        return session.finish(result);
    }
    Recorder recorder(settings, {realTimeNow(), options.bus.path, options.channels, 1});
    if (!recorder.open()) {
        return session.finish(kOutputFailure);
    }
    const auto subscribe = [&](const std::string& channel) {
        return session.subscribe(channel, DecodedRecord(nullptr),
                                 [&, channel](void*, TelvaneDataTypeBase* incoming, int sequence, void*) {
                                     recorder.take(channel, sequence,
                                                   static_cast<DecodedRecord&>(*incoming).text());
                                     if (recorder.complete()) {
                                         session.wake();
                                     }
                                 });
    };
    std::vector<std::string> wanted = options.channels;
    if (!settings.trigger.empty()) {
        wanted.push_back(settings.trigger);
    }
    PatternSubscriber channels(session, wanted, options.all, subscribe);
    result = channels.start();
    if (result == kSuccess) {
        if (options.verbose) {
            printError("recording");
        }
        result = write(session, recorder, channels, signal, options.duration);
    }
    result = session.finish(result); // from here on nothing arrives
    if (!recorder.finish() && result == kSuccess) {
        result = kOutputFailure;
    }
    if (options.verbose || (isatty(STDERR_FILENO) != 0 && !toStandardOutput)) {
        tellResult(recorder);
    }
    return result;
}

} // namespace

void addRecordCommand(CommandLine& line)
{
    constexpr std::uint64_t kMaxKept = 256ULL * 1024 * 1024;
    auto options = std::make_shared<Options>();
    Recorder::Settings& recorder = options->recorder;
    recorder.mostKept = kMaxKept;
    recorder.after = 5 * kSecond;
    Command command(line, "record", "Write the records of some channels into a file, as they come");
    addBusOptions(command, options->bus);
    command
        .option("CHANNEL", options->channels,
                "Channels to record; 'PS*' records all that are like this, also those to come")
        .check(&checkChannelPattern);
    command.flag(
        "--all", options->all,
        "Record every channel that the server knows, which is what somebody has subscribed to, and new ones");
    command.option("-o,--output", recorder.output.path, "File to write; - for standard output")
        .required()
        .typeName("FILE");
    command.flag("--force", recorder.output.replace, "Replace a file that is there already");
    addSize(command, "--split-size", recorder.output.splitSize,
            "Begin a new file at this size: with -o weld.jsonl weld-0001.jsonl, weld-0002.jsonl and so on");
    addDuration(command, "--split-after", recorder.output.splitAfter, "Begin a new file after this time");
    addDuration(command, "--keep", recorder.keep,
                "Keep this much in memory, and write it into a numbered file of its own only on SIGUSR1 or "
                "--trigger");
    addSize(command, "--keep-size", recorder.mostKept, "Keep no more than this in memory (default: 256M)")
        .needs("--keep");
    command
        .option("--trigger", recorder.trigger,
                "Channel, recorded too, whose records have what is kept written")
        .check(&checkChannel)
        .typeName("CHANNEL")
        .needs("--keep");
    addDuration(command, "--after", recorder.after, "How long to go on writing then (default: 5s)")
        .needs("--keep");
    addDuration(command, "--duration", options->duration, "End after this time");
    command.option("--count", recorder.count, "End after this many records").positive();
    command.flag("--verbose", options->verbose,
                 "Say on standard error when nothing that is published from then on will be missed, and how "
                 "much was recorded");
    command.examples("# what a power source tells of its welds\n"
                     "telvane record /tmp/bus -o weld.jsonl WeldTriggerStart WeldTraceData WeldTriggerEnd\n"
                     "# everything, in files of a hundred megabytes\n"
                     "telvane record /tmp/bus -o bus.jsonl --all --split-size 100M\n"
                     "# what was half a minute before an error and five seconds after it\n"
                     "telvane record /tmp/bus -o fault.jsonl --all --keep 30s --trigger ErrorData\n");
    command.run([options] { return record(*options); });
}

} // namespace TelvaneTool

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

constexpr Nanoseconds kWritePeriod = kSecond / 10; ///< data that a crash may lose

struct Options
{
    BusOptions bus;
    std::vector<std::string> channels;
    bool all = false;
    Recorder::Settings recorder;
    Nanoseconds duration = 0;
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

void printResult(const Recorder& recorder)
{
    const RecordingWriter& writer = recorder.writer();
    std::string text = std::to_string(recorder.records()) + " records";
    if (writer.files() != 0) {
        text += ", " + printBytes(static_cast<double>(writer.bytes())) + " in " +
                std::to_string(writer.files()) + (writer.files() == 1 ? " file" : " files");
    }
    printStatus(text);
}

/// \return an exit code
int write(BusConnection& bus, Recorder& recorder, PatternSubscriber& channels, const WriteSignal& signal,
          Nanoseconds duration)
{
    const Nanoseconds deadline = duration > 0 ? monotonicNow() + duration : BusConnection::kNoDeadline;
    for (;;) {
        const Nanoseconds next = monotonicNow() + kWritePeriod;
        const bool complete = bus.waitFor([&recorder] { return recorder.complete(); },
                                          deadline >= 0 ? std::min(deadline, next) : next);
        if (!recorder.write(signal.take())) {
            return kOutputFailure;
        }
        if (const int result = channels.follow(); result != kSuccess) {
            return result;
        }
        if (complete || bus.stopping() || (deadline >= 0 && monotonicNow() >= deadline)) {
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
    BusConnection bus(toStandardOutput ? BusConnection::Output::Data : BusConnection::Output::Unused,
                      settings.count == 0 ? BusConnection::Interruption::ExpectedExit
                                          : BusConnection::Interruption::Aborts);
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result != kSuccess) {
        return bus.finish(result);
    }
    Recorder recorder(settings, {realTimeNow(), options.bus.path, options.channels, 1});
    if (!recorder.open()) {
        return bus.finish(kOutputFailure);
    }
    const auto subscribe = [&](const std::string& channel) {
        return bus.subscribe(channel, DecodedRecord(nullptr),
                             [&, channel](void*, TelvaneDataTypeBase* incoming, int sequence, void*) {
                                 recorder.take(channel, sequence,
                                               static_cast<DecodedRecord&>(*incoming).text());
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
    result = channels.start();
    if (result == kSuccess) {
        if (options.verbose) {
            printStatus("recording");
        }
        result = write(bus, recorder, channels, signal, options.duration);
    }
    result = bus.finish(result); // no more records arrive
    if (!recorder.finish() && result == kSuccess) {
        result = kOutputFailure;
    }
    if (options.verbose || (isatty(STDERR_FILENO) != 0 && !toStandardOutput)) {
        printResult(recorder);
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
    Command command(line, "record", "Record channels to a file");
    addBusOptions(command, options->bus);
    command
        .option("CHANNEL", options->channels,
                "Channels to record; patterns such as 'PS*' also match channels that appear later")
        .check(&checkChannelPattern);
    command.flag("--all", options->all, "Record all channels that have or had a subscriber, and new ones");
    command.option("-o,--output", recorder.output.path, "Write to FILE; - is standard output")
        .required()
        .typeName("FILE");
    command.flag("--force", recorder.output.replace, "Overwrite an existing file");
    addSize(command, "--split-size", recorder.output.splitSize,
            "Start a new file at this size; -o weld.jsonl then writes weld-0001.jsonl, weld-0002.jsonl and "
            "so on");
    addDuration(command, "--split-after", recorder.output.splitAfter, "Start a new file after this time");
    addDuration(command, "--keep", recorder.keep,
                "Buffer the latest records in memory, and save them to a numbered file only on SIGUSR1 or "
                "--trigger");
    addSize(command, "--keep-size", recorder.mostKept, "Limit the buffer of --keep to this size")
        .showDefault("256M")
        .needs("--keep");
    command
        .option("--trigger", recorder.trigger,
                "Save the buffered records when a record arrives on CHANNEL, which is recorded as well")
        .check(&checkChannel)
        .typeName("CHANNEL")
        .needs("--keep");
    addDuration(command, "--after", recorder.after, "Continue to record for this time after a trigger")
        .showDefault("5s")
        .needs("--keep");
    addDuration(command, "--duration", options->duration, "Exit after this time");
    command.option("--count", recorder.count, "Exit after this many records").positive();
    command.flag(
        "--verbose", options->verbose,
        "Print \"recording\" to standard error once no message will be missed, and a summary at the end");
    command.examples("# the welds of a power source\n"
                     "telvane record /tmp/bus -o weld.jsonl WeldTriggerStart WeldTraceData WeldTriggerEnd\n"
                     "# all channels, in files of 100 MB\n"
                     "telvane record /tmp/bus -o bus.jsonl --all --split-size 100M\n"
                     "# from 30 seconds before an error to 5 seconds after it\n"
                     "telvane record /tmp/bus -o fault.jsonl --all --keep 30s --trigger ErrorData\n");
    command.run([options] { return record(*options); });
}

} // namespace TelvaneTool

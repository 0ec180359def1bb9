#include "Commands.h"
#include "LiveJudging.h"
#include "archive/follow/WeldImporter.h"
#include "common/bus/RecordCheck.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/HumanReadable.h"
#include "recording/RecordingReader.h"
#include "weld/WeldOptions.h"

#include <memory>

namespace TelvaneArchive
{

namespace
{

using TelvaneTool::Nanoseconds;

struct Options
{
    std::string file;
    WriterOptions writer;
    TelvaneTool::WeldSource::Options source;
    TelvaneTool::WeldDetector::Settings detector;
    TelvaneTool::WeldSetup setup;
    LiveJudging::Options judging;
    bool groupIsPart = false;
};

/// Passes the welds of a CSV file on to the importer, without a bus.
class ImportSink : public TelvaneTool::RecordSink
{
public:
    explicit ImportSink(WeldImporter& importer) : m_importer(importer) {}

    void publish(const std::string& channel, Telvane::TelvaneDataTypeBase& record, Nanoseconds /*stamp*/,
                 const std::string& group) override
    {
        if (channel == "WeldTraceData") {
            m_importer.add(static_cast<const Telvane::WeldTraceData&>(record));
        } else if (channel == "WeldTriggerStart") {
            m_importer.add(static_cast<const Telvane::WeldTriggerStart&>(record), group);
        } else if (m_status) {
            m_status = m_importer.add(static_cast<const Telvane::WeldTriggerEnd&>(record));
        }
    }
    bool sleepUntil(Nanoseconds /*deadline*/) override { return static_cast<bool>(m_status); }
    const Status& status() const { return m_status; }

private:
    WeldImporter& m_importer;
    Status m_status;
};

int importCsv(const Options& options, WeldImporter& importer, Status& status)
{
    TelvaneTool::WeldSource source(options.source, {});
    if (const int opened = source.open(); opened != TelvaneTool::kSuccess) {
        return opened;
    }
    importer.setAbsoluteTime(source.samples().traits().absoluteTime);
    ImportSink sink(importer);
    TelvaneTool::LatencyTracker closed;
    TelvaneTool::WeldPublisher::Settings settings;
    settings.speed = 0.0;
    TelvaneTool::WeldPublisher publisher(sink, source.samples(), closed, options.setup, settings);
    publishWelds(source.samples(), publisher, options.detector, [&] { return !sink.status(); });
    status = sink.status();
    return source.finish();
}

int importRecording(const Options& options, WeldImporter& importer, Status& status)
{
    TelvaneTool::RecordingReader reader;
    if (!reader.open(options.file)) {
        return TelvaneTool::kWrongInput;
    }
    TelvaneTool::RecordedMessage message;
    while (status && reader.next(message)) {
        Telvane::WeldTriggerStart start;
        Telvane::WeldTraceData trace;
        Telvane::WeldTriggerEnd end;
        if (message.isNote()) {
            continue; // the gaps in the numbers of the samples show this, too
        }
        if (message.channel == "WeldTraceData" && TelvaneTool::readRecord(message.payload, trace)) {
            importer.add(trace);
        } else if (message.channel == "WeldTriggerStart" && TelvaneTool::readRecord(message.payload, start)) {
            importer.add(start, std::string(message.group));
        } else if (message.channel == "WeldTriggerEnd" && TelvaneTool::readRecord(message.payload, end)) {
            status = importer.add(end);
        }
    }
    return reader.finish();
}

int import(const Options& options)
{
    // The archive survives it at any point.
    const TelvaneTool::TerminationSignals end(TelvaneTool::TerminationSignals::Effect::End);
    WeldImporter::Settings settings;
    settings.module = options.writer.module;
    const bool csv = !options.source.recording.path.empty();
    if (csv == !options.file.empty()) {
        TelvaneTool::printError("either RECORDING or --csv FILE is required");
        return TelvaneTool::kWrongUsage;
    }
    settings.source = csv ? "csv" : "recording";
    settings.file = csv ? options.source.recording.path : options.file;
    settings.groupIsPart = options.groupIsPart;
    if (const std::string error = options.writer.makeContext(settings.context); !error.empty()) {
        TelvaneTool::printError(error);
        return TelvaneTool::kWrongUsage;
    }
    Status status;
    std::unique_ptr<ArchiveStore> store; // closes after the reader of the judge: the last one empties the log
    LiveJudging judging;
    int judged = TelvaneTool::kSuccess;
    store = ArchiveStore::open(options.writer.database, {}, status, [&](ArchiveStore& opened) {
        judged = judging.start(options.judging, opened, true);
        return judged == TelvaneTool::kSuccess ? Status() : Status{Status::Code::Failed, ""};
    });
    if (judged != TelvaneTool::kSuccess) {
        return judged;
    }
    if (!store) {
        return reportStatus(options.writer.database, status);
    }
    WeldImporter importer(*store, settings);
    const int result =
        csv ? importCsv(options, importer, status) : importRecording(options, importer, status);
    status = status ? importer.finish() : status;
    if (!status) {
        return reportStatus(options.writer.database, status);
    }
    static_cast<void>(store->makeBlocks()); // without them, a trend reads the rows
    TelvaneTool::printStatus("imported " + TelvaneTool::printNumber(importer.imported(), "weld") + " with " +
                             TelvaneTool::printNumber(importer.samples(), "sample") + ", " +
                             std::to_string(importer.known()) + " already there");
    return result;
}

} // namespace

void addImportCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "import", "Add the welds of a recording or a CSV file");
    command.option("RECORDING", options->file, "Recording by telvane record or telvane weld -o");
    command
        .option("--database", options->writer.database,
                "Add the welds to the archive in FILE, an SQLite file, created if missing")
        .required()
        .typeName("FILE");
    addWriterOptions(command, options->writer);
    command.flag("--group-is-part", options->groupIsPart,
                 "Keep the name of each weld in the file as its part number, not as its label");
    addRecordingOptions(command, options->source);
    addSetupOptions(command, options->setup);
    addRulesOption(command, options->judging);
    command.examples(
        "# a recording\n"
        "telvane archive import welds.jsonl --database welds.db\n"
        "# a CSV file, one weld for each value of a column\n"
        "telvane archive import --csv robot.csv --amps current_A --volts voltage_V --time date+time \\\n"
        "    --group part --group-is-part --database welds.db\n");
    command.run([options] { return import(*options); });
}

} // namespace TelvaneArchive

#include "Commands.h"
#include "OverlayPlot.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/Saturating.h"
#include "plot/Gnuplot.h"
#include "plot/WeldPlot.h"

#include <memory>

namespace TelvaneArchive
{

namespace
{

constexpr std::size_t kMaxWelds = 40;          ///< in one picture
constexpr std::size_t kMaxSamples = 2'000'000; ///< of one weld; the envelope is drawn for more

struct Options
{
    std::string database;
    std::vector<std::string> ids;
    std::string output;
    bool over = false;
    std::string like;
};

/// \return two samples for each part of the envelope: its minima and its maxima
std::vector<TelvaneTool::RecordedWeld::Sample> samplesOf(const Envelope& envelope)
{
    std::vector<TelvaneTool::RecordedWeld::Sample> samples;
    const std::int64_t span = TelvaneTool::subtractSaturated(envelope.end, envelope.start);
    const auto parts = static_cast<std::int64_t>(envelope.parts.size());
    const std::int64_t steps = 2 * parts;
    for (std::int64_t i = 0; i < parts; ++i) {
        const Envelope::Part& part = envelope.parts[static_cast<std::size_t>(i)];
        for (const bool upper : {false, true}) {
            const auto value = [&part, upper](Channel channel) {
                const Envelope::Range& range = part.ranges[static_cast<std::size_t>(channel)];
                return static_cast<double>(upper ? range.max : range.min);
            };
            TelvaneTool::RecordedWeld::Sample sample;
            const std::int64_t step = 2 * i + (upper ? 1 : 0);
            sample.time = span / steps * step + span % steps * step / steps; // cannot overflow
            sample.number = static_cast<int>(samples.size());
            sample.point.amps = value(Channel::Amps);
            sample.point.volts = value(Channel::Volts);
            sample.point.wfs = value(Channel::Wfs);
            sample.point.gas = value(Channel::Gas);
            sample.point.power = value(Channel::Power);
            sample.point.motor = value(Channel::Motor);
            if (part.count != 0) {
                samples.push_back(sample);
            }
        }
    }
    return samples;
}

Status readCurves(ArchiveReader& reader, const Weld& weld, TelvaneTool::RecordedWeld& drawn)
{
    if (weld.whole(Column::Samples) > static_cast<std::int64_t>(kMaxSamples)) {
        std::optional<Envelope> envelope;
        Status status = reader.envelope(weld.id, kFineParts, envelope);
        if (status && envelope) {
            drawn.samples = samplesOf(*envelope);
            return status;
        }
    }
    std::vector<Sample> samples;
    ArchiveReader::SamplePosition position;
    Status status = reader.samples(weld.id, {}, kMaxSamples, position, samples);
    for (const Sample& sample : samples) {
        const auto& values = sample.values;
        Telvane::WeldTraceDataPoint point;
        point.amps = values[0];
        point.volts = values[1];
        point.wfs = values[2];
        point.gas = values[3];
        point.power = values[4];
        point.motor = values[5];
        drawn.samples.push_back({sample.time, sample.number, point});
    }
    return status;
}

int plot(const Options& options)
{
    if (TelvaneTool::plotTerminal(options.output).empty()) {
        TelvaneTool::printError("--output: the file's name must end with .svg or .png");
        return TelvaneTool::kWrongUsage;
    }
    const auto reader = openArchive(options.database);
    if (!reader) {
        return TelvaneTool::kWrongInput;
    }
    if (options.over) {
        std::vector<Weld> welds;
        for (const std::string& text : options.ids) {
            const std::optional<Weld> weld = readWeld(*reader, std::strtoll(text.c_str(), nullptr, 10));
            if (!weld) {
                return TelvaneTool::kWrongInput;
            }
            welds.push_back(*weld);
        }
        return drawOverlay(*reader, welds, options.like, options.output);
    }
    std::vector<TelvaneTool::RecordedWeld> drawn;
    for (const std::string& text : options.ids) {
        const std::optional<Weld> weld = readWeld(*reader, std::strtoll(text.c_str(), nullptr, 10));
        if (!weld) {
            return TelvaneTool::kWrongInput;
        }
        TelvaneTool::RecordedWeld& recorded = drawn.emplace_back();
        recorded.start.FromJson(weld->text(Column::StartRecord));
        recorded.group =
            weld->has(Column::PartNumber) ? weld->text(Column::PartNumber) : weld->text(Column::Label);
        Telvane::WeldTriggerEnd end;
        recorded.ended =
            !weld->text(Column::EndRecord).empty() && end.FromJson(weld->text(Column::EndRecord));
        recorded.metrics = end.metrics;
        recorded.sampleCount = static_cast<std::uint64_t>(weld->whole(Column::Samples));
        if (const Status status = readCurves(*reader, *weld, recorded); !status) {
            return reportFailure(status);
        }
    }
    std::string picture;
    const int result = TelvaneTool::runGnuplot(
        TelvaneTool::printPlot(drawn, TelvaneTool::plotTerminal(options.output), "Welds"), picture);
    return result == TelvaneTool::kSuccess ? writeFile(options.output, picture) : result;
}

} // namespace

void addPlotCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "plot",
                                 "Draw welds below each other, on the same scales, or over each other");
    addDatabase(command, options->database);
    command.option("ID", options->ids, "Welds, at most 40")
        .required()
        .check([options](const std::string& text) -> std::string {
            return text.find_first_not_of("0123456789") == std::string::npos && text.size() < 19
                       ? ""
                       : "\"" + text + "\" is not the number of a weld";
        });
    command
        .option("-o,--output", options->output,
                "Write the picture to FILE, whose name ends with .svg or .png")
        .required()
        .typeName("FILE");
    command.flag("--over", options->over,
                 "Draw at most 8 welds over each other, with the range of welds like the first one");
    addLike(command, options->like).needs("--over");
    command.examples(
        "telvane welds plot welds.db 16 17 -o welds.svg\n"
        "# over each other, with the range of the welds that were found to be good\n"
        "telvane welds plot welds.db 16 17 --over --like \"program = 7 and verdict = 'ok'\" -o welds.svg\n");
    command.run([options] {
        const std::size_t max = options->over ? kMaxOverlaid : kMaxWelds;
        if (options->ids.size() > max) {
            TelvaneTool::printError("a picture can show " + std::to_string(max) + " welds");
            return static_cast<int>(TelvaneTool::kWrongUsage);
        }
        return plot(*options);
    });
}

} // namespace TelvaneArchive

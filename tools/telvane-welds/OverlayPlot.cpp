// Differences between welds of one kind are small, so the axes do not begin at 0, and only the means of the envelopes are
// drawn. The band is the range of what other welds of the kind did at the same time after their start. It is not a limit:
// limits come from the judge.

#include "OverlayPlot.h"

#include "Commands.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"
#include "plot/Gnuplot.h"
#include "plot/WeldPlot.h"

#include <algorithm>

namespace TelvaneArchive
{

namespace
{

constexpr std::size_t kMaxLike = 200;
constexpr std::size_t kMinLike = 3;
constexpr std::size_t kBandPoints = 200;

/// Distinguishable with colour blindness.
constexpr std::array<const char*, kMaxOverlaid> kColours = {"#0072B2", "#D55E00", "#009E73", "#CC79A7",
                                                            "#E69F00", "#56B4E9", "#000000", "#AA9900"};

struct Panel
{
    Channel channel;
    const char* title;
};
constexpr Panel kPanels[] = {{Channel::Amps, "current (A)"},
                             {Channel::Volts, "voltage (V)"},
                             {Channel::Wfs, "wire feed (in/min)"},
                             {Channel::Gas, "gas (l/min)"}};

bool isMeasured(const OverlaidWeld& weld, std::size_t channel)
{
    return std::any_of(weld.envelope.parts.begin(), weld.envelope.parts.end(), [channel](const auto& part) {
        return part.count != 0 && part.ranges[channel].max != 0.0F;
    });
}

std::string printCurve(const OverlaidWeld& weld, std::size_t channel)
{
    std::string text;
    const auto parts = static_cast<double>(weld.envelope.parts.size());
    for (std::size_t k = 0; k < weld.envelope.parts.size(); ++k) {
        const Envelope::Part& part = weld.envelope.parts[k];
        if (part.count == 0) {
            // Parts are shorter than the time between samples of a slow source, which is no gap.
            continue;
        }
        text += TelvaneTool::formatted("%.9g %.6g\n",
                                       (static_cast<double>(k) + 0.5) / parts * weld.envelope.seconds(),
                                       static_cast<double>(part.ranges[channel].mean));
    }
    return text;
}

std::string printBand(const OverlayBand& band, std::size_t channel)
{
    std::string text;
    for (const OverlayBand::Point& point : band.points) {
        text += TelvaneTool::formatted("%.9g %.6g %.6g\n", point.seconds, point.low[channel],
                                       point.high[channel]);
    }
    return text;
}

/// Marks where the judge found something in this channel.
std::string printFindings(const std::vector<OverlaidWeld>& welds, std::size_t channel)
{
    std::string text;
    int number = 0;
    for (const OverlaidWeld& weld : welds) {
        for (const Finding& finding : weld.findings) {
            if (finding.toSeconds > 0.0 &&
                finding.metric == std::string("course of ") + kChannelNames[channel]) {
                text += TelvaneTool::formatted(
                    "set object %d rect from %.9g,graph 0 to %.9g,graph 1 behind fc rgb "
                    "'#F4D9D9' fs solid noborder\n",
                    ++number, finding.fromSeconds, finding.toSeconds);
            }
        }
    }
    return text;
}

/// \return the key of a weld; a verdict that is none of the known ones is not drawn
std::string keyOf(const OverlaidWeld& weld)
{
    const bool known = weld.verdict == "ok" || weld.verdict == "warning" || weld.verdict == "not_ok";
    return "weld " + std::to_string(weld.id) + (known ? ", " + weld.verdict : "");
}

Status readLike(ArchiveReader& reader, const std::vector<Weld>& drawn, const WeldFilter& filter,
                std::vector<Envelope>& like)
{
    ArchiveReader::Query query;
    query.filter = filter;
    query.limit = kMaxLike;
    std::vector<Weld> welds;
    Status status = reader.list(query, welds);
    for (const Weld& weld : welds) {
        const bool isDrawn = std::any_of(drawn.begin(), drawn.end(),
                                         [&weld](const Weld& other) { return other.id == weld.id; });
        if (isDrawn || weld.text(Column::Verdict) == "not_ok") {
            continue;
        }
        std::optional<Envelope> envelope;
        status = status ? reader.envelope(weld.id, kCoarseParts, envelope) : status;
        if (envelope) {
            like.push_back(std::move(*envelope));
        }
    }
    return status;
}

/// \return welds of the same program and part
WeldFilter likeOf(const Weld& weld)
{
    WeldFilter filter;
    filter.add(Column::Ending, Condition::Comparison::Equal, std::string("complete"));
    for (const Column column : {Column::Program, Column::PartNumber}) {
        filter.add(column, weld.has(column) ? Condition::Comparison::Equal : Condition::Comparison::Unknown,
                   weld[column]);
    }
    return filter;
}

} // namespace

OverlayBand bandOf(const std::vector<Envelope>& like, double duration)
{
    OverlayBand band;
    band.welds = like.size();
    for (std::size_t i = 0; i <= kBandPoints; ++i) {
        OverlayBand::Point point;
        point.seconds = duration * static_cast<double>(i) / static_cast<double>(kBandPoints);
        std::size_t count = 0;
        for (const Envelope& envelope : like) {
            const double place = point.seconds / std::max(envelope.seconds(), 1e-9) *
                                 static_cast<double>(envelope.parts.size());
            if (place >= static_cast<double>(envelope.parts.size())) {
                continue; // it was shorter
            }
            const Envelope::Part& part = envelope.parts[static_cast<std::size_t>(place)];
            if (part.count == 0) {
                continue;
            }
            for (std::size_t channel = 0; channel < kChannels; ++channel) {
                const double value = static_cast<double>(part.ranges[channel].mean);
                point.low[channel] = count == 0 ? value : std::min(point.low[channel], value);
                point.high[channel] = count == 0 ? value : std::max(point.high[channel], value);
            }
            ++count;
        }
        if (count >= kMinLike) {
            band.points.push_back(point);
        }
    }
    return band;
}

std::string printOverlay(const std::vector<OverlaidWeld>& welds, const OverlayBand& band,
                         const std::string& terminal)
{
    double duration = 0.0;
    std::vector<Panel> panels;
    for (const OverlaidWeld& weld : welds) {
        duration = std::max(duration, weld.envelope.seconds());
    }
    for (const Panel& panel : kPanels) {
        const auto channel = static_cast<std::size_t>(panel.channel);
        if (std::any_of(welds.begin(), welds.end(),
                        [channel](const OverlaidWeld& weld) { return isMeasured(weld, channel); })) {
            panels.push_back(panel);
        }
    }
    const auto count = static_cast<double>(std::max<std::size_t>(panels.size(), 1));
    std::string script =
        "set terminal " + terminal +
        TelvaneTool::formatted(" size 1400,%.0f background rgb 'white' font 'DejaVu Sans,10'\n",
                               60.0 + 220.0 * count) +
        TelvaneTool::formatted("set multiplot layout %.0f,1\n", count) +
        "set key outside right top\nset grid\nset border 3\nset tics nomirror\nset offsets graph 0, 0, 0.05, "
        "0.05\n" +
        TelvaneTool::formatted("set xrange [0:%.9g]\nset lmargin 12\nset rmargin 30\n",
                               duration > 0.0 ? duration : 1.0);
    if (panels.empty()) {
        script += "set yrange [0:1]\nplot 1/0 title 'no samples'\n";
    }
    for (const Panel& panel : panels) {
        const auto channel = static_cast<std::size_t>(panel.channel);
        std::string plot;
        if (!band.points.empty()) {
            script += "$band << END\n" + printBand(band, channel) + "END\n";
            plot = "$band using 1:2:3 with filledcurves fc rgb '#808080' fs transparent solid 0.3 noborder "
                   "title "
                   "'range of " +
                   std::to_string(band.welds) + " like welds'";
        }
        for (std::size_t i = 0; i < welds.size(); ++i) {
            const std::string block = "$weld" + std::to_string(i);
            script += block + " << END\n" + printCurve(welds[i], channel) + "END\n";
            plot += std::string(plot.empty() ? "" : ", ") + block + " using 1:2 with lines lw 1.3 lc rgb '" +
                    kColours[i % kColours.size()] + "' title '" + keyOf(welds[i]) + "'";
        }
        script += std::string("set ylabel '") + panel.title + "'\n" +
                  (&panel == &panels.back() ? "set xlabel 's since the start'\n" : "") +
                  printFindings(welds, channel) + "plot " + plot + "\nunset object\nunset key\n";
    }
    return script + "unset multiplot\n";
}

int drawOverlay(ArchiveReader& reader, const std::vector<Weld>& welds, const std::string& like,
                const std::string& output)
{
    WeldFilter filter = likeOf(welds.front());
    if (!like.empty()) {
        filter = {};
        std::string error;
        if (!readWhere(like, filter, error)) {
            TelvaneTool::printError("--like: " + error);
            return TelvaneTool::kWrongUsage;
        }
    }
    double duration = 0.0;
    std::vector<OverlaidWeld> drawn;
    for (const Weld& weld : welds) {
        std::optional<Envelope> envelope;
        OverlaidWeld& added = drawn.emplace_back();
        added.id = weld.id;
        added.verdict = weld.text(Column::Verdict);
        Status status = reader.envelope(weld.id, kCoarseParts, envelope); // finer, noise hides the course
        status = status ? reader.findings(weld.id, added.findings) : status;
        if (!status) {
            return reportFailure(status);
        }
        if (!envelope) {
            TelvaneTool::printError("weld " + std::to_string(weld.id) +
                                    " has no curves: it has not ended, or has no samples");
            return TelvaneTool::kWrongInput;
        }
        duration = std::max(duration, envelope->seconds());
        added.envelope = std::move(*envelope);
    }
    std::vector<Envelope> others;
    if (const Status status = readLike(reader, welds, filter, others); !status) {
        return reportFailure(status);
    }
    std::string picture;
    const int result = TelvaneTool::runGnuplot(
        printOverlay(drawn, bandOf(others, duration), TelvaneTool::plotTerminal(output)), picture);
    return result == TelvaneTool::kSuccess ? writeFile(output, picture) : result;
}

} // namespace TelvaneArchive

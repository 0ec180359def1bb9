// Several welds are drawn below each other, each with one panel per quantity in a row. The panels of a single weld
// are drawn below each other on one time axis. The metrics are on the right. All welds have the same scales, so
// that they can be compared at a glance. A curve with more samples than the picture has columns is drawn as its
// mean within the band of its extremes. Where samples are missing, the curve is interrupted and the background
// is shaded.

#include "plot/WeldPlot.h"

#include "catalogue/ConsumableNames.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace TelvaneTool
{

using Telvane::WeldTraceDataPoint;
using Telvane::WeldTraceDataPointDefinition;
using Member = double WeldTraceDataPoint::*;

namespace
{

constexpr std::size_t kColumns = 480;
constexpr double kWidth = 1400.0; ///< all sizes in pixels
constexpr double kHead = 40.0;    ///< for the title
constexpr double kFoot = 46.0;    ///< for the time axis
constexpr double kTitle = 44.0;   ///< above each weld
constexpr double kLeft = 60.0;
constexpr double kTextLeft = 1180.0;
constexpr double kPanelGap = 56.0; ///< room for the numbers of the next axis
constexpr double kHeightOfMany = 120.0;
constexpr double kHeightOfOne = 150.0; ///< of each panel
constexpr double kGapOfOne = 22.0;
constexpr double kLineHeight = 16.0;
constexpr const char* kMissingColour = "#F4D9D9";

/// A quantity and its colour.
struct Curve
{
    const char* name;
    Member value;
    std::string WeldTraceDataPointDefinition::*unit;
    const char* colour; ///< distinguishable with colour blindness
};

const std::array<Curve, 4> kCurves = {
    {{"current", &WeldTraceDataPoint::amps, &WeldTraceDataPointDefinition::amps, "#D55E00"},
     {"voltage", &WeldTraceDataPoint::volts, &WeldTraceDataPointDefinition::volts, "#0072B2"},
     {"wire feed", &WeldTraceDataPoint::wfs, &WeldTraceDataPointDefinition::wfs, "#009E73"},
     {"gas", &WeldTraceDataPoint::gas, &WeldTraceDataPointDefinition::gas, "#AA4499"}}};

struct Panel
{
    double left;
    double right;
    double top;
    double bottom;
};

/// \return the text in single quotes, inside which gnuplot interprets only the quote
std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (const char character : text) {
        result += static_cast<unsigned char>(character) < ' ' ? ' ' : character;
        result += character == '\'' ? "'" : "";
    }
    return result + "'";
}

std::string textAt(const std::string& text, double left, double top, double height, const char* style = "")
{
    return "set label " + quoted(text) +
           formatted(" at screen %.5f,%.5f noenhanced %s\n", left / kWidth, 1.0 - top / height, style);
}

/// \return a round number >= value
double roundedUp(double value)
{
    constexpr double kMaxAxis = 1e300;
    if (!(value > 0.0)) {
        return 1.0;
    }
    value = std::min(value, kMaxAxis);
    const double magnitude = std::pow(10.0, std::floor(std::log10(value)));
    for (const double step : {1.0, 1.2, 1.5, 2.0, 2.5, 3.0, 4.0, 5.0, 6.0, 8.0}) {
        if (step * magnitude >= value) {
            return step * magnitude;
        }
    }
    return 10.0 * magnitude;
}

/// \return the unit of a quantity; empty if no weld has one
const std::string& unitOf(const std::vector<RecordedWeld>& welds, const Curve& curve)
{
    static const std::string kNone;
    for (const RecordedWeld& weld : welds) {
        if (!(weld.start.data.*curve.unit).empty()) {
            return weld.start.data.*curve.unit;
        }
    }
    return kNone;
}

/// \return whether the quantity was measured. A weld without its start has no units, but is drawn as well.
bool isMeasured(const RecordedWeld& weld, const Curve& curve)
{
    return !(weld.start.data.*curve.unit).empty() ||
           (!weld.started && std::any_of(weld.samples.begin(), weld.samples.end(),
                                         [&curve](const RecordedWeld::Sample& sample) {
                                             return std::fabs(sample.point.*curve.value) > 0.0;
                                         }));
}

template <class Pair>
void addMetric(std::vector<std::string>& lines, const char* name, const Pair& pair)
{
    if (!pair.Unit.empty()) {
        lines.push_back(formatted("%-13s %9.6g ", name, static_cast<double>(pair.Value)) + pair.Unit);
    }
}

std::vector<std::string> metricsOf(const RecordedWeld& weld)
{
    if (!weld.ended) {
        return {"the recording has", "no end of this weld"};
    }
    const Telvane::WeldMetrics& metrics = weld.metrics;
    std::vector<std::string> lines;
    addMetric(lines, "arc time", metrics.ArcDuration);
    addMetric(lines, "mean current", metrics.AverageAmperage);
    addMetric(lines, "mean voltage", metrics.AverageVoltage);
    addMetric(lines, "mean feed", metrics.AverageWFS);
    addMetric(lines, "mean gas", metrics.AverageGas);
    addMetric(lines, "deposited", metrics.TotalDeposition);
    addMetric(lines, "energy", metrics.TotalEnergy);
    return lines;
}

std::string titleOf(const RecordedWeld& weld)
{
    std::string title = "Weld " + weld.tag() + (weld.started ? "  " : "  start missing, drawn from ") +
                        printMoment(stampOf(weld.start.timestamp)).replace(10, 1, " ").substr(0, 19) + " UTC";
    if (!weld.group.empty()) {
        title += ", " + weld.group;
    }
    for (const auto& [table, code] : {std::pair<const char*, int>{"process", weld.start.process},
                                      {"wire-type", weld.start.wireType},
                                      {"gas", weld.start.gas}}) {
        if (!weld.started) {
            break; // its process, wire and gas are unknown
        }
        if (const ConsumableTable* const names = findConsumableTable(table)) {
            title += ", " + consumableName(*names, code);
        }
    }
    title += ", " + std::to_string(weld.samples.size()) + " samples";
    return weld.missing != 0 ? title + ", " + std::to_string(weld.missing) + " missing" : title;
}

class Plot
{
public:
    Plot(const std::vector<RecordedWeld>& welds, const std::string& terminal)
        : m_welds(welds), m_terminal(terminal)
    {
        for (std::size_t i = 0; i < kCurves.size(); ++i) {
            if (std::any_of(welds.begin(), welds.end(),
                            [i](const RecordedWeld& weld) { return isMeasured(weld, kCurves[i]); })) {
                m_drawn.push_back(i);
            }
            for (const RecordedWeld& weld : welds) {
                for (const RecordedWeld::Sample& sample : weld.samples) {
                    m_max[i] = std::max(m_max[i], sample.point.*kCurves[i].value);
                    m_duration = std::max(m_duration, inSeconds(sample.time));
                }
            }
        }
        const double panels = static_cast<double>(std::max<std::size_t>(m_drawn.size(), 1));
        const double weldHeight = isOne() ? panels * (kHeightOfOne + kGapOfOne) : kHeightOfMany;
        m_weldHeight = weldHeight + kTitle;
        m_height = kHead + static_cast<double>(welds.size()) * m_weldHeight + kFoot;
    }

    std::string draw(const std::string& title)
    {
        m_text =
            "set terminal " + m_terminal +
            formatted(" size %.0f,%.0f background rgb 'white' font 'DejaVu Sans,10'\n", kWidth, m_height);
        for (std::size_t weld = 0; weld < m_welds.size(); ++weld) {
            for (const std::size_t curve : m_drawn) {
                addData(weld, curve);
            }
        }
        m_text += "set multiplot\nunset key\nset border 3 lc rgb '#808080'\n"
                  "set tics nomirror out scale 0.5 textcolor rgb '#404040'\n"
                  "set grid xtics ytics back lc rgb '#D8D8D8' lw 1 dt 1\n" +
                  formatted("set xrange [0:%.9g]\n", m_duration > 0.0 ? m_duration : 1.0);
        m_text += textAt(title, 16.0, 20.0, m_height, "font ',13'");
        for (std::size_t weld = 0; weld < m_welds.size(); ++weld) {
            addWeld(weld);
        }
        return m_text + "unset multiplot\n";
    }

private:
    bool isOne() const { return m_welds.size() == 1; }

    bool hasData(std::size_t weld, std::size_t curve) const
    {
        return isMeasured(m_welds[weld], kCurves[curve]) && !m_welds[weld].samples.empty();
    }

    static std::string blockName(std::size_t weld, std::size_t curve)
    {
        return "$weld" + std::to_string(weld) + "_" + std::to_string(curve);
    }

    void addData(std::size_t weld, std::size_t curve)
    {
        if (!hasData(weld, curve)) {
            return;
        }
        m_text += blockName(weld, curve) + " << END\n";
        for (const PlotPoint& point : downsample(m_welds[weld].samples, kCurves[curve].value, kColumns)) {
            m_text += point.afterGap ? "\n" : "";
            m_text += formatted("%.9g %.6g %.6g %.6g\n", point.time, point.min, point.mean, point.max);
        }
        m_text += "END\n";
    }

    /// \param place of the panel among those that are drawn
    Panel panelAt(std::size_t weld, std::size_t place) const
    {
        const double top = kHead + kTitle + static_cast<double>(weld) * m_weldHeight;
        const double step = static_cast<double>(place);
        if (isOne()) {
            const double own = top + step * (kHeightOfOne + kGapOfOne);
            return {kLeft, kTextLeft - kPanelGap, own, own + kHeightOfOne};
        }
        const double width = (kTextLeft - kLeft) / static_cast<double>(m_drawn.size());
        const double left = kLeft + step * width;
        return {left, left + width - kPanelGap, top, top + kHeightOfMany};
    }

    void addWeld(std::size_t weld)
    {
        const double top = panelAt(weld, 0).top;
        m_text += textAt(titleOf(m_welds[weld]), kLeft, top - (isOne() || weld == 0 ? 30.0 : 14.0), m_height,
                         "font ',11'");
        double line = top + 8.0;
        for (const std::string& metric : metricsOf(m_welds[weld])) {
            m_text += textAt(metric, kTextLeft, line, m_height, "font 'DejaVu Sans Mono,9'");
            line += kLineHeight;
        }
        for (std::size_t place = 0; place < m_drawn.size(); ++place) {
            addPanel(weld, place);
        }
    }

    void addPanel(std::size_t weld, std::size_t place)
    {
        const std::size_t curve = m_drawn[place];
        const char* const colour = kCurves[curve].colour;
        const Panel panel = panelAt(weld, place);
        if (isOne() || weld == 0) {
            const std::string& unit = unitOf(m_welds, kCurves[curve]);
            const std::string name =
                kCurves[curve].name + (unit.empty() ? std::string(", unit unknown") : " in " + unit);
            m_text += textAt(name, panel.left, panel.top - 10.0, m_height,
                             formatted("textcolor rgb '%s'", colour).c_str());
        }
        const bool lowest = isOne() ? place + 1 == m_drawn.size() : weld + 1 == m_welds.size();
        m_text += lowest ? "set xlabel 'seconds'\nset format x '%g'\n" : "unset xlabel\nset format x ''\n";
        m_text += formatted("set lmargin at screen %.5f\nset rmargin at screen %.5f\n"
                            "set tmargin at screen %.5f\nset bmargin at screen %.5f\n",
                            panel.left / kWidth, panel.right / kWidth, 1.0 - panel.top / m_height,
                            1.0 - panel.bottom / m_height);
        int object = 0;
        for (const PlotRange& gap : gapsIn(m_welds[weld].samples, m_duration / kColumns)) {
            m_text += formatted("set object %d rect from %.9g,graph 0 to %.9g,graph 1 behind fc rgb '%s' "
                                "fs solid noborder\n",
                                ++object, gap.from, gap.to, kMissingColour);
        }
        m_text += formatted("set yrange [0:%.9g]\nplot ", roundedUp(m_max[curve]));
        const std::string block = blockName(weld, curve);
        if (!hasData(weld, curve)) {
            m_text += "1/0";
        } else {
            if (m_welds[weld].samples.size() > kColumns) {
                m_text += block + " using 1:2:4 with filledcurves fillcolor rgb '" + colour +
                          "' fillstyle transparent solid 0.25 noborder, ";
            }
            m_text += block + " using 1:3 with lines lw 1.3 lc rgb '" + colour + "'";
        }
        m_text += "\nunset label\nunset object\n";
    }

    const std::vector<RecordedWeld>& m_welds;
    const std::string& m_terminal;
    std::vector<std::size_t> m_drawn; ///< curves of measured quantities
    std::array<double, kCurves.size()> m_max = {};
    double m_duration = 0.0;
    double m_weldHeight = 0.0;
    double m_height = 0.0;
    std::string m_text;
};

double spanOf(const std::vector<RecordedWeld::Sample>& samples)
{
    return inSeconds(subtractSaturated(samples.back().time, samples.front().time));
}

/// \return true if samples between these two are missing and the gap is wide enough to be drawn
bool isGap(const RecordedWeld::Sample& last, const RecordedWeld::Sample& next, double minWidth)
{
    return std::int64_t(next.number) - last.number > 1 &&
           inSeconds(subtractSaturated(next.time, last.time)) >= minWidth;
}

PlotPoint meanOf(const std::vector<RecordedWeld::Sample>& samples, std::size_t begin, std::size_t end,
                 Member quantity)
{
    PlotPoint point;
    point.min = samples[begin].point.*quantity;
    point.max = point.min;
    const auto count = static_cast<double>(end - begin);
    for (std::size_t i = begin; i < end; ++i) {
        const double value = samples[i].point.*quantity;
        point.time += inSeconds(samples[i].time) / count;
        point.mean += value / count;
        point.min = std::min(point.min, value);
        point.max = std::max(point.max, value);
    }
    return point;
}

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace

std::vector<PlotPoint> downsample(const std::vector<RecordedWeld::Sample>& samples, Member quantity,
                                  std::size_t columns)
{
    std::vector<PlotPoint> points;
    const std::size_t count = std::min(columns, samples.size());
    const double columnWidth = samples.empty() ? 0.0 : spanOf(samples) / static_cast<double>(columns);
    for (std::size_t column = 0; column < count; ++column) {
        std::size_t begin = column * samples.size() / count;
        const std::size_t columnEnd = (column + 1) * samples.size() / count;
        while (begin < columnEnd) {
            std::size_t end = begin + 1;
            while (end < columnEnd && !isGap(samples[end - 1], samples[end], columnWidth)) {
                ++end;
            }
            PlotPoint& point = points.emplace_back(meanOf(samples, begin, end, quantity));
            point.afterGap = begin > 0 && isGap(samples[begin - 1], samples[begin], columnWidth);
            begin = end;
        }
    }
    return points;
}

std::vector<PlotRange> gapsIn(const std::vector<RecordedWeld::Sample>& samples, double minWidth)
{
    std::vector<PlotRange> gaps;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (samples[i].number - (i > 0 ? std::int64_t(samples[i - 1].number) : -1) <= 1) {
            continue;
        }
        PlotRange gap = {i > 0 ? inSeconds(samples[i - 1].time) : 0.0, inSeconds(samples[i].time)};
        const double lacking = std::max(0.0, minWidth - (gap.to - gap.from));
        gap = {std::max(0.0, gap.from - lacking / 2.0), gap.to + lacking / 2.0};
        if (!gaps.empty() && gap.from <= gaps.back().to) {
            gaps.back().to = std::max(gaps.back().to, gap.to);
        } else {
            gaps.push_back(gap);
        }
    }
    return gaps;
}

std::string plotTerminal(const std::string& path)
{
    if (endsWith(path, ".svg")) {
        return "svg";
    }
    return endsWith(path, ".png") ? "pngcairo" : "";
}

std::string printPlot(const std::vector<RecordedWeld>& welds, const std::string& terminal,
                      const std::string& title)
{
    return Plot(welds, terminal).draw(title);
}

} // namespace TelvaneTool

// Plain mean +/- 3 sigma of nine welds would give a false alarm for one good weld in three with twenty metrics: the
// limits of few welds are uncertain, and many comparisons find something by chance. Both are accounted for here.
//
// A course has far more points than metrics, so a point outside means little. Only a stretch counts that is outside for
// some time; a counter goes up outside and down inside, and inside begins some way within the limit.

#include "archive/judge/Judge.h"

#include "archive/judge/Student.h"

#include <algorithm>
#include <cmath>

namespace TelvaneArchive
{

namespace
{

constexpr std::size_t kMinOthers = 3; ///< four references are enough to judge each by the others

struct Spread
{
    double mean = 0.0;
    double deviation = 0.0; ///< of a sample
};

Spread spreadOf(const std::vector<double>& values)
{
    Spread spread;
    for (const double value : values) {
        spread.mean += value / static_cast<double>(values.size());
    }
    double squares = 0.0;
    for (const double value : values) {
        squares += (value - spread.mean) * (value - spread.mean);
    }
    spread.deviation = std::sqrt(squares / static_cast<double>(values.size() - 1));
    return spread;
}

bool isInside(double value, double low, double high)
{
    return value >= low && value <= high;
}

} // namespace

double Judge::quantile(double probability, double freedom) const
{
    const auto [known, isNew] = m_quantiles.try_emplace({probability, freedom}, 0.0);
    if (isNew) {
        known->second = studentQuantile(probability, freedom);
    }
    return known->second;
}

Judge::Band Judge::learn(const std::vector<double>& values, double comparisons) const
{
    const Spread spread = spreadOf(values);
    const auto count = static_cast<double>(values.size());
    const auto limit = [&](double probability) -> Limit {
        const double t = quantile(probability / 2.0 / comparisons, count - 1.0);
        const double half = std::max(t * spread.deviation * std::sqrt(1.0 + 1.0 / count),
                                     m_settings.floor * std::fabs(spread.mean));
        return {spread.mean - half, spread.mean + half};
    };
    return {limit(m_settings.warnings), limit(m_settings.alarms)};
}

void Judge::find(Verdict& verdict, const char* level, const std::string& metric, double value,
                 const Limit& limit, double from, double to, const std::string& reference)
{
    if (verdict.level != "not_ok") {
        verdict.level = level;
    }
    Finding& finding = verdict.findings.emplace_back();
    finding.level = level;
    finding.metric = metric;
    finding.value = value;
    finding.low = limit.low;
    finding.high = limit.high;
    finding.fromSeconds = from;
    finding.toSeconds = to;
    finding.reference = reference;
}

Judge::Verdict Judge::judge(const WeldFeatures& weld) const
{
    Verdict verdict;
    verdict.level = "ok";
    judgeMetrics(weld, verdict);
    if (m_references.size() < kMinOthers) {
        return verdict;
    }
    std::size_t windows = 0;
    for (const std::vector<double>& course : weld.courses) {
        windows += course.size();
    }
    // Stretches, not points: windows within one stretch are not independent.
    const double stretch = std::max(1.0, m_settings.least / std::max(weld.window, 1e-9));
    const double comparisons = std::max(1.0, static_cast<double>(windows) / stretch);
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        judgeCourse(weld, channel, comparisons, verdict);
    }
    return verdict;
}

void Judge::judgeMetrics(const WeldFeatures& weld, Verdict& verdict) const
{
    for (const auto& [metric, limit] : m_limits) {
        const auto value = weld.metrics.find(metric);
        if (value == weld.metrics.end()) {
            find(verdict, "warning", infoOf(metric).name, 0.0, limit, 0.0, 0.0, "absolute, not measured");
        } else if (!isInside(value->second, limit.low, limit.high)) {
            find(verdict, "not_ok", infoOf(metric).name, value->second, limit, 0.0, 0.0, "absolute");
        }
    }
    if (m_references.size() < kMinOthers) {
        return;
    }
    std::map<Column, std::vector<double>> known;
    for (const WeldFeatures& reference : m_references) {
        for (const auto& [metric, value] : reference.metrics) {
            known[metric].push_back(value);
        }
    }
    std::size_t comparisons = 0;
    for (const auto& [metric, values] : known) {
        comparisons += values.size() == m_references.size() && weld.metrics.count(metric) != 0 ? 1 : 0;
    }
    const std::string reference = std::to_string(m_references.size()) + " references";
    for (const auto& [metric, values] : known) {
        const auto value = weld.metrics.find(metric);
        if (values.size() != m_references.size()) {
            continue;
        }
        const Band band = learn(values, static_cast<double>(std::max<std::size_t>(comparisons, 1)));
        if (value == weld.metrics.end()) {
            find(verdict, "warning", infoOf(metric).name, 0.0, band.warning, 0.0, 0.0,
                 reference + ", not measured");
            continue;
        }
        const Limit& limit =
            isInside(value->second, band.alarm.low, band.alarm.high) ? band.warning : band.alarm;
        if (!isInside(value->second, limit.low, limit.high)) {
            find(verdict, &limit == &band.alarm ? "not_ok" : "warning", infoOf(metric).name, value->second,
                 limit, 0.0, 0.0, reference);
        }
    }
}

void Judge::judgeCourse(const WeldFeatures& weld, std::size_t channel, double comparisons,
                        Verdict& verdict) const
{
    std::vector<Band> bands;
    for (std::size_t k = 0; k < weld.courses[channel].size(); ++k) {
        std::vector<double> values;
        for (const WeldFeatures& reference : m_references) {
            // References have windows of their own length if their samples are spaced differently.
            const double moment = (static_cast<double>(k) + 0.5) * weld.window / reference.window;
            const auto index = static_cast<std::size_t>(std::max(0.0, moment));
            if (index < reference.courses[channel].size()) {
                values.push_back(reference.courses[channel][index]);
            }
        }
        if (values.size() < std::max(kMinOthers, m_references.size() / 2)) {
            break; // longer than most references
        }
        bands.push_back(learn(values, comparisons));
    }
    const std::size_t before = verdict.findings.size();
    judgeCourse(weld, channel, bands, true, verdict);
    if (verdict.findings.size() == before) {
        judgeCourse(weld, channel, bands, false, verdict);
    }
}

void Judge::judgeCourse(const WeldFeatures& weld, std::size_t channel, const std::vector<Band>& bands,
                        bool alarm, Verdict& verdict) const
{
    double outside = 0.0;
    std::size_t since = 0;
    bool reported = false;
    for (std::size_t k = 0; k < bands.size(); ++k) {
        const Limit& limit = alarm ? bands[k].alarm : bands[k].warning;
        const double value = weld.courses[channel][k];
        const double within = m_settings.hysteresis * (limit.high - limit.low) / 2.0;
        if (!isInside(value, limit.low, limit.high)) {
            since = outside > 0.0 ? since : k;
            outside += weld.window;
        } else if (isInside(value, limit.low + within, limit.high - within)) {
            outside = std::max(0.0, outside - weld.window);
        }
        const double from = weld.start + static_cast<double>(since) * weld.window;
        const double to = weld.start + static_cast<double>(k + 1) * weld.window;
        if (outside >= m_settings.least && !reported) {
            reported = true;
            find(verdict, alarm ? "not_ok" : "warning", std::string("course of ") + kChannelNames[channel],
                 value, limit, from, to, std::to_string(m_references.size()) + " references");
        } else if (outside > 0.0 && reported) {
            verdict.findings.back().toSeconds = to;
        }
        reported = reported && outside > 0.0;
    }
}

} // namespace TelvaneArchive

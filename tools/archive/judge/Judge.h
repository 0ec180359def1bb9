#pragma once

#include "archive/reader/ArchiveReader.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace TelvaneArchive
{

struct JudgeSettings
{
    double skipStart = 1.0;  ///< ignition, s; at most a fifth of the weld
    double skipEnd = 1.0;    ///< crater fill, s; at most a fifth of the weld
    double alarms = 0.01;    ///< probability that a good weld is not OK
    double warnings = 0.05;  ///< probability that a good weld gets a warning
    double floor = 0.01;     ///< least half width of a limit, relative to the mean
    double window = 0.05;    ///< of the course, s; at least five samples
    double least = 0.5;      ///< time outside that counts, s
    double hysteresis = 0.2; ///< a course is inside again this part of the half width within the limit
};

/// What is judged of a weld: metrics of its main phase and the course of its channels.
struct WeldFeatures
{
    std::map<Column, double> metrics;
    std::array<std::vector<double>, kChannels> courses; ///< means of windows; empty if not measured
    double start = 0.0;                                 ///< of the main phase, s since the start of the weld
    double window = 0.0;                                ///< s

    /// \return whether there are samples of an arc; limits can be learned from nothing else
    bool hasArc() const { return metrics.count(Column::MeanAmps) != 0; }
};

/// Reads the features of a weld whose samples are in an archive.
/// \param weld  with its end and its metrics
Status readFeatures(ArchiveReader& reader, const Weld& weld, const JudgeSettings& settings,
                    WeldFeatures& features);
/// The same for a weld whose row is there as well.
Status readFeatures(ArchiveReader& reader, std::int64_t id, const JudgeSettings& settings,
                    WeldFeatures& features);

/// Judges welds by limits.
///
/// Limits are absolute, or learned from reference welds as prediction limits: mean +/- t * s * sqrt(1 + 1/N), with t of
/// Student's distribution for N - 1 degrees of freedom, at the probability of a false alarm divided by the number of
/// comparisons. docs/archive.md has the figures.
class Judge
{
public:
    struct Verdict
    {
        std::string level; ///< "ok", "warning" or "not_ok"
        std::vector<Finding> findings;
    };

    explicit Judge(const JudgeSettings& settings = {}) : m_settings(settings) {}

    /// Adds a reference, which must have an arc. At least three are needed to learn limits.
    void addReference(WeldFeatures features) { m_references.push_back(std::move(features)); }
    /// Adds an absolute limit for a metric of the main phase, or of the whole weld: arc_time and energy.
    void addLimit(Column metric, double low, double high) { m_limits[metric] = {low, high}; }

    Verdict judge(const WeldFeatures& weld) const;
    std::size_t references() const { return m_references.size(); }

private:
    struct Limit
    {
        double low = 0.0;
        double high = 0.0;
    };
    struct Band
    {
        Limit warning;
        Limit alarm;
    };

    Band learn(const std::vector<double>& values, double comparisons) const;
    double quantile(double probability, double freedom) const;
    void judgeMetrics(const WeldFeatures& weld, Verdict& verdict) const;
    void judgeCourse(const WeldFeatures& weld, std::size_t channel, double comparisons,
                     Verdict& verdict) const;
    void judgeCourse(const WeldFeatures& weld, std::size_t channel, const std::vector<Band>& bands,
                     bool alarm, Verdict& verdict) const;
    static void find(Verdict& verdict, const char* level, const std::string& metric, double value,
                     const Limit& limit, double from, double to, const std::string& reference);

    JudgeSettings m_settings;
    std::vector<WeldFeatures> m_references;
    std::map<Column, Limit> m_limits;
    mutable std::map<std::pair<double, double>, double>
        m_quantiles; ///< known ones: many limits need the same
};

} // namespace TelvaneArchive

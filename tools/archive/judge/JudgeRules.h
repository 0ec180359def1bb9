#pragma once

#include "archive/judge/Judge.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TelvaneArchive
{

/// How some welds are judged.
struct JudgeRule
{
    std::string name; ///< the condition as it was written
    WeldFilter welds;
    std::map<Column, std::pair<double, double>> limits;
    std::optional<WeldFilter> references; ///< good welds to learn limits from
    JudgeSettings settings;
};

/// Reads rules, one section for each kind of weld. The first one that matches a weld judges it.
///
///     # empty lines and lines that begin with # do not count
///     [program = 7 and part_number like 'A-*']
///     limit mean_amps=170..190
///     reference wps = 'good'
///     alarms 0.005
///     [*]
///     limit arc_time=1..60
///
/// The other settings are warnings, skip-start, skip-end, floor and least, as the options of the same names.
/// \return what is wrong, with the number of the line; empty if nothing is
std::string readRules(const std::string& text, std::vector<JudgeRule>& rules);

/// Reads METRIC=LOW..HIGH.
/// \return false if the text is something else
bool readLimit(const std::string& text, std::map<Column, std::pair<double, double>>& limits);

/// Judges welds by rules, with the references in an archive.
///
/// At most kMaxReferences references are used, the newest. A weld without samples of an arc is not used. No weld is its
/// own reference.
/// \par Threads  One at a time.
class RuleJudge
{
public:
    static constexpr std::size_t kMaxReferences = 50;
    static constexpr std::size_t kMinReferences = 4;

    RuleJudge(std::vector<JudgeRule> rules, ArchiveReader& reader)
        : m_rules(std::move(rules)), m_reader(reader), m_known(m_rules.size())
    {}

    /// Reads the references, which takes a while, before the first weld comes.
    /// \param[out] remarks  rules that have too few references
    Status prepare(std::vector<std::string>& remarks);

    /// Judges a weld whose samples are in the archive.
    /// \param weld          with the end and the metrics, which the archive need not have yet
    /// \param[out] verdict  without a level if no rule matches, or the rule has neither limits nor references
    /// \param[out] rule     name of the rule that judged
    Status judge(const Weld& weld, Judge::Verdict& verdict, std::string& rule);

private:
    /// References by id; empty for a weld without an arc, which is not read again.
    using References = std::map<std::int64_t, std::optional<WeldFeatures>>;

    Status readReferences(std::size_t rule);
    /// \return number of references with an arc
    static std::size_t countOf(const References& references);

    std::vector<JudgeRule> m_rules;
    ArchiveReader& m_reader;
    std::vector<References> m_known; ///< of each rule
};

} // namespace TelvaneArchive

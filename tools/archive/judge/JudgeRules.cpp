#include "archive/judge/JudgeRules.h"

#include "common/support/HumanReadable.h"

#include <algorithm>
#include <sstream>

namespace TelvaneArchive
{

namespace
{

using TelvaneTool::readNumber;
using TelvaneTool::trimmed;

struct Setting
{
    const char* name;
    double JudgeSettings::*value;
    double min;
    double max;
};
constexpr double kLongest = 1e4; // s
constexpr Setting kSettings[] = {
    {"alarms", &JudgeSettings::alarms, 1e-9, 0.5},
    {"warnings", &JudgeSettings::warnings, 1e-9, 0.5},
    {"skip-start", &JudgeSettings::skipStart, 0.0, kLongest},
    {"skip-end", &JudgeSettings::skipEnd, 0.0, kLongest},
    {"floor", &JudgeSettings::floor, 0.0, 10.0},
    {"least", &JudgeSettings::least, 0.0, kLongest},
};

std::string readSection(const std::string& line, std::vector<JudgeRule>& rules)
{
    if (line.back() != ']') {
        return "the condition does not end with ]";
    }
    JudgeRule& rule = rules.emplace_back();
    rule.name = trimmed(line.substr(1, line.size() - 2));
    std::string error;
    if (rule.name != "*") {
        readWhere(rule.name, rule.welds, error);
    }
    return error;
}

std::string readEntry(const std::string& line, JudgeRule& rule)
{
    const std::size_t space = line.find_first_of(" \t");
    const std::string key = line.substr(0, space);
    const std::string value(space == std::string::npos ? "" : trimmed(line.substr(space)));
    if (key == "limit") {
        return readLimit(value, rule.limits) ? "" : "\"" + value + "\" is not METRIC=LOW..HIGH";
    }
    if (key == "reference") {
        std::string error;
        readWhere(value, rule.references.emplace(), error);
        return error;
    }
    for (const Setting& setting : kSettings) {
        double number = 0.0;
        if (key == setting.name) {
            if (!readNumber(value, number) || number < setting.min || number > setting.max) {
                return std::string("\"").append(value).append("\" is not a value for ").append(key);
            }
            rule.settings.*setting.value = number;
            return {};
        }
    }
    return "\"" + key + "\" is neither limit, reference nor a setting";
}

} // namespace

bool readLimit(const std::string& text, std::map<Column, std::pair<double, double>>& limits)
{
    const std::size_t equals = text.find('=');
    const std::size_t dots = text.find("..", equals == std::string::npos ? 0 : equals);
    if (equals == std::string::npos || dots == std::string::npos) {
        return false;
    }
    const auto metric = findColumn(trimmed(text.substr(0, equals)));
    double low = 0.0;
    double high = 0.0;
    if (!metric || !isMetric(*metric) ||
        !readNumber(trimmed(text.substr(equals + 1, dots - equals - 1)), low) ||
        !readNumber(trimmed(text.substr(dots + 2)), high) || low > high) {
        return false;
    }
    limits[*metric] = {low, high};
    return true;
}

std::string readRules(const std::string& text, std::vector<JudgeRule>& rules)
{
    std::istringstream stream(text);
    std::string read;
    for (int number = 1; std::getline(stream, read); ++number) {
        const std::string line(trimmed(read));
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::string error;
        if (line[0] == '[') {
            error = readSection(line, rules);
        } else {
            error = rules.empty() ? "a [condition] must come first" : readEntry(line, rules.back());
        }
        if (!error.empty()) {
            return "line " + std::to_string(number) + ": " + error;
        }
    }
    for (const JudgeRule& rule : rules) {
        if (rule.limits.empty() && !rule.references) {
            return "[" + rule.name + "] has neither a limit nor a reference";
        }
    }
    return rules.empty() ? "there are no rules" : "";
}

Status RuleJudge::prepare(std::vector<std::string>& remarks)
{
    Status status;
    for (std::size_t i = 0; i < m_rules.size() && status; ++i) {
        status = readReferences(i);
        const std::size_t count = countOf(m_known[i]);
        if (m_rules[i].references && count < kMinReferences) {
            remarks.push_back("[" + m_rules[i].name + "] has " + std::to_string(count) +
                              " references; limits can be learned from " + std::to_string(kMinReferences));
        }
    }
    return status;
}

std::size_t RuleJudge::countOf(const References& references)
{
    return static_cast<std::size_t>(std::count_if(
        references.begin(), references.end(), [](const auto& known) { return known.second.has_value(); }));
}

/// Reads those references that are new.
Status RuleJudge::readReferences(std::size_t rule)
{
    if (!m_rules[rule].references) {
        return {};
    }
    ArchiveReader::Query query;
    query.filter = *m_rules[rule].references;
    for (const char* const unfinished : {"running", "importing"}) { // such a weld has no metrics yet
        query.filter.add(Column::Ending, Condition::Comparison::NotEqual, std::string(unfinished));
    }
    query.limit = kMaxReferences;
    query.source = ArchiveReader::Source::Rows; // nearly all are finished, so the first of an index will do
    std::vector<Weld> welds;
    Status status = m_reader.list(query, welds);
    if (!status) {
        return status;
    }
    References known;
    for (const Weld& weld : welds) {
        const auto before = m_known[rule].find(weld.id);
        if (before != m_known[rule].end()) {
            known.insert(m_known[rule].extract(before));
        } else if (status) {
            WeldFeatures features;
            status = readFeatures(m_reader, weld, m_rules[rule].settings, features);
            if (status) { // after a failure, the weld is read again for the next one that is judged
                known[weld.id] = features.hasArc() ? std::optional(std::move(features)) : std::nullopt;
            }
        }
    }
    m_known[rule] = std::move(known);
    return status;
}

Status RuleJudge::judge(const Weld& weld, Judge::Verdict& verdict, std::string& rule)
{
    verdict = {};
    const auto found = std::find_if(m_rules.begin(), m_rules.end(), [&weld](const JudgeRule& candidate) {
        return matches(weld, candidate.welds);
    });
    if (found == m_rules.end()) {
        return {};
    }
    const auto index = static_cast<std::size_t>(found - m_rules.begin());
    Status status = readReferences(index);
    WeldFeatures features;
    status = status ? readFeatures(m_reader, weld, found->settings, features) : status;
    if (!status) {
        return status;
    }
    Judge judge(found->settings);
    for (const auto& [metric, limit] : found->limits) {
        judge.addLimit(metric, limit.first, limit.second);
    }
    const References& known = m_known[index];
    const auto itself = known.find(weld.id);
    const std::size_t others = countOf(known) - (itself != known.end() && itself->second ? 1 : 0);
    for (const auto& [id, reference] : known) {
        if (others >= kMinReferences && id != weld.id && reference) {
            judge.addReference(*reference);
        }
    }
    if (judge.references() == 0 && found->limits.empty()) {
        return status;
    }
    verdict = judge.judge(features);
    rule = found->name;
    return status;
}

} // namespace TelvaneArchive

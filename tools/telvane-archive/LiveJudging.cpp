// A weld is judged within the commit that closes it, so that its row never appears without its verdict. The verdict is
// published once the row is on the disk.

#include "LiveJudging.h"

#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"

#include <fstream>
#include <sstream>

namespace TelvaneArchive
{

namespace
{

WeldVerdict recordOf(const Weld& weld, const Judge::Verdict& verdict, const std::string& rule)
{
    WeldVerdict record;
    record.tag = static_cast<int>(weld.whole(Column::Tag));
    record.uid = weld.text(Column::Uid);
    record.id = weld.id;
    record.module = weld.text(Column::Module);
    record.partNumber = weld.text(Column::PartNumber);
    record.verdict = verdict.level;
    record.rule = rule;
    for (const ArchiveReader::Finding& finding : verdict.findings) {
        VerdictReason& reason = record.reasons.emplace_back();
        reason.level = finding.level;
        reason.metric = finding.metric;
        reason.value = finding.value;
        reason.low = finding.low;
        reason.high = finding.high;
        reason.from = finding.fromSeconds;
        reason.to = finding.toSeconds;
        reason.limitsFrom = finding.reference;
    }
    return record;
}

} // namespace

std::vector<ArchiveStore::Finding> findingsOf(const Judge::Verdict& verdict)
{
    std::vector<ArchiveStore::Finding> findings;
    for (const ArchiveReader::Finding& finding : verdict.findings) {
        findings.push_back({finding.level, finding.metric, finding.value, finding.low, finding.high,
                            finding.fromSeconds, finding.toSeconds, finding.reference});
    }
    return findings;
}

int readRulesFile(const std::string& path, std::vector<JudgeRule>& rules)
{
    std::ifstream file(path);
    std::stringstream text;
    if (!file || !(text << file.rdbuf())) {
        TelvaneTool::printError("cannot read " + path);
        return TelvaneTool::kWrongInput;
    }
    if (const std::string error = readRules(text.str(), rules); !error.empty()) {
        TelvaneTool::printError(path + ": " + error);
        return TelvaneTool::kWrongInput;
    }
    return TelvaneTool::kSuccess;
}

int LiveJudging::start(const Options& options, ArchiveStore& store, bool learns)
{
    if (options.rules.empty()) {
        return TelvaneTool::kSuccess;
    }
    std::vector<JudgeRule> rules;
    if (const int result = readRulesFile(options.rules, rules); result != TelvaneTool::kSuccess) {
        return result;
    }
    for (const JudgeRule& rule : rules) {
        if (rule.references && !learns) {
            TelvaneTool::printError("[" + rule.name +
                                    "]: limits are learned from welds in an SQLite archive only");
            return TelvaneTool::kWrongUsage;
        }
    }
    Status status;
    m_channel = options.channel;
    m_reader = ArchiveReader::open(store.path(), status);
    std::vector<std::string> remarks;
    if (m_reader) {
        m_judge = std::make_unique<RuleJudge>(std::move(rules), *m_reader);
        status = m_judge->prepare(remarks);
    }
    if (!status) {
        TelvaneTool::printError(store.path() + ": " + status.text);
        return TelvaneTool::kWrongInput;
    }
    for (const std::string& remark : remarks) {
        TelvaneTool::printStatus(remark);
    }
    store.setJudge(
        [this](Weld& weld, std::vector<ArchiveStore::Finding>& findings) { judge(weld, findings); });
    return TelvaneTool::kSuccess;
}

void LiveJudging::judge(Weld& weld, std::vector<ArchiveStore::Finding>& findings)
{
    Judge::Verdict verdict;
    std::string rule;
    const Status status = m_judge->judge(weld, verdict, rule);
    if (!status) {
        TelvaneTool::printError("weld " + std::to_string(weld.id) + " was not judged: " + status.text);
        return;
    }
    if (verdict.level.empty()) {
        return;
    }
    weld[Column::Verdict] = verdict.level;
    findings = findingsOf(verdict);
    if (!m_channel.empty()) {
        m_verdicts[weld.id] = recordOf(weld, verdict, rule);
    }
}

void LiveJudging::publish(const std::vector<std::int64_t>& closed, WeldFollower& follower)
{
    for (const std::int64_t id : closed) {
        const auto found = m_verdicts.find(id);
        if (found == m_verdicts.end()) {
            continue;
        }
        if (const std::error_code error = follower.publish(m_channel, found->second)) {
            TelvaneTool::printError("the verdict of weld " + std::to_string(id) +
                                    " was not published: " + error.message());
        }
        m_verdicts.erase(found);
    }
}

void addLiveJudgingOptions(TelvaneTool::Command& command, LiveJudging::Options& options)
{
    const char* const group = "Judging (default: no weld is judged)";
    command.option("--rules", options.rules, "Judge each weld when it ends, by the rules in FILE")
        .check(&TelvaneTool::checkFileName)
        .group(group)
        .typeName("FILE");
    command.option("--verdict-channel", options.channel, "Publish the verdicts on CHANNEL of the bus")
        .group(group)
        .typeName("CHANNEL")
        .needs("--rules")
        .check(TelvaneTool::checkChannel);
}

} // namespace TelvaneArchive

// A weld is judged within the commit that closes it, so that its row never appears without its verdict. The record for
// the bus is stored in the same commit and deleted once it is published. So each verdict is published, also after an
// outage of the bus or a crash; in a crash between the two, twice.

#include "LiveJudging.h"

#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"

namespace TelvaneArchive
{

namespace
{

constexpr const char* kGroup = "Judging (default: no weld is judged)";

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
    for (const Finding& finding : verdict.findings) {
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

int readRulesFile(const std::string& path, std::vector<JudgeRule>& rules)
{
    const std::string text = TelvaneTool::readFile(path);
    if (text.empty()) {
        return TelvaneTool::kWrongInput;
    }
    if (const std::string error = readRules(text, rules); !error.empty()) {
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
    if (remarks != m_remarks) { // it starts again and again while the disk is full
        for (const std::string& remark : remarks) {
            TelvaneTool::printStatus(remark);
        }
        m_remarks = std::move(remarks);
    }
    store.setJudge([this](Weld& weld, ArchiveStore::Judgement& judgement) { judge(weld, judgement); });
    return TelvaneTool::kSuccess;
}

void LiveJudging::judge(Weld& weld, ArchiveStore::Judgement& judgement)
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
    judgement.findings = verdict.findings;
    if (!m_channel.empty()) {
        recordOf(weld, verdict, rule).ToJson(judgement.record);
        m_due = 0;
    }
}

TelvaneTool::Nanoseconds LiveJudging::publish(ArchiveStore& store, WeldFollower& follower)
{
    const TelvaneTool::Nanoseconds now = TelvaneTool::monotonicNow();
    if (m_channel.empty() || m_due < 0 || now < m_due) {
        return m_channel.empty() ? -1 : m_due;
    }
    constexpr std::size_t kAtOnce = 100;
    std::vector<ArchiveStore::Unpublished> waiting;
    Status status = store.readUnpublished(kAtOnce, waiting);
    for (const ArchiveStore::Unpublished& one : waiting) {
        const std::error_code error =
            m_published.count(one.weld) != 0 ? std::error_code() : publishOne(one, follower);
        if (error == Telvane::BusError::TooLarge || error == Telvane::BusError::NotWritable) {
            TelvaneTool::printError("the verdict of weld " + std::to_string(one.weld) +
                                    " cannot be published: " + error.message());
        } else if (error) {
            if (!m_waits) {
                m_waits = true;
                TelvaneTool::printError("the verdict of weld " + std::to_string(one.weld) +
                                        " waits for the bus: " + error.message());
            }
            return m_due = now + TelvaneTool::kSecond;
        } else {
            m_waits = false;
        }
        m_published.insert(one.weld);
        status = store.forgetUnpublished(one.weld);
        if (!status) {
            break;
        }
        m_published.erase(one.weld);
    }
    report(status.text);
    m_due = !status ? now + TelvaneTool::kSecond : waiting.size() == kAtOnce ? 0 : -1;
    return m_due;
}

std::error_code LiveJudging::publishOne(const ArchiveStore::Unpublished& waiting,
                                        WeldFollower& follower) const
{
    if (!follower.waitConnected(std::chrono::nanoseconds(0))) {
        return Telvane::BusError::NotConnected;
    }
    WeldVerdict record;
    // What was written to the database by somebody else is not a verdict.
    return record.FromJson(waiting.record) ? follower.publish(m_channel, record) : std::error_code();
}

/// Prints an error once, until it changes.
void LiveJudging::report(const std::string& text)
{
    if (!text.empty() && text != m_reported) {
        TelvaneTool::printError(text);
    }
    m_reported = text;
}

void addRulesOption(TelvaneTool::Command& command, LiveJudging::Options& options)
{
    command.option("--rules", options.rules, "Judge each weld when it ends, by the rules in FILE")
        .check(&TelvaneTool::checkFileName)
        .group(kGroup)
        .typeName("FILE");
}

void addLiveJudgingOptions(TelvaneTool::Command& command, LiveJudging::Options& options)
{
    addRulesOption(command, options);
    command.option("--verdict-channel", options.channel, "Publish the verdicts on CHANNEL of the bus")
        .group(kGroup)
        .typeName("CHANNEL")
        .needs("--rules")
        .check(TelvaneTool::checkChannel);
}

} // namespace TelvaneArchive

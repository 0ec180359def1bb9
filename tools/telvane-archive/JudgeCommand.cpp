#include "Commands.h"
#include "LiveJudging.h"
#include "archive/reader/WeldText.h"
#include "common/cli/CommandLine.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/cli/Signals.h"
#include "common/support/Clock.h"

#include <algorithm>
#include <memory>

namespace TelvaneArchive
{

namespace
{

constexpr int kWarning = 10;
constexpr int kNotOk = 11;

struct Options
{
    std::string database;
    std::string reference;
    std::string where;
    std::string rules;
    std::vector<std::string> limits;
    JudgeSettings settings;
    bool leaveOneOut = false;
    bool dryRun = false;
};

using WeldIds = std::vector<std::int64_t>;

/// \return the welds that match; prints what is wrong
bool findWelds(ArchiveReader& reader, const char* option, const std::string& where, WeldIds& ids)
{
    ArchiveReader::Query query;
    std::string error;
    if (!where.empty() && !readWhere(where, query.filter, error)) {
        TelvaneTool::printError(std::string(option) + ": " + error);
        return false;
    }
    query.filter.add(Column::Ending, Condition::Comparison::NotEqual, std::string("running"));
    query.limit = ArchiveReader::kMaxList;
    query.ascending = true;
    std::vector<Weld> welds;
    if (const Status status = reader.list(query, welds); !status) {
        TelvaneTool::printError(status.text);
        return false;
    }
    for (const Weld& weld : welds) {
        ids.push_back(weld.id);
    }
    return true;
}

std::string printVerdict(std::int64_t id, const Judge::Verdict& verdict)
{
    return "weld " + std::to_string(id) + ": " + verdict.level + "\n" + printFindings(verdict.findings);
}

Status storeVerdict(ArchiveStore& store, std::int64_t id, const Judge::Verdict& verdict)
{
    return store.storeVerdict(id, verdict.level, verdict.findings, TelvaneTool::realTimeNow());
}

int exitCodeOf(const Judge::Verdict& verdict)
{
    return verdict.level == "not_ok" ? kNotOk : verdict.level == "warning" ? kWarning : 0;
}

/// Storing a verdict deletes the block of its weld. Without blocks, a trend reads the rows.
void makeBlocks(ArchiveStore* store)
{
    if (store != nullptr) {
        static_cast<void>(store->makeBlocks());
    }
}

/// Judges welds by the rules of a file.
int judgeByRules(const Options& options, ArchiveReader& reader, ArchiveStore* store)
{
    std::vector<JudgeRule> rules;
    WeldIds judged;
    if (const int result = readRulesFile(options.rules, rules); result != TelvaneTool::kSuccess) {
        return result;
    }
    if (!findWelds(reader, "--where", options.where, judged)) {
        return TelvaneTool::kWrongUsage;
    }
    RuleJudge judge(std::move(rules), reader);
    std::vector<std::string> remarks;
    Status status = judge.prepare(remarks);
    for (const std::string& remark : remarks) {
        TelvaneTool::printStatus(remark);
    }
    int worst = TelvaneTool::kSuccess;
    for (const std::int64_t id : judged) {
        std::optional<Weld> weld;
        Judge::Verdict verdict;
        std::string rule;
        status = status ? reader.weld(id, weld) : status;
        status = status && weld ? judge.judge(*weld, verdict, rule) : status;
        if (status && !verdict.level.empty()) {
            worst = std::max(worst, exitCodeOf(verdict));
            status = store != nullptr ? storeVerdict(*store, id, verdict) : status;
            if (const int written = TelvaneTool::writeResult(printVerdict(id, verdict)); written != 0) {
                return written;
            }
        }
        if (!status) {
            return reportStatus(options.database, status);
        }
    }
    return status ? worst : reportStatus(options.database, status);
}

int judge(const Options& options)
{
    // The archive survives it at any point.
    const TelvaneTool::TerminationSignals end(TelvaneTool::TerminationSignals::Effect::End);
    std::map<Column, std::pair<double, double>> limits;
    for (const std::string& limit : options.limits) {
        if (!readLimit(limit, limits)) {
            TelvaneTool::printError("--limit: \"" + limit + "\" is not METRIC=LOW..HIGH");
            return TelvaneTool::kWrongUsage;
        }
    }
    Judge absolute(options.settings);
    for (const auto& [metric, limit] : limits) {
        absolute.addLimit(metric, limit.first, limit.second);
    }
    Status status;
    std::unique_ptr<ArchiveStore> store;
    if (!options.dryRun) {
        store = ArchiveStore::open(options.database, {}, status);
    }
    const auto reader = status ? ArchiveReader::open(options.database, status) : nullptr;
    if (!reader) {
        return reportStatus(options.database, status);
    }
    if (!options.rules.empty()) {
        const int result = judgeByRules(options, *reader, store.get());
        makeBlocks(store.get());
        return result;
    }
    WeldIds references;
    WeldIds judged;
    if ((!options.reference.empty() && !findWelds(*reader, "--reference", options.reference, references)) ||
        !findWelds(*reader, "--where", options.leaveOneOut ? options.reference : options.where, judged)) {
        return TelvaneTool::kWrongUsage;
    }
    if (options.limits.empty() && references.size() < RuleJudge::kMinReferences) {
        TelvaneTool::printError("limits can be learned from four welds or more, --reference matches " +
                                std::to_string(references.size()));
        return TelvaneTool::kWrongInput;
    }
    std::map<std::int64_t, WeldFeatures> features;
    const auto read = [&](std::int64_t id) {
        if (status && features.count(id) == 0) {
            status = readFeatures(*reader, id, options.settings, features[id]);
        }
    };
    std::for_each(references.begin(), references.end(), read);
    if (!status) {
        return reportStatus(options.database, status);
    }
    references.erase(std::remove_if(references.begin(), references.end(),
                                    [&](std::int64_t id) { return !features[id].hasArc(); }),
                     references.end());
    if (options.limits.empty() && references.size() < RuleJudge::kMinReferences) {
        TelvaneTool::printError("limits can be learned from four welds or more, and " +
                                std::to_string(references.size()) +
                                " of those that --reference matches have samples of an arc");
        return TelvaneTool::kWrongInput;
    }
    int worst = TelvaneTool::kSuccess;
    for (const std::int64_t id : judged) {
        read(id);
        if (!status) {
            return reportStatus(options.database, status);
        }
        Judge one = absolute;
        for (const std::int64_t reference : references) {
            if (reference != id) { // no weld is its own reference
                one.addReference(features[reference]);
            }
        }
        const Judge::Verdict verdict = one.judge(features[id]);
        worst = std::max(worst, exitCodeOf(verdict));
        status = store ? storeVerdict(*store, id, verdict) : status;
        if (const int written = TelvaneTool::writeResult(printVerdict(id, verdict)); written != 0) {
            return written;
        }
        if (references.empty() || std::find(references.begin(), references.end(), id) == references.end()) {
            features.erase(id);
        }
    }
    makeBlocks(store.get());
    return status ? worst : reportStatus(options.database, status);
}

} // namespace

void addJudgeCommand(TelvaneTool::CommandLine& line)
{
    auto options = std::make_shared<Options>();
    TelvaneTool::Command command(line, "judge",
                                 "Judge welds by limits, learned or given, and store the verdicts");
    command.option("--database", options->database, "Judge welds of the archive in FILE, an SQLite file")
        .required()
        .typeName("FILE");
    command.option("--where", options->where, "Judge the welds that match CONDITION")
        .typeName("CONDITION")
        .showDefault("all");
    command
        .option(
            "--reference", options->reference,
            "Learn limits from the welds that match CONDITION: good ones, four or more; none judges itself")
        .typeName("CONDITION");
    command.option("--limit", options->limits, "Limit a metric in the main phase, such as mean_amps=170..190")
        .repeatable()
        .typeName("METRIC=LOW..HIGH");
    command
        .option("--rules", options->rules,
                "Judge by the rules in FILE, which give each weld limits or references")
        .typeName("FILE")
        .excludes("--reference")
        .excludes("--limit");
    command.flag("--leave-one-out", options->leaveOneOut, "Judge each reference by the others")
        .needs("--reference")
        .excludes("--where");
    command.flag("--dry-run", options->dryRun, "Store nothing");
    const char* const group = "How";
    JudgeSettings& settings = options->settings;
    const auto add = [&](const char* name, double& target, const char* what, double min, double max) {
        command.option(name, target, what).group(group).within(min, max).showDefault();
    };
    add("--skip-start", settings.skipStart,
        "Leave the ignition out: this time (s), at most a fifth of the weld", 0.0, 1e4);
    add("--skip-end", settings.skipEnd,
        "Leave the crater fill out: this time (s), at most a fifth of the weld", 0.0, 1e4);
    add("--alarms", settings.alarms, "Accept this probability that a good weld is not_ok", 1e-9, 0.5);
    add("--warnings", settings.warnings, "Accept this probability that a good weld gets a warning", 1e-9,
        0.5);
    add("--floor", settings.floor, "Keep learned limits at least this far from the mean, relative to it", 0.0,
        10.0);
    add("--least", settings.least, "Report a course that is outside its limits for this time (s)", 0.0, 1e4);
    command.examples(
        "# learn from the welds of a part that were inspected, judge today's\n"
        "telvane archive judge --database welds.db --reference \"part_number = 'A-17' and wps = 'good'\" \\\n"
        "    --where \"part_number = 'A-17' and verdict is empty\"\n"
        "# how many of the references would fail?\n"
        "telvane archive judge --database welds.db --reference \"program = 7\" --leave-one-out --dry-run\n"
        "# by the rules that telvane archive follow uses\n"
        "telvane archive judge --database welds.db --rules rules --where \"verdict is empty\"\n"
        "# exit code 0: all OK, 10: a warning, 11: not OK\n"
        "telvane archive judge --database welds.db --limit mean_amps=170..190\n");
    command.run([options] { return judge(*options); });
}

} // namespace TelvaneArchive

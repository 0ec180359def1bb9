#include "archive/judge/JudgeRules.h"
#include "archive/ArchiveTestSupport.h"

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

namespace
{

std::vector<JudgeRule> rulesOf(const std::string& text)
{
    std::vector<JudgeRule> rules;
    EXPECT_EQ(readRules(text, rules), "");
    return rules;
}

Weld weldOf(const std::string& uid, const std::string& part, std::int64_t program)
{
    Weld weld = makeWeld(uid);
    weld[Column::PartNumber] = part;
    weld[Column::Program] = program;
    return weld;
}

/// Keeps a weld of 3 s at a current.
void keepWeldAt(ArchiveStore& store, const Weld& weld, double amps)
{
    const std::int64_t handle = store.begin(weld);
    for (std::int32_t i = 0; i < 6000; ++i) {
        Sample sample = makeSample(i);
        sample[Channel::Amps] = amps + i % 7;
        store.add(handle, sample, 0);
    }
    store.end(handle, "complete");
    ASSERT_TRUE(store.commit());
}

} // namespace

TEST(JudgeRules, AreReadFromText)
{
    const std::vector<JudgeRule> rules = rulesOf("# the parts of cell 4\n\n"
                                                 "[part_number like 'A-*' and program = 7]\n"
                                                 "  limit mean_amps = 170..190\r\n"
                                                 "limit energy=1e3..2e3\n"
                                                 "reference wps = 'good'\n"
                                                 "alarms 0.005\nskip-start 0.5\n"
                                                 "[*]\nlimit arc_time=1..60\n");
    ASSERT_EQ(rules.size(), 2U);
    EXPECT_EQ(rules[0].name, "part_number like 'A-*' and program = 7");
    EXPECT_EQ(rules[0].limits.at(Column::MeanAmps), (std::pair{170.0, 190.0}));
    EXPECT_EQ(rules[0].limits.at(Column::Energy), (std::pair{1e3, 2e3}));
    ASSERT_TRUE(rules[0].references);
    EXPECT_EQ(rules[0].settings.alarms, 0.005);
    EXPECT_EQ(rules[0].settings.skipStart, 0.5);
    EXPECT_TRUE(rules[1].welds.conditions.empty());
    EXPECT_FALSE(rules[1].references);
}

TEST(JudgeRules, SayInWhichLineAMistakeIs)
{
    const std::pair<const char*, const char*> mistakes[] = {
        {"", "there are no rules"},
        {"limit mean_amps=1..2", "line 1: a [condition] must come first"},
        {"[*]\n\n", "[*] has neither a limit nor a reference"},
        {"[*\n", "line 1: the condition does not end with ]"},
        {"[*]\nlimit mean_amps=2..1", "line 2: \"mean_amps=2..1\" is not METRIC=LOW..HIGH"},
        {"[*]\nlimit mean_amps=nan..1", "line 2: \"mean_amps=nan..1\" is not METRIC=LOW..HIGH"},
        {"[*]\nlimit uid=1..2", "line 2: \"uid=1..2\" is not METRIC=LOW..HIGH"},
        {"[*]\nalarms 2", "line 2: \"2\" is not a value for alarms"},
        {"[*]\nalarms", "line 2: \"\" is not a value for alarms"},
        {"[*]\nbananas 2", "line 2: \"bananas\" is neither limit, reference nor a setting"},
    };
    for (const auto& [text, error] : mistakes) {
        std::vector<JudgeRule> rules;
        EXPECT_EQ(readRules(text, rules), error);
    }
    std::vector<JudgeRule> rules;
    EXPECT_NE(readRules("[1=1; DROP TABLE weld]\nlimit mean_amps=1..2", rules), "");
    EXPECT_NE(readRules("[*]\nreference 1=1 or 2=2", rules), "");
}

TEST(JudgeRules, MatchTheWeldsThatTheDatabaseFinds)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    {
        const auto store = openStore(path);
        std::int64_t program = 0;
        for (const char* const part : {"A-17", "a-17", "A-18", "B_17", "B%17", "", "\xc3\xa4-17", "A*"}) {
            keepWeld(*store, weldOf(std::to_string(program), part, program), 10);
            ++program;
        }
        keepWeld(*store, makeWeld("neither"), 10);
    }
    const auto reader = openReader(path);
    const std::vector<Weld> welds = listWelds(*reader);
    for (const char* const text : {"part_number like 'A-*'",
                                   "part_number like '?-17'",
                                   "part_number like '*17*'",
                                   "part_number like 'B_17'",
                                   "part_number like '?*?'",
                                   "part_number like '*'",
                                   "part_number like ''",
                                   "part_number like '**7'",
                                   "part_number = 'A-17'",
                                   "part_number <> 'A-17'",
                                   "part_number is empty",
                                   "part_number is not empty",
                                   "program < 3",
                                   "program <= 3",
                                   "program > 3.5",
                                   "program >= 3",
                                   "program = 3",
                                   "program <> 3",
                                   "part_number > 'A-17'",
                                   "mean_amps > 100 and program > 1",
                                   "mean_amps > 1e9",
                                   "verdict <> 'ok'"}) {
        WeldFilter filter;
        std::string error;
        ASSERT_TRUE(readWhere(text, filter, error)) << error;
        std::vector<std::string> found;
        std::vector<std::string> matching;
        for (const Weld& weld : listWelds(*reader, filter)) {
            found.push_back(weld.text(Column::Uid));
        }
        for (const Weld& weld : welds) {
            if (matches(weld, filter)) {
                matching.push_back(weld.text(Column::Uid));
            }
        }
        EXPECT_EQ(matching, found) << text;
    }
}

TEST(JudgeRules, TheFirstThatMatchesJudges)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    {
        const auto store = openStore(path);
        keepWeldAt(*store, weldOf("one", "A-17", 7), 180.0);
        keepWeldAt(*store, weldOf("two", "B-17", 7), 180.0);
        keepWeldAt(*store, weldOf("three", "B-17", 8), 180.0);
    }
    const auto reader = openReader(path);
    RuleJudge judge(rulesOf("[part_number = 'A-17']\nlimit mean_amps=100..200\n"
                            "[program = 7]\nlimit mean_amps=100..150\n"),
                    *reader);
    std::vector<std::string> levels;
    for (const Weld& weld : listWelds(*reader)) {
        Judge::Verdict verdict;
        std::string rule;
        ASSERT_TRUE(judge.judge(weld, verdict, rule));
        levels.push_back(verdict.level);
    }
    EXPECT_EQ(levels, (std::vector<std::string>{"ok", "not_ok", ""}));
}

TEST(JudgeRules, LearnFromOtherWeldsThanTheOneThatIsJudged)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const auto store = openStore(path);
    const auto reader = openReader(path);
    const std::string rules = "[program = 7]\nreference part_number = 'A-17'\n";
    for (int i = 0; i < 4; ++i) {
        keepWeldAt(*store, weldOf(std::to_string(i), "A-17", 7), 180.0 + i * 0.1);
    }
    const auto levelOf = [&](RuleJudge& judge, std::size_t index) {
        Judge::Verdict verdict;
        std::string rule;
        const Status status = judge.judge(listWelds(*reader)[index], verdict, rule);
        EXPECT_TRUE(status) << status.text;
        return verdict.level;
    };
    std::vector<std::string> remarks;
    {
        RuleJudge judge(rulesOf(rules), *reader);
        ASSERT_TRUE(judge.prepare(remarks));
        EXPECT_TRUE(remarks.empty());
        EXPECT_EQ(levelOf(judge, 0), "") << "three others are too few";
    }
    RuleJudge judge(rulesOf(rules), *reader);
    keepWeldAt(*store, weldOf("good", "B", 7), 180.2);
    keepWeldAt(*store, weldOf("bad", "B", 7), 150.0);
    EXPECT_EQ(levelOf(judge, 4), "ok");
    EXPECT_EQ(levelOf(judge, 5), "not_ok");
    keepWeldAt(*store, weldOf("4", "A-17", 7), 180.3);
    EXPECT_EQ(levelOf(judge, 0), "ok") << "a new reference is found";
    RuleJudge few(rulesOf("[*]\nreference part_number = 'none'\n"), *reader);
    ASSERT_TRUE(few.prepare(remarks));
    EXPECT_EQ(remarks.size(), 1U);
}

TEST(JudgeRules, LeaveReferencesWithoutAnArcOut)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const auto store = openStore(path);
    const auto reader = openReader(path);
    const std::string rules = "[*]\nreference part_number = 'A-17'\n";
    for (int i = 0; i < 3; ++i) {
        keepWeldAt(*store, weldOf(std::to_string(i), "A-17", 7), 180.0 + i * 0.1);
    }
    keepWeld(*store, weldOf("no samples", "A-17", 7), 0);
    std::vector<std::string> remarks;
    RuleJudge few(rulesOf(rules), *reader);
    ASSERT_TRUE(few.prepare(remarks));
    EXPECT_EQ(remarks, (std::vector<std::string>{"[*] has 3 references; limits can be learned from 4"}));

    keepWeldAt(*store, weldOf("3", "A-17", 7), 180.3);
    keepWeldAt(*store, weldOf("bad", "B", 7), 150.0);
    RuleJudge judge(rulesOf(rules), *reader);
    Judge::Verdict verdict;
    std::string rule;
    ASSERT_TRUE(judge.judge(listWelds(*reader).back(), verdict, rule));
    EXPECT_EQ(verdict.level, "not_ok");
}

TEST(JudgeRules, LeaveReferencesOutThatAreNotWhole)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const auto store = openStore(path);
    const auto reader = openReader(path);
    for (int i = 0; i < 5; ++i) {
        keepWeldAt(*store, weldOf(std::to_string(i), "A-17", 7), 180.0);
    }
    ASSERT_TRUE(store->database().run("UPDATE weld SET ending = 'running' WHERE id = 4"));
    ASSERT_TRUE(store->database().run("UPDATE weld SET ending = 'importing' WHERE id = 5"));
    std::vector<std::string> remarks;
    RuleJudge judge(rulesOf("[*]\nreference part_number = 'A-17'\n"), *reader);
    ASSERT_TRUE(judge.prepare(remarks));
    EXPECT_EQ(remarks, (std::vector<std::string>{"[*] has 3 references; limits can be learned from 4"}));
}

TEST(JudgeRules, ReadReferencesAgainThatCouldNotBeRead)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const auto store = openStore(path);
    const auto reader = openReader(path);
    for (int i = 0; i < 4; ++i) {
        keepWeldAt(*store, weldOf(std::to_string(i), "A-17", 7), 180.0 + i * 0.1);
    }
    keepWeldAt(*store, weldOf("bad", "B", 7), 150.0);
    const Weld bad = listWelds(*reader).back();
    RuleJudge judge(rulesOf("[*]\nreference part_number = 'A-17'\n"), *reader);
    Judge::Verdict verdict;
    std::string rule;
    ASSERT_TRUE(store->database().run("ALTER TABLE chunk RENAME TO away"));
    EXPECT_FALSE(judge.judge(bad, verdict, rule));
    ASSERT_TRUE(store->database().run("ALTER TABLE away RENAME TO chunk"));
    const Status status = judge.judge(bad, verdict, rule);
    ASSERT_TRUE(status) << status.text;
    EXPECT_EQ(verdict.level, "not_ok");
}

TEST(JudgeRules, StoreTheVerdictWithTheRow)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const auto store = openStore(path);
    const auto reader = openReader(path);
    RuleJudge judge(rulesOf("[*]\nlimit mean_amps=100..150\n"), *reader);
    store->setJudge([&](Weld& weld, ArchiveStore::Judgement& judgement) {
        Judge::Verdict verdict;
        std::string rule;
        EXPECT_TRUE(judge.judge(weld, verdict, rule));
        ASSERT_EQ(verdict.findings.size(), 1U);
        weld[Column::Verdict] = verdict.level;
        judgement.findings.push_back(
            {"not_ok", "mean_amps", verdict.findings[0].value, 100, 150, 0, 0, "absolute"});
    });
    keepWeldAt(*store, makeWeld("one"), 180.0);
    const Weld weld = listWelds(*reader)[0];
    EXPECT_EQ(weld.text(Column::Verdict), "not_ok");
    std::vector<Finding> findings;
    ASSERT_TRUE(reader->findings(weld.id, findings));
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_NEAR(findings[0].value, 183.0, 0.01);
}

TEST(JudgeRules, JudgeAWeldThatWasCutOff)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    {
        const auto store = openStore(path);
        const std::int64_t handle = store->begin(weldOf("one", "A-17", 7));
        for (std::int32_t i = 0; i < 6000; ++i) {
            store->add(handle, makeSample(i), 0);
        }
        ASSERT_TRUE(store->commit());
    }
    std::unique_ptr<ArchiveReader> reader;
    std::unique_ptr<RuleJudge> judge;
    Status status;
    const auto store = ArchiveStore::open(path, {}, status, [&](ArchiveStore& opened) {
        reader = openReader(path);
        judge = std::make_unique<RuleJudge>(rulesOf("[part_number = 'A-17']\nlimit mean_amps=100..150\n"),
                                            *reader);
        opened.setJudge([&](Weld& weld, ArchiveStore::Judgement& judgement) {
            Judge::Verdict verdict;
            EXPECT_TRUE(judge->judge(weld, verdict, judgement.record));
            weld[Column::Verdict] = verdict.level;
        });
        return Status();
    });
    ASSERT_TRUE(store) << status.text;
    const Weld weld = listWelds(*reader)[0];
    EXPECT_EQ(weld.text(Column::Ending), "killed");
    EXPECT_EQ(weld.text(Column::Verdict), "not_ok");
    std::vector<ArchiveStore::Unpublished> waiting;
    ASSERT_TRUE(store->readUnpublished(10, waiting));
    ASSERT_EQ(waiting.size(), 1U);
    EXPECT_EQ(waiting[0].record, "part_number = 'A-17'");
}

TEST(JudgeRules, KeepRecordsUntilTheyArePublished)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const auto idsOf = [](ArchiveStore& store) {
        std::vector<ArchiveStore::Unpublished> waiting;
        EXPECT_TRUE(store.readUnpublished(2 * ArchiveStore::kMaxUnpublished, waiting));
        std::vector<std::int64_t> ids;
        ids.reserve(waiting.size());
        for (const ArchiveStore::Unpublished& one : waiting) {
            ids.push_back(one.weld);
        }
        return ids;
    };
    {
        const auto store = openStore(path);
        store->setJudge([](Weld& weld, ArchiveStore::Judgement& judgement) {
            judgement.record = weld.text(Column::Uid);
        });
        keepWeld(*store, makeWeld("one"), 1);
        keepWeld(*store, makeWeld("two"), 1);
    }
    const auto store = openStore(path);
    EXPECT_EQ(idsOf(*store), (std::vector<std::int64_t>{1, 2}));
    ASSERT_TRUE(store->forgetUnpublished(1));
    EXPECT_EQ(idsOf(*store), (std::vector<std::int64_t>{2}));

    ASSERT_TRUE(store->database().run(
        "WITH RECURSIVE numbers(n) AS (SELECT -2000 UNION ALL SELECT n + 1 FROM numbers "
        "WHERE n < -1) INSERT INTO unpublished (weld_id, record) SELECT n, 'old' FROM "
        "numbers"));
    store->setJudge([](Weld& /*weld*/, ArchiveStore::Judgement& judgement) { judgement.record = "three"; });
    keepWeld(*store, makeWeld("three"), 1);
    const std::vector<std::int64_t> ids = idsOf(*store);
    ASSERT_EQ(ids.size(), ArchiveStore::kMaxUnpublished);
    EXPECT_EQ(ids.front(), -998) << "the oldest ones are dropped";
    EXPECT_EQ(ids.back(), 3);
}

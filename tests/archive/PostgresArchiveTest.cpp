// Archives in a real PostgreSQL.

#include "archive/ArchiveTestSupport.h"
#include "archive/PostgresServer.h"
#include "archive/WeldBlockChecks.h"
#include "archive/WholeNumbers.h"
#include "archive/forward/Forwarder.h"
#include "archive/store/BlockMaker.h"
#include "archive/welds/Schema.h"
#include "archive/welds/WeldBlock.h"
#include "telvane-welds/SampleExport.h"

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::eventually;
using Telvane::Testing::TemporaryDirectory;
using testing::ElementsAre;

namespace
{

class Postgres : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<PostgresServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    void SetUp() override { start(); }
    void TearDown() override { stop(); }

    static void start() { s_server->start(); }
    static void stop() { s_server->stop(); }
    static void clear() { s_server->clear(); }
    static std::string location() { return s_server->location(); }
    static std::unique_ptr<Database> connect()
    {
        Status status;
        auto database = openPostgres(location(), Database::Access::ReadWrite, status);
        EXPECT_TRUE(database) << status.text;
        return database;
    }
    /// \return a connection to an archive with welds
    static std::unique_ptr<Database> connectToWelds(std::int64_t version = kSchemaVersion)
    {
        clear();
        auto database = connect();
        EXPECT_TRUE(migrate(*database, version));
        fill(*database);
        return database;
    }

private:
    static std::unique_ptr<PostgresServer> s_server;
};

std::unique_ptr<PostgresServer> Postgres::s_server;

Forwarder::Settings quick(const std::string& spool, const std::string& location)
{
    Forwarder::Settings settings;
    settings.spool = spool;
    settings.location = location;
    settings.interval = 10 * TelvaneTool::kMillisecond;
    settings.longestPause = 50 * TelvaneTool::kMillisecond;
    return settings;
}

void makeBlocks(Database& database)
{
    BlockMaker maker;
    bool made = true;
    while (made) {
        const Status status = maker.makeOne(database, made);
        ASSERT_TRUE(status) << status.text;
    }
}

/// Deletes what has been sent, until the spool is empty.
bool sendAll(ArchiveStore& store, Forwarder& forwarder)
{
    return eventually([&] {
        const auto sent = forwarder.takeSent();
        EXPECT_TRUE(store.deleteWelds(sent));
        forwarder.forget(sent);
        std::vector<Row> rows;
        store.database().run("SELECT count(*) FROM weld", {}, &rows);
        return wholeOf(rows[0][0]) == 0;
    });
}

} // namespace

TEST_F(Postgres, TakesAndReturnsEachKindOfValue)
{
    clear();
    Status status;
    const auto database = openPostgres(location(), Database::Access::ReadWrite, status);
    ASSERT_TRUE(database) << status.text;
    const Row values = {-(std::int64_t{1} << 62), -1.0e-300, std::string("x' OR 1=1; \xc3\xa4"),
                        Blob{std::string("a\0b\xff", 4)}};
    std::vector<Row> rows;
    ASSERT_TRUE(database->run("SELECT $1, $2, $3, $4", values, &rows));
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_TRUE(rows[0] == values);
    EXPECT_EQ(database->run("SELECT nothing").code, Status::Code::Refused);
}

TEST_F(Postgres, GetsWeldsFromTheSpoolWithTheirSamples)
{
    clear();
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("spool.db"));
    keepWeld(*store, makeWeld("one"), 10'000);
    keepWeld(*store, makeWeld("two"), 100);
    Forwarder forwarder(quick(directory.path("spool.db"), location()), [](const std::string&) {});
    ASSERT_TRUE(sendAll(*store, forwarder));
    const auto reader = openReader(location());
    const std::vector<Weld> welds = listWelds(*reader);
    ASSERT_EQ(welds.size(), 2U);
    EXPECT_EQ(welds[0].text(Column::Uid), "one");
    EXPECT_EQ(welds[0].whole(Column::Samples), 10'000);
    const std::vector<Sample> samples = samplesOf(*reader, welds[0].id);
    EXPECT_EQ(samples.size(), 10'000U);
    EXPECT_EQ(differenceOf(samples), "");
    std::optional<Envelope> envelope;
    ASSERT_TRUE(reader->envelope(welds[0].id, kFineParts, envelope));
    EXPECT_TRUE(envelope.has_value());
    EXPECT_TRUE(std::filesystem::is_empty(directory.path("spool.db.samples")));
}

TEST_F(Postgres, GivesAWeldOneIdHoweverOftenItIsSent)
{
    clear();
    const TemporaryDirectory directory;
    const std::string spool = directory.path("spool.db");
    const auto store = openStore(spool);
    keepWeld(*store, makeWeld("one"), 10);
    for (int i = 0; i < 3; ++i) {
        Forwarder forwarder(quick(spool, location()), [](const std::string&) {});
        ASSERT_TRUE(eventually([&forwarder] { return !forwarder.takeSent().empty(); }));
    }
    keepWeld(*store, makeWeld("two"), 10);
    Forwarder forwarder(quick(spool, location()), [](const std::string&) {});
    ASSERT_TRUE(sendAll(*store, forwarder));
    const std::vector<Weld> welds = listWelds(*openReader(location()));
    ASSERT_EQ(welds.size(), 2U);
    EXPECT_EQ(welds[1].id, welds[0].id + 1);
}

TEST_F(Postgres, ExportsEachSampleOnceWhateverItsStamp)
{
    clear();
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("spool.db"));
    const std::vector<Sample> published = makeUnevenSamples(12'000);
    keepSamples(*store, published);
    Forwarder forwarder(quick(directory.path("spool.db"), location()), [](const std::string&) {});
    ASSERT_TRUE(sendAll(*store, forwarder));
    const auto reader = openReader(location());
    ASSERT_EQ(writeSamples(*reader, listWelds(*reader).at(0), directory.path("weld.csv")), 0);
    EXPECT_EQ(differenceOfExport(directory.path("weld.csv"), published), "");
}

TEST_F(Postgres, AnswersTheSameQuestionsAsSqlite)
{
    clear();
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("spool.db"));
    for (int i = 0; i < 5; ++i) {
        Weld weld = makeWeld(std::to_string(i));
        weld[Column::PartNumber] = std::string(i % 2 == 0 ? "A-1" : "B_1");
        weld[Column::Program] = std::int64_t{i};
        weld[Column::StartNs] = kStart + i * std::int64_t{86'400'000'000'000};
        keepWeld(*store, weld, 1000);
    }
    Forwarder forwarder(quick(directory.path("spool.db"), location()), [](const std::string&) {});
    const auto here = openReader(directory.path("spool.db"));
    const auto there = [&] {
        EXPECT_TRUE(eventually([&] { return forwarder.takeSent().size() + 0U > 0U; }));
        return openReader(location());
    }();
    ASSERT_TRUE(eventually([&] { return listWelds(*there).size() == 5; }));
    for (const char* const where :
         {"program >= 2", "part_number like 'A*'", "part_number = 'B_1' and mean_amps > 100",
          "operator is empty", "mean_volts < 5", "program <> 3", "part_number like 'a*'"}) {
        WeldFilter filter;
        std::string error;
        ASSERT_TRUE(readWhere(where, filter, error)) << error;
        const std::vector<Weld> first = listWelds(*here, filter);
        const std::vector<Weld> second = listWelds(*there, filter);
        ASSERT_EQ(first.size(), second.size()) << where;
        for (std::size_t i = 0; i < first.size(); ++i) {
            EXPECT_TRUE(first[i].values == second[i].values) << where;
        }
        for (const bool byPart : {false, true}) {
            std::vector<ArchiveReader::TrendPoint> trend[2];
            ASSERT_TRUE(here->trend(Column::MeanAmps, filter, byPart, trend[0]));
            ASSERT_TRUE(there->trend(Column::MeanAmps, filter, byPart, trend[1]));
            ASSERT_EQ(trend[0].size(), trend[1].size());
            for (std::size_t i = 0; i < trend[0].size(); ++i) {
                EXPECT_EQ(trend[0][i].group, trend[1][i].group);
                EXPECT_EQ(trend[0][i].welds, trend[1][i].welds);
                EXPECT_NEAR(trend[0][i].mean, trend[1][i].mean, 1e-9);
            }
        }
    }
}

TEST_F(Postgres, ComparesWholeNumbersExactlyWithEachNumber)
{
    clear();
    Status status;
    const auto database = openPostgres(location(), Database::Access::ReadWrite, status);
    ASSERT_TRUE(database) << status.text;
    ASSERT_TRUE(migrate(*database));
    addWelds(*database);
    makeBlocks(*database);
    EXPECT_EQ(blocksOf(*database).size(), 5U);
    expectExactAnswers(*openReader(location()), ArchiveReader::Source::Rows);
    expectExactAnswers(*openReader(location()), ArchiveReader::Source::Blocks);
}

TEST_F(Postgres, GetsEverythingOnceAfterAnOutage)
{
    clear();
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("spool.db"));
    keepWeld(*store, makeWeld("before"), 3000);
    std::mutex lock;
    std::string lastReport;
    const auto report = [&](const std::string& text) {
        const std::lock_guard<std::mutex> guard(lock);
        lastReport = text;
    };
    {
        Forwarder forwarder(quick(directory.path("spool.db"), location()), report);
        ASSERT_TRUE(eventually([&] { return !forwarder.takeSent().empty(); })); // sent, not deleted
        stop();
        keepWeld(*store, makeWeld("during"), 5000);
        ASSERT_TRUE(eventually([&] {
            const std::lock_guard<std::mutex> guard(lock);
            return !lastReport.empty();
        }));
        start();
        ASSERT_TRUE(eventually([&] { return !forwarder.takeSent().empty(); })); // sent, not deleted
    }
    // A new forwarder does not know what was sent, and sends all of it again.
    Forwarder again(quick(directory.path("spool.db"), location()), report);
    ASSERT_TRUE(sendAll(*store, again));
    const auto reader = openReader(location());
    const std::vector<Weld> welds = listWelds(*reader);
    ASSERT_EQ(welds.size(), 2U);
    EXPECT_EQ(samplesOf(*reader, welds[0].id).size(), 3000U);
    EXPECT_EQ(differenceOf(samplesOf(*reader, welds[1].id)), "");
}

TEST_F(Postgres, GetsTheVerdictWithItsFindingsOnce)
{
    clear();
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("spool.db"));
    store->setJudge([](Weld& weld, ArchiveStore::Judgement& judgement) {
        weld[Column::Verdict] = std::string("not_ok");
        judgement.findings.push_back({"not_ok", "mean_amps", 1.0, 2.0, 3.0, 0.0, 0.0, "absolute"});
        judgement.findings.push_back({"warning", "mean_gas", 4.0, 5.0, 6.0, 1.0, 2.0, "absolute"});
    });
    keepWeld(*store, makeWeld("one"), 1000);
    {
        Forwarder forwarder(quick(directory.path("spool.db"), location()), [](const std::string&) {});
        ASSERT_TRUE(eventually([&] { return !forwarder.takeSent().empty(); })); // sent, not deleted
    }
    Forwarder again(quick(directory.path("spool.db"), location()), [](const std::string&) {});
    ASSERT_TRUE(sendAll(*store, again));
    const auto reader = openReader(location());
    const std::vector<Weld> welds = listWelds(*reader);
    ASSERT_EQ(welds.size(), 1U);
    EXPECT_EQ(welds[0].text(Column::Verdict), "not_ok");
    std::vector<Finding> findings;
    ASSERT_TRUE(reader->findings(welds[0].id, findings));
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0].metric, "mean_amps");
    EXPECT_EQ(findings[1].toSeconds, 2.0);
}

TEST_F(Postgres, HasBlocksThatSayTheSameAsTheRows)
{
    const auto database = connectToWelds();
    makeBlocks(*database);
    EXPECT_THAT(blocksOf(*database), ElementsAre(1, 2, 3));
    const auto reader = openReader(location());
    EXPECT_GT(expectSameTrends(*reader), 100U);
    EXPECT_GT(expectSameLists(*reader), 1000U);
    // No weld of the archive has this operator; only the block says so.
    BlockColumn operators(Column::Operator);
    for (int i = 0; i < 82; ++i) {
        ASSERT_TRUE(operators.add(std::string("forged")));
    }
    ASSERT_TRUE(database->run("UPDATE weld_block SET data = $1 WHERE block = 2 AND name = 'operator'",
                              {Blob{operators.encode()}}));
    ArchiveReader::Query query;
    query.filter.add(Column::Operator, Condition::Comparison::Equal, std::string("forged"));
    query.source = Source::Blocks;
    std::vector<Weld> welds;
    ASSERT_TRUE(reader->list(query, welds));
    EXPECT_EQ(welds.size(), 82U);
}

TEST_F(Postgres, DeletesABlockWithTheFirstChangeOfItsWelds)
{
    const auto database = connectToWelds();
    const auto change = [&database](const Sql& statement) {
        makeBlocks(*database);
        const Status status = database->run(statement);
        EXPECT_TRUE(status) << status.text;
        return blocksOf(*database);
    };
    EXPECT_THAT(change("UPDATE weld SET mean_volts = 99 WHERE id = 20000"), ElementsAre(2, 3));
    EXPECT_THAT(change("INSERT INTO weld (id, uid, start_ns) VALUES (40001, 'late', 1790000000000000000)"),
                ElementsAre(1, 3));
    EXPECT_THAT(change("DELETE FROM weld WHERE id = 50000"), ElementsAre(1, 2));
    EXPECT_THAT(change("UPDATE weld SET id = 60001 WHERE id = 20000"), ElementsAre(2));
    makeBlocks(*database);
    expectSameTrends(*openReader(location()));
    EXPECT_THAT(change("TRUNCATE weld"), ElementsAre());
}

TEST_F(Postgres, MakesNoBlockOfWeldsThatOthersAreChanging)
{
    const auto database = connectToWelds();
    const auto other = connect();
    ASSERT_TRUE(other->run("BEGIN"));
    ASSERT_TRUE(other->run("UPDATE weld SET mean_volts = 99 WHERE id = 40000"));
    makeBlocks(*database);
    EXPECT_THAT(blocksOf(*database), ElementsAre(1, 3)) << "the change is not to be seen yet";
    ASSERT_TRUE(other->run("COMMIT"));
    makeBlocks(*database);
    EXPECT_THAT(blocksOf(*database), ElementsAre(1, 2, 3));
    expectSameTrends(*openReader(location()));
}

TEST_F(Postgres, LetsWeldsOfABlockBeChangedOnlyAfterItWasMade)
{
    const auto maker = connectToWelds();
    ASSERT_TRUE(maker->run("BEGIN ISOLATION LEVEL READ COMMITTED"));
    ASSERT_TRUE(maker->run("SELECT pg_try_advisory_xact_lock(831642, 2)"));
    const auto other = connect();
    std::thread change([&other] {
        const Status status = other->run("UPDATE weld SET mean_volts = 99 WHERE id = 40000");
        EXPECT_TRUE(status) << status.text;
    });
    EXPECT_TRUE(eventually([&maker] {
        std::vector<Row> waiting;
        return maker->run("SELECT 1 FROM pg_locks WHERE locktype = 'advisory' AND NOT granted", {},
                          &waiting) &&
               !waiting.empty();
    }));
    EXPECT_TRUE(maker->run("INSERT INTO weld_block (block, name, data) VALUES (2, 'id', '')"));
    EXPECT_TRUE(maker->run("COMMIT"));
    change.join();
    EXPECT_THAT(blocksOf(*maker), ElementsAre());
}

TEST_F(Postgres, KeepsBlocksRightWhileSeveralWrite)
{
    const auto database = connectToWelds();
    constexpr int kWriters = 3;
    std::atomic<int> writing = kWriters;
    std::vector<std::thread> writers;
    for (std::int64_t number = 0; number < kWriters; ++number) {
        writers.emplace_back([number, &writing] {
            const auto own = connect();
            for (std::int64_t i = 0; i < 60; ++i) {
                Transaction transaction(*own); // every third one is rolled back
                const std::int64_t id = 16'400 + (i * kWriters + number) * 7919 % 160 * 200;
                EXPECT_TRUE(own->run("UPDATE weld SET mean_volts = $1, operator = 'writer' WHERE id = $2",
                                     {20.0 + static_cast<double>(i), id}));
                if (i % 3 != 0) {
                    EXPECT_TRUE(transaction.commit());
                }
            }
            --writing;
        });
    }
    BlockMaker maker;
    while (writing != 0) {
        bool made = false;
        const Status status = maker.makeOne(*database, made);
        EXPECT_TRUE(status) << status.text;
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    const auto reader = openReader(location());
    expectSameTrends(*reader);
    makeBlocks(*database);
    EXPECT_THAT(blocksOf(*database), ElementsAre(1, 2, 3));
    expectSameTrends(*reader);
}

TEST_F(Postgres, RefusesChangesThatCouldOverlookABlock)
{
    const auto database = connectToWelds();
    ASSERT_TRUE(database->run("BEGIN ISOLATION LEVEL REPEATABLE READ"));
    const Status status = database->run("UPDATE weld SET mean_volts = 99 WHERE id = 40000");
    EXPECT_EQ(status.code, Status::Code::Refused);
    EXPECT_NE(status.text.find("READ COMMITTED"), std::string::npos) << status.text;
}

TEST_F(Postgres, AnswersUsersWhoHaveNoRightsToItsBlocks)
{
    const auto database = connectToWelds();
    makeBlocks(*database);
    for (const Sql& statement :
         {Sql("CREATE ROLE plant LOGIN"), Sql("GRANT USAGE ON SCHEMA public TO plant"),
          Sql("GRANT SELECT, UPDATE ON weld TO plant"), Sql("GRANT SELECT ON archive_info TO plant")}) {
        ASSERT_TRUE(database->run(statement));
    }
    const std::string plant = "postgresql://plant" + location().substr(location().find('@'));
    EXPECT_GT(expectSameTrends(*openReader(plant)), 100U);
    Status status;
    auto user = openPostgres(plant, Database::Access::ReadWrite, status);
    ASSERT_TRUE(user) << status.text;
    ASSERT_TRUE(user->run("CREATE TEMPORARY TABLE weld_block (block BIGINT)"));
    status = user->run("UPDATE weld SET verdict = 'ok' WHERE id = 40000");
    EXPECT_TRUE(status) << status.text;
    EXPECT_THAT(blocksOf(*database), ElementsAre(1, 3))
        << "a table of the user does not take the place of another";
    status = user->run("CREATE TEMPORARY TABLE own (id BIGINT)");
    status =
        user->run("CREATE TRIGGER own AFTER INSERT ON own FOR EACH ROW EXECUTE FUNCTION weld_block_forget()");
    EXPECT_EQ(status.code, Status::Code::Refused) << "the function has the rights of its owner";
    user.reset();
    ASSERT_TRUE(database->run("DROP OWNED BY plant"));
    ASSERT_TRUE(database->run("DROP ROLE plant"));
}

TEST_F(Postgres, GetsWeldsFromUsersWhoMayNotMakeBlocks)
{
    const auto database = connectToWelds();
    for (const Sql& statement :
         {Sql("CREATE ROLE module LOGIN"), Sql("GRANT USAGE ON SCHEMA public TO module"),
          Sql("GRANT SELECT, INSERT, UPDATE ON ALL TABLES IN SCHEMA public TO module"),
          Sql("REVOKE ALL ON weld_block FROM module")}) {
        ASSERT_TRUE(database->run(statement));
    }
    {
        const TemporaryDirectory directory;
        const auto store = openStore(directory.path("spool.db"));
        std::mutex lock;
        std::string reports;
        Forwarder forwarder(quick(directory.path("spool.db"),
                                  "postgresql://module" + location().substr(location().find('@'))),
                            [&](const std::string& text) {
                                const std::lock_guard<std::mutex> guard(lock);
                                reports += text + "\n";
                            });
        for (const char* const uid : {"one", "two"}) { // between them, it has tried to make a block
            keepWeld(*store, makeWeld(uid), 10);
            EXPECT_TRUE(sendAll(*store, forwarder));
        }
        const std::lock_guard<std::mutex> guard(lock);
        EXPECT_EQ(reports.find("weld_block"), std::string::npos) << reports;
    }
    EXPECT_THAT(blocksOf(*database), ElementsAre());
    ASSERT_TRUE(database->run("DROP OWNED BY module"));
    ASSERT_TRUE(database->run("DROP ROLE module"));
}

TEST_F(Postgres, GetsBlocksOfWeldsThatAnOlderVersionKept)
{
    connectToWelds(6);
    EXPECT_EQ(trendOf(*openReader(location()), Column::Energy, "", true, Source::Blocks).size(), 5U);
    const TemporaryDirectory directory;
    const auto store = openStore(directory.path("spool.db"));
    const Forwarder forwarder(quick(directory.path("spool.db"), location()), [](const std::string&) {});
    const auto database = connect();
    EXPECT_TRUE(eventually([&database] {
        std::vector<Row> rows;
        return database->run("SELECT count(DISTINCT block) FROM weld_block", {}, &rows) &&
               wholeOf(rows[0][0]) == 3;
    }));
    EXPECT_THAT(blocksOf(*database), ElementsAre(1, 2, 3));
    expectSameTrends(*openReader(location()));
}

// Trends are read from blocks of columns, which always say the same as the rows.

#include "archive/welds/WeldBlock.h"
#include "archive/WeldBlockChecks.h"
#include "archive/welds/Schema.h"

#include <gmock/gmock.h>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;
using testing::ElementsAre;

namespace
{

class WeldBlocks : public ::testing::Test
{
protected:
    WeldBlocks() : m_store(openStore(m_path))
    {
        fill(m_store->database());
        EXPECT_TRUE(m_store->makeBlocks());
        m_reader = openReader(m_path);
    }

    void run(const Sql& statement)
    {
        const Status status = m_store->database().run(statement);
        EXPECT_TRUE(status) << status.text;
    }

    TemporaryDirectory m_directory;
    const std::string m_path = m_directory.path("welds.db");
    std::unique_ptr<ArchiveStore> m_store;
    std::unique_ptr<ArchiveReader> m_reader;
};

} // namespace

TEST_F(WeldBlocks, AreNotMadeOfTheOldestAndTheNewestWelds)
{
    EXPECT_THAT(blocksOf(m_store->database()), ElementsAre(1, 2, 3));
    bool made = true;
    EXPECT_TRUE(m_store->makeBlock(made));
    EXPECT_FALSE(made);
    run("UPDATE weld SET id = 1 WHERE id = 200"); // retention has deleted none
    EXPECT_TRUE(m_store->makeBlocks());
    EXPECT_THAT(blocksOf(m_store->database()), ElementsAre(0, 1, 2, 3));
    run("UPDATE weld SET id = 1000000000000 WHERE id = 80000"); // a gap of millions of blocks
    EXPECT_TRUE(m_store->makeBlocks());
    EXPECT_THAT(blocksOf(m_store->database()), ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(WeldBlocks, GiveTheSameTrendsAsTheRows)
{
    EXPECT_GT(expectSameTrends(*m_reader), 100U);
}

TEST_F(WeldBlocks, GiveTheSameListsAsTheRows)
{
    EXPECT_GT(expectSameLists(*m_reader), 1000U);
}

TEST_F(WeldBlocks, FindTheWeldsOfAListInPlaceOfTheRows)
{
    run("WITH RECURSIVE numbers(n) AS (SELECT 80001 UNION ALL SELECT n + 1 FROM numbers WHERE n < 100000) "
        "INSERT INTO weld (id, uid, start_ns) SELECT n, n, 1790000000000000000 FROM numbers");
    // No weld of the archive has this operator; only the block says so.
    BlockColumn operators(Column::Operator);
    for (int i = 0; i < 82; ++i) {
        ASSERT_TRUE(operators.add(std::string("forged")));
    }
    ASSERT_TRUE(m_store->database().run(
        "UPDATE weld_block SET data = $1 WHERE block = 2 AND name = 'operator'", {Blob{operators.encode()}}));
    const auto count = [this](const std::string& where) {
        ArchiveReader::Query query;
        std::string error;
        EXPECT_TRUE(readWhere(where, query.filter, error)) << error;
        std::vector<Weld> welds;
        EXPECT_TRUE(m_reader->list(query, welds));
        return welds.size();
    };
    EXPECT_EQ(count("operator = 'forged'"), 82U);
    EXPECT_EQ(count("operator = 'forged' and energy > 1"), 0U) << "an index leaves few rows, which are read";
    EXPECT_TRUE(m_store->makeBlocks());
    run("UPDATE weld SET id = 1000000 WHERE id = 100000");
    EXPECT_EQ(count("operator = 'forged'"), 82U) << "no welds are missing between them";
}

TEST_F(WeldBlocks, AreNotNeededInAnArchiveOfAnOlderVersion)
{
    const Points rows = trendOf(*m_reader, Column::MeanVolts, "", false, Source::Rows);
    run("DROP TABLE weld_block");
    run("UPDATE archive_info SET value = 3 WHERE name = 'schema_version'");
    m_reader = openReader(m_path);
    const Points points = trendOf(*m_reader, Column::MeanVolts, "", false, Source::Blocks);
    ASSERT_EQ(points.size(), rows.size());
    EXPECT_EQ(points.back().welds, rows.back().welds);
}

TEST_F(WeldBlocks, GiveTheFirstGroupsOfVeryMany)
{
    run("WITH RECURSIVE numbers(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM numbers WHERE n < 40000) "
        "INSERT INTO weld (id, uid, start_ns, ending, part_number, mean_volts) SELECT 100000 + n, 'one ' || "
        "n, "
        "1790000000000000000, 'complete', 'P' || (n * 7919 % 40000 + 10000), 20 FROM numbers");
    EXPECT_TRUE(m_store->makeBlocks());
    for (const Source source : {Source::Rows, Source::Blocks}) {
        const Points points = trendOf(*m_reader, Column::MeanVolts, "part_number like 'P*'", true, source);
        ASSERT_EQ(points.size(), 5000U);
        EXPECT_EQ(points.front().group, "P10000");
        EXPECT_EQ(points.back().group, "P14999");
        for (const auto& point : points) {
            ASSERT_EQ(point.welds, 1) << point.group;
        }
    }
}

TEST_F(WeldBlocks, AreReadInPlaceOfTheRows)
{
    const Points points = trendOf(*m_reader, Column::MeanVolts, "", true, Source::Rows);
    // No weld of the archive has this part; only the block says so.
    BlockColumn parts(Column::PartNumber);
    std::vector<Row> rows;
    ASSERT_TRUE(
        m_store->database().run("SELECT count(*) FROM weld WHERE id >= 32768 AND id < 49152", {}, &rows));
    for (std::int64_t i = 0; i < wholeOf(rows[0][0]); ++i) {
        ASSERT_TRUE(parts.add(std::string("forged")));
    }
    ASSERT_TRUE(m_store->database().run(
        "UPDATE weld_block SET data = $1 WHERE block = 2 AND name = 'part_number'", {Blob{parts.encode()}}));
    EXPECT_EQ(trendOf(*m_reader, Column::MeanVolts, "", true, Source::Blocks).back().group, "forged");
    EXPECT_EQ(trendOf(*m_reader, Column::MeanVolts, "", true, Source::Best).back().group, points.back().group)
        << "few rows are read as they are";
    run("WITH RECURSIVE numbers(n) AS (SELECT 80001 UNION ALL SELECT n + 1 FROM numbers WHERE n < 100000) "
        "INSERT INTO weld (id, uid, start_ns) SELECT n, n, 1790000000000000000 FROM numbers");
    EXPECT_EQ(trendOf(*m_reader, Column::MeanVolts, "", true, Source::Best).back().group, "forged");
}

TEST_F(WeldBlocks, AreDeletedWithTheFirstChangeOfARow)
{
    run("UPDATE weld SET mean_volts = 99 WHERE id = 20000");
    EXPECT_THAT(blocksOf(m_store->database()), ElementsAre(2, 3));
    ASSERT_TRUE(m_store->storeVerdict(40'000, "warning", {}, kStart));
    EXPECT_THAT(blocksOf(m_store->database()), ElementsAre(3));
    expectSameTrends(*m_reader);
    EXPECT_TRUE(m_store->makeBlocks());
    ASSERT_TRUE(m_store->deleteWelds({20'000}));
    run("INSERT INTO weld (id, uid, start_ns, mean_volts) VALUES (40001, 'late', 1790000000000000000, 7.5)");
    EXPECT_THAT(blocksOf(m_store->database()), ElementsAre(3));
    run("UPDATE weld SET id = 60001 WHERE id = 400");
    EXPECT_THAT(blocksOf(m_store->database()), ElementsAre());
    expectSameTrends(*m_reader);
    EXPECT_TRUE(m_store->makeBlocks());
    EXPECT_THAT(blocksOf(m_store->database()), ElementsAre(1, 2, 3));
    expectSameTrends(*m_reader);
}

TEST_F(WeldBlocks, AreNotTrustedWhenTheyAreDamaged)
{
    run("UPDATE weld_block SET data = x'00' WHERE block = 1 AND name = 'start_ns'");
    run("UPDATE weld_block SET data = (SELECT data FROM weld_block WHERE block = 3 AND name = 'mean_volts') "
        "WHERE block = 2 AND name = 'verdict'");
    run("DELETE FROM weld_block WHERE block = 3 AND name = 'part_number'");
    expectSameTrends(*m_reader);
}

TEST_F(WeldBlocks, AreNotMadeOfValuesThatAColumnShouldNotHave)
{
    run("UPDATE weld SET mean_volts = 'much' WHERE id = 20000");
    EXPECT_TRUE(m_store->makeBlocks());
    EXPECT_THAT(blocksOf(m_store->database()), ElementsAre(2, 3));
    expectSameTrends(*m_reader);
}

TEST(WeldBlock, BringsBackEveryValue)
{
    const std::vector<std::pair<Column, std::vector<Value>>> columns = {
        {Column::StartNs, {std::int64_t{0}, {}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::max()}},
        {Column::MeanVolts, {18.5, {}, -0.0, std::numeric_limits<double>::infinity(), 5e-324}},
        {Column::PartNumber, {std::string("A"), {}, std::string(), std::string("A\0B", 3), std::string("A")}},
        {Column::Verdict, {}}};
    for (const auto& [column, values] : columns) {
        BlockColumn written(column);
        for (const Value& value : values) {
            EXPECT_TRUE(written.add(value));
        }
        const std::string data = written.encode();
        BlockColumn read(column);
        ASSERT_TRUE(read.decode(data));
        ASSERT_EQ(read.size(), values.size());
        for (std::size_t i = 0; i < values.size(); ++i) {
            EXPECT_EQ(read.isNull(i), isNull(values[i]));
            if (read.type() != ColumnType::Text) {
                EXPECT_EQ(read.value(i), values[i]);
            } else if (!read.isNull(i)) {
                EXPECT_EQ(read.texts()[read.place(i)], textOf(values[i]));
            }
        }
        for (std::size_t size = 0; size < data.size(); ++size) {
            EXPECT_FALSE(read.decode(data.substr(0, size)));
        }
    }
}

TEST(WeldBlock, RefusesPlacesThatAreNotInTheList)
{
    BlockColumn texts(Column::PartNumber);
    ASSERT_TRUE(texts.add(std::string("A")));
    BlockColumn numbers(Column::StartNs);
    // Two texts, both empty, and the place 2.
    ASSERT_TRUE(numbers.add(std::int64_t{2}));
    ASSERT_TRUE(numbers.add(std::int64_t{2} << 32U));
    EXPECT_FALSE(texts.decode(numbers.encode()));
    BlockColumn sound(Column::StartNs);
    ASSERT_TRUE(sound.add(std::int64_t{2}));
    ASSERT_TRUE(sound.add(std::int64_t{1} << 32U));
    EXPECT_TRUE(texts.decode(sound.encode()));
    EXPECT_EQ(texts.place(0), 1U);
}

TEST(ArchiveSchema, MakesBlocksAgainThatHaveTooFewColumns)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    {
        Status status;
        const auto database = openSqlite(path, Database::Access::ReadWrite, status);
        ASSERT_TRUE(migrate(*database, 5));
        fill(*database);
        ASSERT_TRUE(
            database->run("INSERT INTO weld_block (block, name, data) VALUES (1, 'start_ns', x'00')"));
    }
    const auto store = openStore(path);
    EXPECT_THAT(blocksOf(store->database()), ElementsAre());
    EXPECT_TRUE(store->makeBlocks());
    EXPECT_THAT(blocksOf(store->database()), ElementsAre(1, 2, 3));
    std::vector<Row> rows;
    ASSERT_TRUE(store->database().run("SELECT DISTINCT name FROM weld_block", {}, &rows));
    EXPECT_EQ(rows.size(), kColumns - 3 + 1); // and the ids
}

TEST(ArchiveSchema, MakesBlocksOfTheRowsOfTheThirdVersion)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    {
        Status status;
        const auto database = openSqlite(path, Database::Access::ReadWrite, status);
        ASSERT_TRUE(migrate(*database, 3));
        fill(*database);
    }
    const auto store = openStore(path);
    EXPECT_THAT(blocksOf(store->database()), ElementsAre());
    const auto reader = openReader(path);
    EXPECT_EQ(trendOf(*reader, Column::Energy, "", true, Source::Best).size(), 5U);
    EXPECT_TRUE(store->makeBlocks());
    EXPECT_THAT(blocksOf(store->database()), ElementsAre(1, 2, 3));
    EXPECT_EQ(trendOf(*reader, Column::Energy, "", true, Source::Blocks).size(), 5U);
}

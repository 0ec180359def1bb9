// The questions that must be quick with a million welds use an index, and do not sort what it has in order.

#include "archive/ArchiveTestSupport.h"

#include <gmock/gmock.h>

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;
using testing::HasSubstr;
using testing::Not;

namespace
{

class QueryPlan : public ::testing::Test
{
protected:
    QueryPlan() : m_store(openStore(m_directory.path("welds.db"))) {}

    /// \return what SQLite does, one line for each step
    std::string planOf(const Sql& statement, const Row& values)
    {
        std::vector<Row> rows;
        const Status status = m_store->database().run("EXPLAIN QUERY PLAN " + statement, values, &rows);
        EXPECT_TRUE(status) << status.text;
        std::string plan;
        for (const Row& row : rows) {
            plan += textOf(row[3]) + "\n";
        }
        return plan;
    }

    std::string planOfList(const std::string& where, bool few = false, std::optional<Column> order = {})
    {
        ArchiveReader::Query query;
        std::string error;
        EXPECT_TRUE(where.empty() || readWhere(where, query.filter, error)) << error;
        query.order = order;
        Row values;
        const Sql statement = ArchiveReader::statementOf(query, few, values);
        return planOf(statement, values);
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<ArchiveStore> m_store;
};

} // namespace

TEST_F(QueryPlan, FindsTheNewestWeldsInTheIndexOfTime)
{
    EXPECT_EQ(planOfList(""), "SCAN weld USING INDEX weld_start\n");
    EXPECT_EQ(planOfList("start_ns >= 5 and start_ns < 6"),
              "SEARCH weld USING INDEX weld_start (start_ns>? AND start_ns<?)\n");
}

TEST_F(QueryPlan, FindsWeldsOfAPartAProgramAndAVerdictInTheirOrder)
{
    EXPECT_EQ(planOfList("part_number = 'A-17'"), "SEARCH weld USING INDEX weld_part (part_number=?)\n");
    EXPECT_EQ(planOfList("program = 7"), "SEARCH weld USING INDEX weld_program (program=?)\n");
    EXPECT_EQ(planOfList("verdict = 'not_ok'"), "SEARCH weld USING INDEX weld_verdict (verdict=?)\n");
}

TEST_F(QueryPlan, FindsFewMatchesOfAMetricByItsIndexAndManyByTime)
{
    EXPECT_THAT(planOfList("mean_amps > 1000", true),
                HasSubstr("USING INDEX weld_by_mean_amps (mean_amps>?)"));
    EXPECT_EQ(planOfList("mean_amps > 180"), "SCAN weld USING INDEX weld_start\n");
}

TEST_F(QueryPlan, FindsTheLargestMetricsInTheirOrder)
{
    for (const Column column : allColumns()) {
        if (infoOf(column).use == ColumnUse::Computed && infoOf(column).type == ColumnType::Real) {
            const std::string plan = planOfList("", false, column);
            EXPECT_THAT(plan, HasSubstr(std::string("USING INDEX weld_by_") + infoOf(column).name));
            EXPECT_THAT(plan, Not(HasSubstr("TEMP B-TREE")));
        }
    }
}

TEST_F(QueryPlan, ReadsTheTrendOfAllWeldsFromTheIndexOnly)
{
    Row values;
    EXPECT_THAT(planOf(ArchiveReader::statementOfTrend(Column::MeanVolts, {}, false, {}, values), values),
                HasSubstr("USING COVERING INDEX weld_by_mean_volts"));
}

TEST_F(QueryPlan, FindsColumnsOfBlocksInTheirOrder)
{
    EXPECT_EQ(planOf("SELECT block, name, data FROM weld_block WHERE name IN ($1, $2) ORDER BY block",
                     {std::string("id"), std::string("start_ns")}),
              "SCAN weld_block USING INDEX sqlite_autoindex_weld_block_1\n");
    EXPECT_THAT(planOf("SELECT DISTINCT block FROM weld_block ORDER BY block", {}),
                HasSubstr("USING COVERING INDEX"));
    EXPECT_THAT(planOf("SELECT part_number, mean_volts FROM weld NOT INDEXED WHERE part_number = $1 AND id "
                       ">= $2 AND id < $3",
                       {std::string("A-17"), std::int64_t{1}, std::int64_t{2}}),
                HasSubstr("SEARCH weld USING INTEGER PRIMARY KEY (rowid>? AND rowid<?)"));
}

TEST_F(QueryPlan, FindsSamplesEventsAndFindingsByTheirWeld)
{
    for (const auto& [table, statement] :
         {std::pair("chunk",
                    Sql("SELECT number FROM chunk WHERE weld_id = $1 AND number >= $2 ORDER BY number")),
          std::pair("envelope", Sql("SELECT data FROM envelope WHERE weld_id = $1 AND parts = $2")),
          std::pair("event", Sql("SELECT record FROM event WHERE weld_id = $1")),
          std::pair("finding", Sql("SELECT metric FROM finding WHERE weld_id = $1"))}) {
        const std::string plan = planOf(statement, {std::int64_t{1}, std::int64_t{2}});
        EXPECT_THAT(plan, HasSubstr(std::string("SEARCH ") + table + " USING")) << plan;
        EXPECT_THAT(plan, Not(HasSubstr("TEMP B-TREE"))) << plan;
    }
}

TEST(ArchiveTrend, HasTheMeanAndTheDeviationOfEachDay)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    constexpr std::int64_t kDay = 86'400'000'000'000;
    {
        const auto store = openStore(path);
        for (int i = 0; i < 4; ++i) {
            Weld weld = makeWeld(std::to_string(i));
            weld[Column::StartNs] = kStart + i / 3 * kDay;
            weld[Column::TravelSpeed] = static_cast<double>(i);
            keepWeld(*store, weld, 10);
        }
    }
    std::vector<ArchiveReader::TrendPoint> points;
    ASSERT_TRUE(openReader(path)->trend(Column::TravelSpeed, {}, false, points));
    ASSERT_EQ(points.size(), 2U);
    EXPECT_EQ(points[0].group, "2026-09-21");
    EXPECT_EQ(points[0].welds, 3);
    EXPECT_EQ(points[0].mean, 1.0);
    EXPECT_EQ(points[0].min, 0.0);
    EXPECT_EQ(points[0].max, 2.0);
    EXPECT_NEAR(points[0].deviation, std::sqrt(2.0 / 3.0), 1e-12);
    EXPECT_EQ(points[1].group, "2026-09-22");
    EXPECT_EQ(points[1].mean, 3.0);
}

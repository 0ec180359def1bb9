#pragma once

// Blocks in either database, which always say the same as the rows.

#include "archive/ArchiveTestSupport.h"

#include <algorithm>
#include <optional>

namespace TelvaneArchive::Testing
{

using Points = std::vector<ArchiveReader::TrendPoint>;
using Source = ArchiveReader::Source;

/// Adds welds whose ids are far from each other, so that a few hundred make five blocks.
inline void fill(Database& database)
{
    const Status status = database.run(
        "WITH RECURSIVE numbers(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM numbers WHERE n < 400) "
        "INSERT INTO weld (id, uid, start_ns, ending, part_number, program, verdict, mean_volts, mean_amps, "
        "energy, pub_volts, interruptions, operator) "
        "SELECT n * 200, 'weld ' || n, 1790000000000000000 + n * 7200000000000, 'complete', "
        "CASE n % 5 WHEN 4 THEN NULL ELSE 'A-' || (n % 5) END, CASE n % 7 WHEN 6 THEN NULL ELSE n % 7 END, "
        "CASE n % 3 WHEN 0 THEN 'ok' WHEN 1 THEN 'not_ok' END, CASE n % 11 WHEN 10 THEN NULL ELSE 20 + n % "
        "13 / 8.0 END, "
        "180 + n % 17 * 0.3, 40000.0 + n, CASE n % 9 WHEN 8 THEN NULL ELSE 19 + n % 5 * 0.1 END, n % 4, "
        "CASE n % 2 WHEN 1 THEN 'Smith' END FROM numbers");
    ASSERT_TRUE(status) << status.text;
}

inline std::vector<std::int64_t> blocksOf(Database& database)
{
    std::vector<Row> rows;
    EXPECT_TRUE(database.run("SELECT DISTINCT block FROM weld_block ORDER BY block", {}, &rows));
    std::vector<std::int64_t> blocks;
    blocks.reserve(rows.size());
    for (const Row& row : rows) {
        blocks.push_back(wholeOf(row[0]));
    }
    return blocks;
}

inline Points trendOf(ArchiveReader& reader, Column metric, const std::string& where, bool byPart,
                      Source source)
{
    WeldFilter filter;
    std::string error;
    EXPECT_TRUE(where.empty() || readWhere(where, filter, error)) << error;
    Points points;
    const Status status = reader.trend(metric, filter, byPart, points, source);
    EXPECT_TRUE(status) << status.text;
    return points;
}

/// \return the number of groups in all trends
inline std::size_t expectSameTrends(ArchiveReader& reader)
{
    std::size_t groups = 0;
    for (const char* const where :
         {"", "start_ns >= 1790800000000000000 and start_ns < 1792000000000000000",
          "start_ns > 1790007200000000000", "start_ns <= 1790007200000000000", "part_number = 'A-2'",
          "part_number like 'A*' and program = 3", "part_number is empty",
          "program is not empty and program <> 2", "program > 1.5", "verdict = 'ok'",
          "mean_amps > 182 and mean_volts < 21", "verdict is empty and energy >= 40100", "program = 99",
          "operator = 'Smith' and interruptions >= 2", "pub_volts <> 19.1 and pub_volts <= 19.3",
          "pub_volts is empty", "uid like '* 1*'"}) {
        for (const auto& [metric, byPart] :
             {std::pair(Column::MeanVolts, false), std::pair(Column::MeanVolts, true),
              std::pair(Column::Program, false), std::pair(Column::PubVolts, true),
              std::pair(Column::Interruptions, false)}) {
            const Points rows = trendOf(reader, metric, where, byPart, Source::Rows);
            const Points blocks = trendOf(reader, metric, where, byPart, Source::Blocks);
            groups += rows.size();
            EXPECT_EQ(rows.size(), blocks.size()) << where;
            for (std::size_t i = 0; i < std::min(rows.size(), blocks.size()); ++i) {
                EXPECT_EQ(rows[i].group, blocks[i].group) << where;
                EXPECT_EQ(rows[i].welds, blocks[i].welds) << where;
                EXPECT_EQ(rows[i].min, blocks[i].min) << where;
                EXPECT_EQ(rows[i].max, blocks[i].max) << where;
                EXPECT_NEAR(rows[i].mean, blocks[i].mean, 1e-9) << where;
                EXPECT_NEAR(rows[i].deviation, blocks[i].deviation, 1e-9) << where;
            }
        }
    }
    return groups;
}

/// \return the number of welds in all lists
inline std::size_t expectSameLists(ArchiveReader& reader)
{
    std::size_t welds = 0;
    for (const char* const where :
         {"", "operator is empty", "pub_volts > 19.2", "uid like 'weld 1*'", "part_number like '*-2'",
          "verdict <> 'ok'", "mean_amps > 182 and pub_volts < 19.3",
          "start_ns >= 1790800000000000000 and operator = 'Smith'", "interruptions = 9"}) {
        for (const auto& order :
             {std::optional<Column>(), std::optional(Column::PubVolts), std::optional(Column::PartNumber),
              std::optional(Column::Interruptions), std::optional(Column::Energy)}) {
            for (const std::size_t limit : {std::size_t{1}, std::size_t{7}, std::size_t{10'000}}) {
                ArchiveReader::Query query;
                std::string error;
                EXPECT_TRUE(*where == '\0' || readWhere(where, query.filter, error)) << error;
                query.order = order;
                query.limit = limit;
                query.ascending = limit == 7;
                query.beforeNs = 1'792'800'000'000'000'000;
                std::vector<Weld> rows;
                std::vector<Weld> blocks;
                query.source = Source::Rows;
                EXPECT_TRUE(reader.list(query, rows));
                query.source = Source::Blocks;
                EXPECT_TRUE(reader.list(query, blocks));
                EXPECT_EQ(rows.size(), blocks.size()) << where;
                for (std::size_t i = 0; i < std::min(rows.size(), blocks.size()); ++i) {
                    EXPECT_EQ(rows[i].id, blocks[i].id) << where << " " << i;
                    EXPECT_EQ(rows[i].text(Column::Uid), blocks[i].text(Column::Uid));
                }
                welds += rows.size();
            }
        }
    }
    return welds;
}

} // namespace TelvaneArchive::Testing

#include "archive/reader/WeldFilter.h"
#include "archive/ArchiveTestSupport.h"
#include "archive/WholeNumbers.h"

using namespace TelvaneArchive;
using namespace TelvaneArchive::Testing;
using Telvane::Testing::TemporaryDirectory;

namespace
{

std::string errorOf(const std::string& text)
{
    WeldFilter filter;
    std::string error;
    return readWhere(text, filter, error) ? "" : error;
}

} // namespace

TEST(WeldFilter, ReadsConditions)
{
    WeldFilter filter;
    std::string error;
    ASSERT_TRUE(
        readWhere("mean_amps > 180 and part_number = 'A''1' AND operator is not empty", filter, error));
    ASSERT_EQ(filter.conditions.size(), 3U);
    EXPECT_EQ(filter.conditions[0].column, Column::MeanAmps);
    EXPECT_EQ(filter.conditions[0].comparison, Condition::Comparison::Greater);
    EXPECT_EQ(numberOf(filter.conditions[0].value), 180.0);
    EXPECT_EQ(textOf(filter.conditions[1].value), "A'1");
    EXPECT_EQ(filter.conditions[2].comparison, Condition::Comparison::Known);
}

TEST(WeldFilter, PassesValuesAsParametersOnly)
{
    WeldFilter filter;
    std::string error;
    ASSERT_TRUE(readWhere("part_number = 'x'' OR 1=1; DROP TABLE weld; --'", filter, error));
    Sql statement = "SELECT 1 FROM weld";
    Row values;
    appendWhere(filter, statement, values);
    EXPECT_EQ(statement.text(), "SELECT 1 FROM weld WHERE part_number = $1");
    EXPECT_EQ(textOf(values[0]), "x' OR 1=1; DROP TABLE weld; --");
}

TEST(WeldFilter, RefusesWhateverIsNotACondition)
{
    for (const char* const text : {"",
                                   "1=1",
                                   "mean_amps",
                                   "mean_amps >",
                                   "mean_amps > x",
                                   "mean_amps > 1 or 1=1",
                                   "mean_amps > 1;",
                                   "mean_amps > 1 and",
                                   "password = 'x'",
                                   "mean_amps; DROP TABLE weld",
                                   "'mean_amps' > 1",
                                   "mean_amps > 1 --",
                                   "part_number = 'open",
                                   "mean_amps like '1*'",
                                   "mean_amps > (select 1)",
                                   "mean_amps >> 1",
                                   "part_number = a b",
                                   "mean_amps > nan",
                                   "tag = ' 5'",
                                   "tag = '5 '",
                                   "mean_amps is not",
                                   "id = 1 union select 1"}) {
        EXPECT_NE(errorOf(text), "") << text;
    }
}

TEST(WeldFilter, FindsWeldsByTextWithWildcards)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    {
        const auto store = openStore(path);
        for (const char* const part : {"A-17", "A-18", "B_17", "B%17"}) {
            Weld weld = makeWeld(part);
            weld[Column::PartNumber] = std::string(part);
            keepWeld(*store, weld, 10);
        }
    }
    const auto reader = openReader(path);
    const auto count = [&reader](const std::string& text) {
        WeldFilter filter;
        std::string error;
        EXPECT_TRUE(readWhere(text, filter, error)) << error;
        return listWelds(*reader, filter).size();
    };
    EXPECT_EQ(count("part_number like 'A-*'"), 2U);
    EXPECT_EQ(count("part_number like '?-17'"), 1U);
    EXPECT_EQ(count("part_number like 'B_17'"), 1U);
    EXPECT_EQ(count("part_number like 'B%17'"), 1U);
    EXPECT_EQ(count("part_number = 'A-17' and samples = 10"), 1U);
    EXPECT_EQ(count("part_number <> 'A-17'"), 3U);
    EXPECT_EQ(count("operator is empty"), 4U);
}

TEST(WeldFilter, ComparesWholeNumbersExactlyWithEachNumber)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path("welds.db");
    const auto store = openStore(path);
    addWelds(store->database());
    ASSERT_TRUE(store->makeBlocks());
    std::vector<Row> blocks;
    ASSERT_TRUE(store->database().run("SELECT 1 FROM weld_block WHERE name = 'tag'", {}, &blocks));
    EXPECT_EQ(blocks.size(), 5U);
    const auto reader = openReader(path);
    expectExactAnswers(*reader, ArchiveReader::Source::Rows);
    expectExactAnswers(*reader, ArchiveReader::Source::Blocks);
}

TEST(WeldFilter, FindsAllWholeNumbersOrNoneBeyondTheirLimits)
{
    Weld weld = makeWeld("one");
    for (const auto& [text, expected] :
         {std::pair("tag < 1e19", true), std::pair("tag > 1e19", false), std::pair("tag <> 0.5", true),
          std::pair("tag = 0.5", false), std::pair("tag >= -1e19", true), std::pair("tag <= -1e19", false)}) {
        WeldFilter filter;
        std::string error;
        ASSERT_TRUE(readWhere(text, filter, error)) << error;
        for (const std::int64_t number : {std::numeric_limits<std::int64_t>::min(), std::int64_t{0},
                                          std::numeric_limits<std::int64_t>::max()}) {
            weld[Column::Tag] = number;
            EXPECT_EQ(matches(weld, filter), expected) << text << " of " << number;
        }
        weld[Column::Tag] = {};
        EXPECT_FALSE(matches(weld, filter)) << text;
    }
}

#pragma once

// Numbers as users write them, next to the whole numbers that a database keeps. Doubles around 1.79e18 are 256 apart.

#include "archive/ArchiveTestSupport.h"

#include <algorithm>

namespace TelvaneArchive::Testing
{

/// \return the largest and the smallest whole numbers, and those next to where doubles begin to leave some out
inline const std::vector<std::int64_t>& wholeNumbers()
{
    static const std::vector<std::int64_t> numbers = {std::numeric_limits<std::int64_t>::min() + 1,
                                                      -9'007'199'254'740'993,
                                                      -1,
                                                      0,
                                                      1,
                                                      2,
                                                      16,
                                                      999,
                                                      1000,
                                                      1'700'000'000,
                                                      9'007'199'254'740'992,
                                                      9'007'199'254'740'993,
                                                      1'789'999'999'999'999'999,
                                                      1'790'000'000'000'000'000,
                                                      1'790'000'000'000'000'001,
                                                      1'790'000'000'000'000'128,
                                                      std::numeric_limits<std::int64_t>::max() - 1,
                                                      std::numeric_limits<std::int64_t>::max()};
    return numbers;
}

struct Literal
{
    const char* text;
    std::int64_t floor = 0;
    bool hasFraction = false;
    int beyond = 0; ///< -1 below, 1 above all whole numbers
};
constexpr Literal kLiterals[] = {
    {"1.7e9", 1'700'000'000},
    {"1E3", 1000},
    {"+1e+3", 1000},
    {"1000.0", 1000},
    {"0x10", 16},
    {"-0x1p0", -1},
    {"0x18d75b8423f30001", 1'790'000'000'000'000'001},
    {"-0.0", 0},
    {"1.", 1},
    {"0.0001e4", 1},
    {"0.5", 0, true},
    {"-.5", -1, true},
    {"1e-300", 0, true},
    {"-1e-400", -1, true},
    {"999.99999999999999999999", 999, true},
    {"9007199254740993.0", 9'007'199'254'740'993},
    {"-9007199254740993e0", -9'007'199'254'740'993},
    {"1.79e18", 1'790'000'000'000'000'000},
    {"1790000000000000001", 1'790'000'000'000'000'001},
    {"1.790000000000000001E18", 1'790'000'000'000'000'001},
    {"179000000000000000100e-2", 1'790'000'000'000'000'001},
    {"1790000000000000000.5", 1'790'000'000'000'000'000, true},
    {"9223372036854775806.5", 9'223'372'036'854'775'806, true},
    {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
    {"9223372036854775807.1", std::numeric_limits<std::int64_t>::max(), true},
    {"9223372036854775808", 0, false, 1},
    {"99999999999999999999", 0, false, 1},
    {"1e300", 0, false, 1},
    {"-9223372036854775807", std::numeric_limits<std::int64_t>::min() + 1},
    {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
    {"-9223372036854775808.5", 0, false, -1},
    {"-0x1p70", 0, false, -1},
};
constexpr const char* kComparisons[] = {"=", "<>", "<", "<=", ">", ">="};

/// \return the whole numbers for which a comparison with a literal holds
inline std::vector<std::int64_t> numbersThat(const std::string& comparison, const Literal& literal)
{
    std::vector<std::int64_t> found;
    for (const std::int64_t number : wholeNumbers()) {
        const bool less = literal.beyond > 0 ||
                          (literal.beyond == 0 &&
                           (number < literal.floor || (number == literal.floor && literal.hasFraction)));
        const bool equal = literal.beyond == 0 && number == literal.floor && !literal.hasFraction;
        const bool holding = comparison == "="    ? equal
                             : comparison == "<>" ? !equal
                             : comparison == "<"  ? less
                             : comparison == "<=" ? less || equal
                             : comparison == ">"  ? !less && !equal
                                                  : !less;
        if (holding) {
            found.push_back(number);
        }
    }
    return found;
}

/// Adds a weld for each of the whole numbers, which is its tag, and one without a tag. Their ids are far from each other,
/// so that most of them are in blocks.
inline void addWelds(Database& database)
{
    std::int64_t id = 1;
    const Sql statement = "INSERT INTO weld (id, uid, start_ns, tag) VALUES ($1, $2, $3, $4)";
    for (const std::int64_t number : wholeNumbers()) {
        const Status status = database.run(statement, {id, std::to_string(id), kStart, number});
        ASSERT_TRUE(status) << status.text;
        id += 5000;
    }
    ASSERT_TRUE(database.run("INSERT INTO weld (id, uid, start_ns) VALUES ($1, $2, $3)",
                             {id, std::to_string(id), kStart}));
}

/// Compares the answers to all comparisons with all literals.
inline void expectExactAnswers(ArchiveReader& reader, ArchiveReader::Source source)
{
    for (const Literal& literal : kLiterals) {
        for (const std::string comparison : kComparisons) {
            const std::string where = "tag " + comparison + " " + literal.text;
            ArchiveReader::Query query;
            query.source = source;
            std::string error;
            ASSERT_TRUE(readWhere(where, query.filter, error)) << error;
            std::vector<Weld> welds;
            const Status status = reader.list(query, welds);
            ASSERT_TRUE(status) << status.text;
            std::vector<std::int64_t> found;
            for (const Weld& weld : welds) {
                found.push_back(weld.whole(Column::Tag));
                EXPECT_TRUE(matches(weld, query.filter)) << where;
            }
            std::sort(found.begin(), found.end());
            EXPECT_EQ(found, numbersThat(comparison, literal)) << where;
        }
    }
}

} // namespace TelvaneArchive::Testing

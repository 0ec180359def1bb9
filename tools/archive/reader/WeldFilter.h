#pragma once

#include "archive/welds/WeldColumns.h"

#include <optional>
#include <string>
#include <vector>

namespace TelvaneArchive
{

/// A condition on a column.
struct Condition
{
    enum class Comparison
    {
        Equal,
        NotEqual,
        Less,
        LessOrEqual,
        Greater,
        GreaterOrEqual,
        Like,    ///< text with * and ? as wildcards
        Unknown, ///< the column is empty
        Known,
    };

    Column column = Column::StartNs;
    Comparison comparison = Comparison::Equal;
    Value value;
};

/// Which welds: all conditions must hold.
struct WeldFilter
{
    std::vector<Condition> conditions;

    void add(Column column, Condition::Comparison comparison, const Value& value);
};

/// Reads conditions such as "mean_amps > 180 and part_number = 'A-17' and operator is empty".
///
/// A name must be a column, a number must fit it, and everything else is an error. The text never becomes part of a
/// statement.
/// \param[out] error  what is wrong, and where
/// \return whether \p text was understood
bool readWhere(const std::string& text, WeldFilter& filter, std::string& error);

/// Compares two values of one column that are not null, as a database does.
/// \return negative, 0 or positive
int compareValues(const Value& value, const Value& other);

/// \return whether a condition holds for a value of its column, as in a database
bool holds(const Condition& condition, const Value& value);
/// \return whether all conditions hold for a weld, as in a database
bool matches(const Weld& weld, const WeldFilter& filter);

/// Whether the indexes of metrics may be used.
enum class MetricIndexes
{
    Use,
    Avoid, ///< when many welds match: sorting them would take longer than going through the newest
};

/// Appends " WHERE ..." and the values.
void appendWhere(const WeldFilter& filter, Sql& statement, Row& values,
                 MetricIndexes indexes = MetricIndexes::Use);
/// Does it for SQLite, which takes a sign before a text.
/// \param index  the only column whose index may be used; empty for any
void appendWhere(const WeldFilter& filter, Sql& statement, Row& values, std::optional<Column> index);

} // namespace TelvaneArchive

#include "archive/welds/WeldColumns.h"

namespace TelvaneArchive
{

namespace
{

constexpr ColumnInfo kInfos[kColumns] = {
#define X(name, sql, type, use, unit, meaning) {sql, ColumnType::type, ColumnUse::use, unit, meaning},
    TELVANE_WELD_COLUMNS(X)
#undef X
};

} // namespace

const ColumnInfo& infoOf(Column column)
{
    return kInfos[static_cast<std::size_t>(column)];
}

const Sql& sqlOf(Column column)
{
    static const Sql names[kColumns] = {
#define X(name, sql, type, use, unit, meaning) Sql(sql),
        TELVANE_WELD_COLUMNS(X)
#undef X
    };
    return names[static_cast<std::size_t>(column)];
}

const std::array<Column, kColumns>& allColumns()
{
    static const std::array<Column, kColumns> columns = {
#define X(name, sql, type, use, unit, meaning) Column::name,
        TELVANE_WELD_COLUMNS(X)
#undef X
    };
    return columns;
}

std::optional<Column> findColumn(std::string_view name)
{
    for (const Column column : allColumns()) {
        if (name == infoOf(column).name) {
            return column;
        }
    }
    return std::nullopt;
}

const Sql& columnList()
{
    static const Sql list = [] {
        Sql names;
        for (const Column column : allColumns()) {
            if (column != allColumns().front()) {
                names += ", ";
            }
            names += sqlOf(column);
        }
        return names;
    }();
    return list;
}

bool isMetric(Column column)
{
    const ColumnInfo& info = infoOf(column);
    return info.type != ColumnType::Text &&
           (info.use == ColumnUse::Published || info.use == ColumnUse::Computed);
}

} // namespace TelvaneArchive

#pragma once

#include "archive/welds/WeldColumns.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace TelvaneArchive
{

/// Ids in a block: block b has the welds from id b * kBlockWelds on.
constexpr std::int64_t kBlockWelds = 16'384;

/// Key of the locks of blocks in PostgreSQL.
constexpr std::int64_t kBlockLock = 831'642;

/// Name of the ids in a block.
constexpr const char* kBlockIds = "id";

/// \return the columns that are stored in blocks: all but those that are different for each weld, and long
const std::vector<Column>& blockColumns();
bool isInBlocks(Column column);

/// One column of the welds of a block, in the order of their ids: what trends and lists read in place of the rows.
class BlockColumn
{
public:
    explicit BlockColumn(ColumnType type) : m_type(type) {}
    explicit BlockColumn(Column column) : BlockColumn(infoOf(column).type) {}

    /// \return false if the value is not of the column's type, which SQLite allows; such a block is not stored
    bool add(const Value& value);
    /// \return the column as bytes, compressed; empty if it is too large
    std::string encode() const;
    /// Reads a column, whatever its bytes.
    /// \return false if they are damaged
    bool decode(std::string_view data);

    ColumnType type() const { return m_type; }
    std::size_t size() const { return m_type == ColumnType::Text ? m_places.size() : m_numbers.size(); }
    bool isNull(std::size_t i) const;
    std::int64_t whole(std::size_t i) const { return static_cast<std::int64_t>(m_numbers[i]); }
    double number(std::size_t i) const;
    /// Only for numbers.
    Value value(std::size_t i) const;

    /// The different texts. The first one is the place of null.
    const std::vector<std::string>& texts() const { return m_texts; }
    /// \return which of texts() it is; 0 for null
    std::size_t place(std::size_t i) const { return m_places[i]; }

private:
    ColumnType m_type;
    std::vector<std::uint64_t> m_numbers; ///< bits of numbers and whole numbers
    std::vector<std::string> m_texts{1};
    std::vector<std::uint32_t> m_places;
    std::unordered_map<std::string, std::uint32_t> m_known; ///< texts that were added
};

} // namespace TelvaneArchive

// A column of numbers is an array of 64 bits each, little-endian. A column of texts is the list of its different texts,
// followed by an array of places in the list, of 32 bits each. Databases have no NaN, so NaN is free to mean null.

#include "archive/welds/WeldBlock.h"

#include "archive/samples/LittleEndian.h"
#include "archive/samples/SampleCodec.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace TelvaneArchive
{

namespace
{

constexpr std::size_t kMaxBytes = std::size_t{16} * 1024 * 1024;
constexpr std::int64_t kNoWhole = std::numeric_limits<std::int64_t>::min();

bool take(std::string_view& data, std::uint32_t& bits)
{
    if (data.size() < sizeof bits) {
        return false;
    }
    bits = static_cast<std::uint32_t>(getFixed(data, 0, sizeof bits));
    data.remove_prefix(sizeof bits);
    return true;
}

} // namespace

const std::vector<Column>& blockColumns()
{
    static const std::vector<Column> columns = [] {
        std::vector<Column> found;
        for (const Column column : allColumns()) {
            if (column != Column::Uid && column != Column::StartRecord && column != Column::EndRecord) {
                found.push_back(column);
            }
        }
        return found;
    }();
    return columns;
}

bool isInBlocks(Column column)
{
    const std::vector<Column>& columns = blockColumns();
    return std::find(columns.begin(), columns.end(), column) != columns.end();
}

bool BlockColumn::add(const Value& value)
{
    const bool null = TelvaneArchive::isNull(value);
    switch (m_type) {
    case ColumnType::Whole: {
        const auto* const whole = std::get_if<std::int64_t>(&value);
        m_numbers.push_back(static_cast<std::uint64_t>(whole != nullptr ? *whole : kNoWhole));
        return null || (whole != nullptr && *whole != kNoWhole);
    }
    case ColumnType::Real: {
        const auto* const number = std::get_if<double>(&value);
        m_numbers.push_back(bitCast<std::uint64_t>(number != nullptr ? *number : std::nan("")));
        return null || (number != nullptr && !std::isnan(*number));
    }
    case ColumnType::Text:
        break;
    }
    if (!std::holds_alternative<std::string>(value)) {
        m_places.push_back(0);
        return null;
    }
    const auto [known, added] = m_known.emplace(textOf(value), static_cast<std::uint32_t>(m_texts.size()));
    if (added) {
        m_texts.push_back(textOf(value));
    }
    m_places.push_back(known->second);
    return true;
}

std::string BlockColumn::encode() const
{
    std::string raw;
    for (const std::uint64_t bits : m_numbers) {
        putFixed(raw, bits, 8);
    }
    if (m_type == ColumnType::Text) {
        putFixed(raw, m_texts.size(), 4);
        for (const std::string& text : m_texts) {
            if (text.size() > kMaxBytes) {
                return {};
            }
            putFixed(raw, text.size(), 4);
            raw += text;
        }
        for (const std::uint32_t place : m_places) {
            putFixed(raw, place, 4);
        }
    }
    return raw.size() > kMaxBytes ? std::string() : pack(raw);
}

bool BlockColumn::decode(std::string_view data)
{
    m_numbers.clear();
    m_texts.assign(1, {});
    m_places.clear();
    m_known.clear();
    std::string raw;
    if (!unpack(data, kMaxBytes, raw)) {
        return false;
    }
    std::string_view rest = raw;
    if (m_type == ColumnType::Text) {
        std::uint32_t texts = 0;
        if (!take(rest, texts) || texts == 0 ||
            texts > std::min<std::size_t>(rest.size() / sizeof(std::uint32_t), kBlockWelds + 1)) {
            return false;
        }
        m_texts.resize(texts);
        for (std::string& text : m_texts) {
            std::uint32_t size = 0;
            if (!take(rest, size) || size > rest.size()) {
                return false;
            }
            text.assign(rest.substr(0, size));
            rest.remove_prefix(size);
        }
        m_places.resize(rest.size() / sizeof(std::uint32_t));
        for (std::uint32_t& place : m_places) {
            if (!take(rest, place) || place >= texts) {
                return false;
            }
        }
        return rest.empty();
    }
    m_numbers.resize(rest.size() / sizeof(std::uint64_t));
    for (std::size_t i = 0; i < m_numbers.size(); ++i) {
        m_numbers[i] = getFixed(rest, i * sizeof(std::uint64_t), sizeof(std::uint64_t));
    }
    return rest.size() == m_numbers.size() * sizeof(std::uint64_t);
}

bool BlockColumn::isNull(std::size_t i) const
{
    switch (m_type) {
    case ColumnType::Whole:
        return whole(i) == kNoWhole;
    case ColumnType::Real:
        return std::isnan(number(i));
    case ColumnType::Text:
        break;
    }
    return m_places[i] == 0;
}

double BlockColumn::number(std::size_t i) const
{
    return bitCast<double>(m_numbers[i]);
}

Value BlockColumn::value(std::size_t i) const
{
    if (isNull(i)) {
        return {};
    }
    return m_type == ColumnType::Whole ? Value(whole(i)) : Value(number(i));
}

} // namespace TelvaneArchive

// A column's name may contain any character, so a mapping is parsed from its end: first the offset, then the
// scale, each only if the rest is not already the name of a column.

#include "weld/ColumnMapping.h"

#include "common/support/CsvFields.h"
#include "common/support/HumanReadable.h"

#include <algorithm>

namespace TelvaneTool
{

std::optional<std::size_t> findColumn(std::string_view name, const std::vector<std::string>& columns)
{
    const auto found = std::find(columns.begin(), columns.end(), name);
    if (found == columns.end()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - columns.begin());
}

std::string noSuchColumn(std::string_view name, const std::vector<std::string>& columns)
{
    std::string text = "there is no column \"" + std::string(name) + "\"; the columns are";
    const char* separator = " ";
    for (const std::string& column : columns) {
        text += separator + column;
        separator = ", ";
    }
    return text;
}

std::optional<ColumnMapping> readColumnMapping(std::string_view text, const std::vector<std::string>& columns,
                                               std::string& error)
{
    ColumnMapping mapping;
    std::string_view name = trimmed(text, " ");
    mapping.column = findColumn(name, columns);
    if (mapping.column) {
        return mapping;
    }
    if (readDecimal(name, mapping.offset)) {
        return mapping;
    }
    const std::size_t sign = name.find_last_of("+-");
    if (sign != std::string_view::npos && sign > 0 && name[sign - 1] != 'e' && name[sign - 1] != 'E' &&
        name[sign - 1] != '*' && name[sign - 1] != '/' &&
        readDecimal(trimmed(name.substr(sign + 1), " "), mapping.offset)) {
        mapping.offset = name[sign] == '-' ? -mapping.offset : mapping.offset;
        name = trimmed(name.substr(0, sign), " ");
        mapping.column = findColumn(name, columns);
    }
    const std::size_t factor = name.find_last_of("*/");
    if (!mapping.column && factor != std::string_view::npos &&
        readDecimal(trimmed(name.substr(factor + 1), " "), mapping.scale)) {
        if (name[factor] == '/') {
            if (mapping.scale == 0.0) {
                error = "\"" + std::string(text) + "\" divides by zero";
                return std::nullopt;
            }
            mapping.scale = 1.0 / mapping.scale;
        }
        name = trimmed(name.substr(0, factor), " ");
        mapping.column = findColumn(name, columns);
    }
    if (!mapping.column) {
        error = noSuchColumn(name, columns);
        return std::nullopt;
    }
    return mapping;
}

} // namespace TelvaneTool
